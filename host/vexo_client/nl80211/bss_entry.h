// An entry of the kernel's list of scan results (NL80211_ATTR_BSS).
#ifndef KESD_HOST_VEXO_CLIENT_NL80211_BSS_ENTRY_H_
#define KESD_HOST_VEXO_CLIENT_NL80211_BSS_ENTRY_H_

#include <netlink/attr.h>

#include <chrono>
#include <optional>
#include <vector>

#include "host/vexo_client/bss.h"

namespace vexo_host::nl80211 {

// When ages are counted back from.
struct Instant {
  std::chrono::steady_clock::time_point steady;
  std::chrono::nanoseconds sinceBoot;  // CLOCK_BOOTTIME
  static Instant Now();
};

// The entry in `nest` as it was at `now`; nothing when it is malformed or has no BSSID. `takenAt` comes from the
// driver's boot time where it gives one, else from the kernel's age in milliseconds. Throws std::bad_alloc.
std::optional<Bss> ReadBssEntry(nlattr* nest, const Instant& now);

// Makes one of the entries that a hidden network has once it has answered: one from its beacon, without a name, and one
// from its probe response. Keeps the order. Throws std::bad_alloc.
void MergeHidden(std::vector<Bss>& found);

}  // namespace vexo_host::nl80211

#endif  // KESD_HOST_VEXO_CLIENT_NL80211_BSS_ENTRY_H_
