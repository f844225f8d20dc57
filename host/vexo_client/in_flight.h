// What every request needs between being accepted and being answered.
#ifndef KESD_HOST_VEXO_CLIENT_IN_FLIGHT_H_
#define KESD_HOST_VEXO_CLIENT_IN_FLIGHT_H_

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <optional>
#include <utility>

#include "host/vexo_client/scheduler.h"

namespace vexo_host {

// Some of a limited number of places, given back at the end.
class Place {
 public:
  // Takes `someAmount` of `most` places, of which `taken` are; nothing when there are not so many left.
  Place(std::atomic<uint32_t>& someTaken, uint32_t someAmount, uint32_t most) : taken(&someTaken), amount(someAmount) {
    if (amount > most || taken->fetch_add(amount) > most - amount) Leave();
  }
  Place(Place&& other) noexcept : taken(std::exchange(other.taken, nullptr)), amount(other.amount) {}
  Place& operator=(Place&&) = delete;
  ~Place() { Leave(); }

  bool IsTaken() const { return taken != nullptr; }

 private:
  void Leave() {
    if (taken != nullptr) std::exchange(taken, nullptr)->fetch_sub(amount);
  }

  std::atomic<uint32_t>* taken;
  const uint32_t amount;
};

// The one answer to a request or to a round of a periodic one.
struct Answer {
  std::atomic<bool> given = false;
  std::optional<Scheduler::TaskId> timeout;  // set before the source is asked

  bool Claim() { return !given.exchange(true); }
};

// `askedMs`, at most a day, which keeps sums of times far from overflow; `standardMs` where it is 0 or below.
inline std::chrono::milliseconds BoundedTimeout(int64_t askedMs, int64_t standardMs) {
  constexpr int64_t kLongestMs = 86'400'000;
  return std::chrono::milliseconds(askedMs <= 0 ? standardMs : std::min(askedMs, kLongestMs));
}

}  // namespace vexo_host

#endif  // KESD_HOST_VEXO_CLIENT_IN_FLIGHT_H_
