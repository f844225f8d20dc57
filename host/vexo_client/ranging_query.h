// What a ranging request asks of a source, and what the source found.
#ifndef KESD_HOST_VEXO_CLIENT_RANGING_QUERY_H_
#define KESD_HOST_VEXO_CLIENT_RANGING_QUERY_H_

#include <chrono>
#include <cstdint>
#include <vector>

#include "host/wifi/measurement_values.h"
#include "host/wifi/ranging_values.h"
#include "platform/vexo_types.h"

namespace vexo_host {

struct RangingQuery {
  std::vector<zv_loc_fw::VEXONodeInfo> nodes;
  std::chrono::milliseconds timeout{0};  // after which nobody waits for the result any more
};

// How the measurement of one node went.
struct RangedPeer {
  uint32_t frequencyMhz = 0;                      // centre of its primary channel; 0 if unknown
  int32_t signalMbm = wifi::kSignalUnknown;       // as a scan hears it, 1/100 dBm
  std::chrono::steady_clock::time_point takenAt;  // when it was measured; age counts from here
  wifi::RangingValues values;
};

}  // namespace vexo_host

#endif  // KESD_HOST_VEXO_CLIENT_RANGING_QUERY_H_
