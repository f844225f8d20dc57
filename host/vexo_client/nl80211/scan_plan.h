// What one scan of the radio looks for, and which requests one scan can serve.
#ifndef KESD_HOST_VEXO_CLIENT_NL80211_SCAN_PLAN_H_
#define KESD_HOST_VEXO_CLIENT_NL80211_SCAN_PLAN_H_

#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "host/vexo_client/discovery_query.h"

namespace vexo_host::nl80211 {

// One scan as the kernel takes it (NL80211_CMD_TRIGGER_SCAN).
struct ScanPlan {
  std::set<uint32_t> frequenciesMhz;
  std::set<std::string> ssids;  // octets, to probe for; the wildcard is empty; none in a passive scan
  // Follow what access points of the lower bands announce in the 6 GHz band, within the frequencies. A driver that does
  // so listens to nothing else there but the preferred scanning channels.
  bool colocated = false;
  uint64_t bssid = 0;  // to probe alone; 0 for all

  bool IsPassive() const { return ssids.empty(); }
};

// Whether everything that `wanted` would hear is heard by `plan`. An active scan stays on a channel for a shorter time
// than a passive one, so neither covers the other.
bool Covers(const ScanPlan& plan, const ScanPlan& wanted);

// Makes `plan` serve `wanted` too. False, with nothing changed, when no single scan of at most `maxSsids` SSIDs can.
// Throws std::bad_alloc.
bool Merge(ScanPlan& plan, const ScanPlan& wanted, size_t maxSsids);

// The scans that `query` takes on a radio of these frequencies, none when none of them is admitted: more than one only
// when it lists more SSIDs than a scan takes. Of the 6 GHz band the preferred scanning channels alone, unless channels
// are listed: on most of the others nobody may send before he has heard somebody, which takes 8 s for all of them.
// Throws std::bad_alloc.
std::vector<ScanPlan> PlansFor(const DiscoveryQuery& query, const std::vector<uint32_t>& radioFrequenciesMhz,
                               size_t maxSsids);

}  // namespace vexo_host::nl80211

#endif  // KESD_HOST_VEXO_CLIENT_NL80211_SCAN_PLAN_H_
