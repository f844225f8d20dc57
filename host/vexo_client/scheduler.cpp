#include "host/vexo_client/scheduler.h"

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

void JoinAll(std::list<std::thread>& list) {
  for (std::thread& thread : list) thread.join();
}

}  // namespace

Scheduler::Scheduler(const Limits& someLimits)
    : limits(someLimits), processors(std::max(1u, std::thread::hardware_concurrency())) {}

Scheduler::~Scheduler() { Stop(); }

bool Scheduler::Start() {
  const kesd::MutexLock lock(mutex);
  return AddThread();
}

std::optional<Scheduler::TaskId> Scheduler::At(Clock::time_point due, Task task) noexcept {
  const kesd::MutexLock lock(mutex);
  if (stopping) return std::nullopt;
  const TaskId id{due, nextSequence++};
  try {
    tasks.emplace(id, std::move(task));
  } catch (const std::bad_alloc&) {
    return std::nullopt;
  }
  if (!watched) {
    EnsureWatch();
  } else if (tasks.begin()->first == id) {
    watchCondition.NotifyOne();
  }
  return id;
}

void Scheduler::Cancel(const TaskId& id) {
  std::map<TaskId, Task>::node_type cancelled;  // destroyed after the lock is left: a task may own much
  const kesd::MutexLock lock(mutex);
  cancelled = tasks.extract(id);
}

void Scheduler::Stop() {
  std::map<TaskId, Task> dropped;
  std::list<std::thread> toJoin;
  {
    const kesd::MutexLock lock(mutex);
    stopping = true;
    dropped.swap(tasks);
    toJoin.splice(toJoin.end(), threads);
    toJoin.splice(toJoin.end(), ended);
    watchCondition.NotifyAll();
    spareCondition.NotifyAll();
  }
  JoinAll(toJoin);
}

uint32_t Scheduler::ThreadCount() {
  const kesd::MutexLock lock(mutex);
  return static_cast<uint32_t>(threads.size());
}

size_t Scheduler::TaskCount() {
  const kesd::MutexLock lock(mutex);
  return tasks.size();
}

// Whenever a task is kept, one thread watches for it to fall due; when that thread takes the task, another takes over
// the watch. So a task that blocks never keeps the next one from being noticed.
void Scheduler::Work(ThreadHandle self) {
  std::list<std::thread> toJoin;
  {
    const kesd::MutexLock lock(mutex);
    --spare;
    while (!stopping) {
      Task task = TakeDue(Clock::now());
      if (!task) {
        if (watched) {
          if (Rest()) continue;
          toJoin.splice(toJoin.end(), ended);
          ended.splice(ended.end(), threads, self);
          break;
        }
        watched = true;
        task = Watch();
        watched = false;
        if (!task) continue;
      }
      EnsureWatch();
      ++busy;
      mutex.Unlock();
      task();
      task = nullptr;
      mutex.Lock();
      --busy;
    }
  }
  JoinAll(toJoin);
}

Scheduler::Task Scheduler::TakeDue(Clock::time_point now) {
  if (tasks.empty() || tasks.begin()->first.due > now) return nullptr;
  Task task = std::move(tasks.begin()->second);
  tasks.erase(tasks.begin());
  lastTaken = now;
  return task;
}

// The first task once it is due; nothing when stopping.
Scheduler::Task Scheduler::Watch() {
  while (!stopping) {
    if (tasks.empty()) {
      watchCondition.Wait(mutex);
      continue;
    }
    Clock::time_point when = tasks.begin()->first.due;
    const bool wouldNeedAnother = spare == 0 && busy >= processors && threads.size() < limits.threads;
    if (wouldNeedAnother) when = std::max(when, lastTaken + kPatience);
    const Clock::time_point now = Clock::now();
    if (when <= now) return TakeDue(now);
    watchCondition.Wait(mutex, when);
  }
  return nullptr;
}

void Scheduler::EnsureWatch() {
  if (watched || tasks.empty()) return;
  if (spare > 0) {
    spareCondition.NotifyOne();
  } else if (threads.size() < limits.threads) {
    AddThread();  // without it the tasks wait for one of the busy threads
  }
}

// Waits until there may be something to do; false when this thread is not needed any more.
bool Scheduler::Rest() {
  ++spare;
  const bool notified = spareCondition.Wait(mutex, Clock::now() + limits.idleTime);
  --spare;
  return notified || !watched || spare == 0 || stopping;
}

bool Scheduler::AddThread() {
  ThreadHandle handle = threads.end();
  try {
    handle = threads.emplace(threads.end());
    const SignalsBlocked blocked;
    *handle = std::thread(&Scheduler::Work, this, handle);
  } catch (const std::exception& e) {
    if (handle != threads.end()) threads.erase(handle);
    zv_loc_fw::log_warning("vexo_client", "cannot make another thread, going on with %zu: %s\n", threads.size(),
                           e.what());
    return false;
  }
  ++spare;
  return true;
}

}  // namespace vexo_host
