// The kernel's list of what its scans heard.
#ifndef KESD_HOST_VEXO_CLIENT_NL80211_SCAN_RESULTS_H_
#define KESD_HOST_VEXO_CLIENT_NL80211_SCAN_RESULTS_H_

#include <chrono>
#include <cstdint>
#include <vector>

#include "host/vexo_client/bss.h"
#include "host/vexo_client/nl80211/netlink.h"

namespace vexo_host::nl80211 {

// Reads what was heard on the interface's radio at `oldest` and later into `found`. 0, or an errno.
int ReadScanResults(Netlink& netlink, uint32_t interface, std::chrono::steady_clock::time_point oldest,
                    std::vector<Bss>& found);

}  // namespace vexo_host::nl80211

#endif  // KESD_HOST_VEXO_CLIENT_NL80211_SCAN_RESULTS_H_
