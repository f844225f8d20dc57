// Runs tasks at their time on a pool of threads that grows while tasks block.
#ifndef KESD_HOST_VEXO_CLIENT_SCHEDULER_H_
#define KESD_HOST_VEXO_CLIENT_SCHEDULER_H_

#include <chrono>
#include <compare>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <optional>
#include <thread>

#include "support/mutex.h"

namespace vexo_host {

// Tasks start in the order in which they fall due. A task may block for as long as it likes: the others go on, each on
// another thread, until the limit is reached. Any thread may call any method, tasks included, but for Start and Stop.
class Scheduler {
 public:
  using Clock = std::chrono::steady_clock;
  using Task = std::function<void()>;  // throws nothing

  struct TaskId {
    Clock::time_point due;
    uint64_t sequence;
    auto operator<=>(const TaskId&) const = default;
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

  // Makes the first thread; call it once, before anything else. False when there is none to be had.
  [[nodiscard]] bool Start() KESD_EXCLUDES(mutex);

  // Nothing when the task cannot be kept (out of memory, or stopped); then it never runs.
  std::optional<TaskId> At(Clock::time_point due, Task task) noexcept KESD_EXCLUDES(mutex);

  // Forgets the task, unless it has run or is running.
  void Cancel(const TaskId& id) KESD_EXCLUDES(mutex);

  // Waits for the tasks that run and forgets the others; none runs afterwards. Not to be called from a task.
  void Stop() KESD_EXCLUDES(mutex);

  uint32_t ThreadCount() KESD_EXCLUDES(mutex);
  size_t TaskCount() KESD_EXCLUDES(mutex);  // tasks kept and not started

 private:
  using ThreadHandle = std::list<std::thread>::iterator;

  void Work(ThreadHandle self) KESD_EXCLUDES(mutex);
  Task TakeDue(Clock::time_point now) KESD_REQUIRES(mutex);
  Task Watch() KESD_REQUIRES(mutex);
  void EnsureWatch() KESD_REQUIRES(mutex);
  bool Rest() KESD_REQUIRES(mutex);
  bool AddThread() KESD_REQUIRES(mutex);

  const Limits limits;
  const uint32_t processors;

  kesd::Mutex mutex;
  kesd::Condition watchCondition;  // the watching thread waits here
  kesd::Condition spareCondition;  // the spare threads wait here
  bool stopping KESD_GUARDED_BY(mutex) = false;
  bool watched KESD_GUARDED_BY(mutex) = false;  // a thread waits for the first task to fall due
  uint32_t spare KESD_GUARDED_BY(mutex) = 0;    // threads that wait to watch, those just being made included
  uint32_t busy KESD_GUARDED_BY(mutex) = 0;     // threads that run a task
  Clock::time_point lastTaken KESD_GUARDED_BY(mutex);
  uint64_t nextSequence KESD_GUARDED_BY(mutex) = 0;
  std::map<TaskId, Task> tasks KESD_GUARDED_BY(mutex);
  std::list<std::thread> threads KESD_GUARDED_BY(mutex);
  std::list<std::thread> ended KESD_GUARDED_BY(mutex);  // left their work; to be joined by the next that does
};

}  // namespace vexo_host

#endif  // KESD_HOST_VEXO_CLIENT_SCHEDULER_H_
