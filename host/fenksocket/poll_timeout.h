// A deadline as poll takes it.
#ifndef KESD_HOST_FENKSOCKET_POLL_TIMEOUT_H_
#define KESD_HOST_FENKSOCKET_POLL_TIMEOUT_H_

#include <algorithm>
#include <chrono>
#include <limits>
#include <optional>

namespace fenk {

// Milliseconds until `deadline`, rounded up so that a wait never ends just before it; -1, for ever, without one.
inline int PollTimeout(std::optional<std::chrono::steady_clock::time_point> deadline) {
  if (!deadline) return -1;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(*deadline - std::chrono::steady_clock::now()).count();
  return static_cast<int>(std::clamp<int64_t>(left, 0, std::numeric_limits<int>::max()));
}

}  // namespace fenk

#endif  // KESD_HOST_FENKSOCKET_POLL_TIMEOUT_H_
