// Wakes one thread.
#ifndef KESD_HOST_EVENT_EVENT_H_
#define KESD_HOST_EVENT_EVENT_H_

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <optional>

// Set once for each Wait. One thread waits, any thread sets. A condition variable does the same with a mutex, which the
// woken thread has to take and, in glibc, always leaves with a second system call.
class Event {
 public:
  using Deadline = std::optional<std::chrono::steady_clock::time_point>;

  // Ends the wait, or the next one. What came before is seen by the thread that waited.
  void Set() {
    if (state.exchange(kSet, std::memory_order_acq_rel) == kAwaited) Futex(FUTEX_WAKE_PRIVATE, 1, nullptr);
  }

  // Waits until it is set, which it then is not any more. False when the deadline passed first.
  bool Wait(Deadline deadline = std::nullopt) {
    for (;;) {
      uint32_t seen = kSet;
      if (state.compare_exchange_strong(seen, kUnset, std::memory_order_acquire)) return true;
      if (seen == kUnset && !state.compare_exchange_strong(seen, kAwaited)) continue;
      if (Sleep(deadline)) continue;
      // It may have been set at the last moment.
      return state.exchange(kUnset, std::memory_order_acquire) == kSet;
    }
  }

 private:
  enum State : uint32_t { kUnset, kSet, kAwaited };

  // While it is kAwaited. False when the deadline has passed.
  bool Sleep(Deadline deadline) {
    if (!deadline) {
      Futex(FUTEX_WAIT_BITSET_PRIVATE, kAwaited, nullptr);
      return true;
    }
    const auto sinceBoot = deadline->time_since_epoch();  // of the monotonic clock
    const auto seconds = std::chrono::floor<std::chrono::seconds>(sinceBoot);
    const timespec when{seconds.count(), std::chrono::nanoseconds(sinceBoot - seconds).count()};
    return Futex(FUTEX_WAIT_BITSET_PRIVATE, kAwaited, &when) == 0 || errno != ETIMEDOUT;
  }

  long Futex(int operation, uint32_t value, const timespec* until) {
    return syscall(SYS_futex, &state, operation, value, until, nullptr, FUTEX_BITSET_MATCH_ANY);
  }

  static_assert(sizeof(std::atomic<uint32_t>) == sizeof(uint32_t) && std::atomic<uint32_t>::is_always_lock_free);
  std::atomic<uint32_t> state = kUnset;
};

#endif  // KESD_HOST_EVENT_EVENT_H_
