#include "host/vexo_client/nl80211/scan_results.h"

#include <cerrno>
#include <new>
#include <optional>
#include <utility>

#include "host/vexo_client/nl80211/bss_entry.h"

namespace vexo_host::nl80211 {
namespace {

constexpr int kMaxDumps = 10;

}  // namespace

int ReadScanResults(Netlink& netlink, uint32_t interface, std::chrono::steady_clock::time_point oldest,
                    std::vector<Bss>& found) try {
  for (int dump = 0; dump < kMaxDumps; ++dump) {
    found.clear();
    Message message = netlink.New(NL80211_CMD_GET_SCAN, NLM_F_DUMP);
    if (nla_put_u32(message.get(), NL80211_ATTR_IFINDEX, interface) != 0) return ENOMEM;
    bool outOfMemory = false;
    const Instant now = Instant::Now();
    const int error = netlink.Ask(std::move(message), [&](uint8_t, const Attributes& attributes) {
      try {
        std::optional<Bss> bss = ReadBssEntry(attributes[NL80211_ATTR_BSS], now);
        if (bss && bss->takenAt >= oldest) found.push_back(std::move(*bss));
      } catch (const std::bad_alloc&) {
        outOfMemory = true;
      }
    });
    if (outOfMemory) return ENOMEM;
    if (error == EAGAIN) continue;
    if (error == 0) MergeHidden(found);
    return error;
  }
  return EAGAIN;
} catch (const std::bad_alloc&) {
  return ENOMEM;
}

}  // namespace vexo_host::nl80211
