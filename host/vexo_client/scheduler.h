// Runs tasks at their time on a pool of threads that grows while tasks block.
#ifndef KESD_HOST_VEXO_CLIENT_SCHEDULER_H_
#define KESD_HOST_VEXO_CLIENT_SCHEDULER_H_

#include <chrono>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <optional>
#include <thread>

#include "host/event/event.h"
#include "support/mutex.h"

namespace vexo_host {

// Tasks that wait for a thread start in the order in which they fell due. A task may block for as long as it likes: the
// others go on, each on another thread, until the limit is reached. Any thread may call any method, tasks included, but
// for Start and Stop.
//
// Handing a task over wakes one thread, which runs it, and no other: one thread of its own watches the clock, and it is
// not woken for a task that falls due later than what it waits for already.
class Scheduler {
 public:
  using Clock = std::chrono::steady_clock;
  using Task = std::function<void()>;  // throws nothing

  struct TaskId {
    Clock::time_point due;
    uint64_t sequence;
    bool operator<(const TaskId& other) const { return due != other.due ? due < other.due : sequence < other.sequence; }
  };

  struct Limits {
    // One stalled listener costs one thread. This many may stall before others are held up; it keeps the address
    // space for stacks at 2 GiB (8 MiB each, of which a few pages are used) and is far below any task limit.
    uint32_t threads = 256;
    // A thread that had nothing to do for this long ends, unless it is the last spare one.
    std::chrono::milliseconds idleTime{5'000};
  };

  Scheduler() : Scheduler(Limits()) {}
  explicit Scheduler(const Limits& limits);
  Scheduler(const Scheduler&) = delete;
  Scheduler& operator=(const Scheduler&) = delete;
  ~Scheduler();

  // Makes the first threads; call it once, before anything else. False when they are not to be had.
  [[nodiscard]] bool Start() KESD_EXCLUDES(mutex);

  // Nothing when the task cannot be kept (out of memory, or stopped); then it never runs.
  std::optional<TaskId> At(Clock::time_point due, Task task) noexcept KESD_EXCLUDES(mutex);

  // Runs the task as soon as a thread can. False when it cannot be kept; then it never runs.
  [[nodiscard]] bool Now(Task task) noexcept KESD_EXCLUDES(mutex);

  // Forgets the task, unless it has run, is running or was handed to a thread.
  void Cancel(const TaskId& id) KESD_EXCLUDES(mutex);

  // Waits for the tasks that run and forgets the others; none runs afterwards. Not to be called from a task.
  void Stop() KESD_EXCLUDES(mutex);

  uint32_t ThreadCount() KESD_EXCLUDES(mutex);  // that run tasks
  size_t TaskCount() KESD_EXCLUDES(mutex);      // tasks kept and not started

 private:
  using Tasks = std::map<TaskId, Task>;

  // Stays until the end, so that whoever hands it a task can wake it without the lock, which the woken thread takes.
  struct Worker {
    std::thread thread;
    Event wake;
    Task task;  // handed over, to be run
    bool active = false;
    Worker* next = nullptr;  // while idle
  };

  void Watch() KESD_EXCLUDES(mutex);
  Clock::time_point Care(Clock::time_point now) KESD_REQUIRES(mutex);
  void WatchUntil(Clock::time_point when) KESD_REQUIRES(mutex);
  Clock::time_point GrowthDue() KESD_REQUIRES(mutex);
  bool AddWorker() KESD_REQUIRES(mutex);

  void Work(Worker& self);
  Task Next(Worker& self) KESD_EXCLUDES(mutex);
  Worker* TakeIdle() KESD_REQUIRES(mutex);
  void LeaveIdle(const Worker& worker) KESD_REQUIRES(mutex);
  std::nullptr_t Leave(Worker& self) KESD_REQUIRES(mutex);

  const Limits limits;
  const uint32_t processors;
  std::thread watch;

  kesd::Mutex mutex;
  kesd::Condition watchChanged;
  bool stopping KESD_GUARDED_BY(mutex) = false;
  Clock::time_point watchedUntil KESD_GUARDED_BY(mutex) = Clock::time_point::min();  // the clock is looked at then
  Clock::time_point lastTaken KESD_GUARDED_BY(mutex);  // when a thread last went on to a task that had waited
  uint64_t nextSequence KESD_GUARDED_BY(mutex) = 0;
  Tasks later KESD_GUARDED_BY(mutex);
  Tasks due KESD_GUARDED_BY(mutex);  // wait for a thread
  std::list<Worker> workers KESD_GUARDED_BY(mutex);
  uint32_t active KESD_GUARDED_BY(mutex) = 0;
  uint32_t idleCount KESD_GUARDED_BY(mutex) = 0;
  Worker* idle KESD_GUARDED_BY(mutex) = nullptr;  // last come, first woken: the others' caches and stacks grow cold
};

}  // namespace vexo_host

#endif  // KESD_HOST_VEXO_CLIENT_SCHEDULER_H_
