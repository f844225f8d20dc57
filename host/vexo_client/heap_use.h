// When the process's heap is kept, and when it is given back.
#ifndef KESD_HOST_VEXO_CLIENT_HEAP_USE_H_
#define KESD_HOST_VEXO_CLIENT_HEAP_USE_H_

#include <atomic>
#include <chrono>

#include "host/vexo_client/scheduler.h"

namespace vexo_host {

// A large response and its records take megabytes for a moment. By default the allocator returns such blocks to the
// system at once and has every page of the next response zeroed anew, which costs more than filling it. So the heap is
// kept while responses follow one another, and given back when none came for a while. Any thread may call any method.
class HeapUse {
 public:
  explicit HeapUse(Scheduler& someScheduler) : scheduler(someScheduler) {}

  // A response has just been freed.
  void ResponseEnded() noexcept;

 private:
  using TimePoint = Scheduler::Clock::time_point;

  void GiveBackUnlessUsed() noexcept;
  void CheckAt(TimePoint when) noexcept;

  Scheduler& scheduler;
  std::atomic<TimePoint> lastUse;
  std::atomic<bool> checking = false;  // a check is scheduled
};

}  // namespace vexo_host

#endif  // KESD_HOST_VEXO_CLIENT_HEAP_USE_H_
