// What the parameters of a discovery request mean to the host's location client library. The daemon passes
// them on unread, apart from mapping numbers out of range.
#ifndef KESD_HOST_WIFI_DISCOVERY_PARAMETERS_H_
#define KESD_HOST_WIFI_DISCOVERY_PARAMETERS_H_

#include <cstdint>

namespace wifi {

// `band`: which channels a request without a channel list covers.
enum class Band : uint32_t { k2GHz = 0, k5GHz = 1, kAll = 2 };

// `scan_type`. A passive scan only listens: a hidden network's SSID stays hidden. An active one also probes
// for the SSIDs that the request lists.
enum class ScanType : uint32_t { kActive = 0, kPassive = 1 };

// `mode`, as a client writes it. The two fresh modes are the same to this library.
enum class RequestMode : uint32_t { kFresh = 0, kFreshAlternate = 1, kCacheOnly = 2, kCacheFallback = 3 };

// A channel list entry below this is a channel number of the 2.4 GHz (1 to 14) or 5 GHz band (32 to 177);
// from here on it is the frequency of a channel's centre in MHz, which also names 6 GHz channels.
inline constexpr uint32_t kFirstChannelFrequencyMhz = 1000;

// `timeout`: milliseconds until the request is answered with what there is; 0 and below stand for this.
inline constexpr int64_t kDefaultTimeoutMs = 10'000;

// `age_filter`: a cached measurement that is older, in milliseconds, does not count; 0 admits every age.
// `fallback_param`: a cache-with-fallback request scans when the cache holds fewer measurements than this that
// pass the filters; 0 counts as 1.
// `cache_flag` and `fresh_flag` make no difference to this library.

}  // namespace wifi

#endif  // KESD_HOST_WIFI_DISCOVERY_PARAMETERS_H_
