// What the parameters of a ranging request mean to the host's location client library. The daemon passes them on
// unread, apart from mapping numbers out of range.
#ifndef KESD_HOST_WIFI_RANGING_PARAMETERS_H_
#define KESD_HOST_WIFI_RANGING_PARAMETERS_H_

#include <cstdint>

namespace wifi {

// `ts`: milliseconds until the request, or each round of a periodic one, is answered with what there is; 0 and below
// stand for this.
inline constexpr int64_t kDefaultRangingTimeoutMs = 10'000;

// `value5` of a periodic node: milliseconds from the start of one round to the start of the next. The nodes of a
// request are measured together, at the shortest interval among them, kept between these two.
inline constexpr int32_t kMinRangingIntervalMs = 100;
inline constexpr int32_t kMaxRangingIntervalMs = 3'600'000;

// `value6` of a periodic node: the number of rounds, the largest among the nodes, kept between 1 and this. Nobody can
// call a periodic request off, so it has an end.
inline constexpr int32_t kMaxRangingRounds = 1'000;

}  // namespace wifi

#endif  // KESD_HOST_WIFI_RANGING_PARAMETERS_H_
