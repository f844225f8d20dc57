#include "host/vexo_client/scheduler.h"

#include <pthread.h>
#include <sched.h>

#include <algorithm>
#include <csignal>
#include <new>
#include <system_error>
#include <utility>

#include "platform/log.h"

namespace vexo_host {
namespace {

// How long a due task waits for one of the busy threads before another thread is made, once there are as many busy
// ones as processors: a burst of short tasks is then worked off by few threads.
constexpr std::chrono::milliseconds kPatience{1};

// After a thread could not be made.
constexpr std::chrono::milliseconds kStarvedPause{100};

// Threads made while this exists leave the process's signals to the threads of the program.
class SignalsBlocked {
 public:
  SignalsBlocked() {
    sigset_t set;
    sigfillset(&set);
    for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT}) sigdelset(&set, fault);
    pthread_sigmask(SIG_BLOCK, &set, &before);
  }
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;
  ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before, nullptr); }

 private:
  sigset_t before;
};

}  // namespace

Scheduler::Scheduler(const Limits& someLimits)
    : limits(someLimits), processors(std::max(1u, std::thread::hardware_concurrency())) {}

Scheduler::~Scheduler() { Stop(); }

bool Scheduler::Start() try {
  const kesd::MutexLock lock(mutex);
  if (!AddWorker()) return false;
  const SignalsBlocked blocked;
  watch = std::thread(&Scheduler::Watch, this);
  return true;
} catch (const std::system_error&) {
  return false;
}

std::optional<Scheduler::TaskId> Scheduler::At(Clock::time_point when, Task task) noexcept {
  const kesd::MutexLock lock(mutex);
  if (stopping) return std::nullopt;
  const TaskId id{when, nextSequence++};
  try {
    later.emplace(id, std::move(task));
  } catch (const std::bad_alloc&) {
    return std::nullopt;
  }
  WatchUntil(when);
  return id;
}

bool Scheduler::Now(Task task) noexcept {
  Worker* worker = nullptr;
  {
    const kesd::MutexLock lock(mutex);
    if (stopping) return false;
    worker = TakeIdle();
    if (worker != nullptr) {
      worker->task = std::move(task);
    } else {
      try {
        due.emplace(TaskId{Clock::now(), nextSequence++}, std::move(task));
      } catch (const std::bad_alloc&) {
        return false;
      }
      WatchUntil(GrowthDue());
    }
  }
  if (worker != nullptr) worker->wake.Set();
  return true;
}

void Scheduler::Cancel(const TaskId& id) {
  Tasks::node_type cancelled;  // destroyed after the lock is left: a task may own much
  const kesd::MutexLock lock(mutex);
  cancelled = later.extract(id);
  if (cancelled.empty()) cancelled = due.extract(id);
}

void Scheduler::Stop() {
  Tasks dropped[2];
  {
    const kesd::MutexLock lock(mutex);
    stopping = true;
    dropped[0].swap(later);
    dropped[1].swap(due);
    watchChanged.NotifyOne();
    for (Worker* worker = idle; worker != nullptr; worker = worker->next) worker->wake.Set();
  }
  if (watch.joinable()) watch.join();
  // From here on nobody makes another. They stay, for the sake of those that are about to wake one.
  std::list<Worker> ended;
  {
    const kesd::MutexLock lock(mutex);
    ended.swap(workers);
  }
  for (Worker& worker : ended) {
    if (worker.thread.joinable()) worker.thread.join();
    worker.task = nullptr;
  }
  const kesd::MutexLock lock(mutex);
  workers.swap(ended);
}

uint32_t Scheduler::ThreadCount() {
  const kesd::MutexLock lock(mutex);
  return active;
}

size_t Scheduler::TaskCount() {
  const kesd::MutexLock lock(mutex);
  return later.size() + due.size();
}

// On a thread of its own: sees to tasks that fall due and to those for which there is no thread.
void Scheduler::Watch() {
  const kesd::MutexLock lock(mutex);
  while (!stopping) {
    const Clock::time_point now = Clock::now();
    watchedUntil = Care(now);
    if (watchedUntil <= now) continue;
    if (watchedUntil == Clock::time_point::max()) {
      watchChanged.Wait(mutex);
    } else {
      watchChanged.Wait(mutex, watchedUntil);
    }
  }
}

// When to look again.
Scheduler::Clock::time_point Scheduler::Care(Clock::time_point now) {
  while (!later.empty() && later.begin()->first.due <= now) {
    Tasks::node_type task = later.extract(later.begin());
    if (Worker* const worker = TakeIdle()) {
      worker->task = std::move(task.mapped());
      worker->wake.Set();
    } else {
      due.insert(std::move(task));
    }
  }
  Clock::time_point growth = GrowthDue();
  if (growth <= now) {
    lastTaken = now;  // the new one is about to
    growth = AddWorker() ? GrowthDue() : now + kStarvedPause;
  }
  return later.empty() ? growth : std::min(growth, later.begin()->first.due);
}

// When another thread is due, if nothing changes.
Scheduler::Clock::time_point Scheduler::GrowthDue() {
  if (due.empty() || active >= limits.threads) return Clock::time_point::max();
  if (active - idleCount < processors) return Clock::time_point::min();
  return std::max(lastTaken, due.begin()->first.due) + kPatience;
}

void Scheduler::WatchUntil(Clock::time_point when) {
  if (when >= watchedUntil) return;
  watchedUntil = when;
  watchChanged.NotifyOne();
}

bool Scheduler::AddWorker() {
  Worker* worker = nullptr;
  try {
    const auto ended = std::find_if(workers.begin(), workers.end(), [](const Worker& one) { return !one.active; });
    worker = ended != workers.end() ? &*ended : &workers.emplace_back();
    if (worker->thread.joinable()) worker->thread.join();
    const SignalsBlocked blocked;
    worker->thread = std::thread(&Scheduler::Work, this, std::ref(*worker));
  } catch (const std::exception& e) {
    zv_loc_fw::log_warning("vexo_client", "cannot make another thread, going on with %u: %s\n", active, e.what());
    return false;
  }
  worker->active = true;
  ++active;
  return true;
}

void Scheduler::Work(Worker& self) {
  const sched_param none{};
  pthread_setschedparam(pthread_self(), SCHED_BATCH, &none);
  while (const Task task = Next(self)) task();
}

// Nothing when the thread is not needed any more.
Scheduler::Task Scheduler::Next(Worker& self) {
  Event::Deadline patience;  // the last spare one waits for ever
  {
    const kesd::MutexLock lock(mutex);
    if (!due.empty()) {
      lastTaken = Clock::now();
      return std::move(due.extract(due.begin()).mapped());
    }
    if (stopping) return Leave(self);
    if (idle != nullptr) patience = Clock::now() + limits.idleTime;
    self.next = idle;
    idle = &self;
    ++idleCount;
  }
  for (;;) {
    const bool woken = self.wake.Wait(patience);
    const kesd::MutexLock lock(mutex);
    if (stopping) return Leave(self);
    if (self.task) return std::exchange(self.task, nullptr);
    if (woken) continue;  // for a task that it had taken already
    LeaveIdle(self);
    return Leave(self);
  }
}

std::nullptr_t Scheduler::Leave(Worker& self) {
  self.active = false;
  --active;
  return nullptr;
}

Scheduler::Worker* Scheduler::TakeIdle() {
  Worker* const worker = idle;
  if (worker == nullptr) return nullptr;
  idle = worker->next;
  --idleCount;
  return worker;
}

void Scheduler::LeaveIdle(const Worker& worker) {
  Worker** link = &idle;
  while (*link != &worker) link = &(*link)->next;
  *link = worker.next;
  --idleCount;
}

}  // namespace vexo_host
