#include "host/vexo_client/nl80211/bss_entry.h"

#include <linux/nl80211.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <set>
#include <span>
#include <utility>

#include "host/wifi/information_elements.h"

namespace vexo_host::nl80211 {
namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;

constexpr size_t kAddressSize = 6;

// The octets of whole elements at the beginning of `attribute`.
std::span<const uint8_t> WholeElements(const nlattr* attribute) {
  if (attribute == nullptr) return {};
  const std::span<const uint8_t> all(static_cast<const uint8_t*>(nla_data(attribute)),
                                     static_cast<size_t>(nla_len(attribute)));
  wifi::ElementReader reader(all);
  while (reader.Next()) continue;
  return all.first(all.size() - reader.Rest().size());
}

// A hidden network's beacon has no octets for a name, or zeros.
bool HasName(const Bss& bss) {
  return bss.ssid && std::any_of(bss.ssid->begin(), bss.ssid->end(), [](uint8_t octet) { return octet != 0; });
}

}  // namespace

Instant Instant::Now() {
  timespec sinceBoot{};
  clock_gettime(CLOCK_BOOTTIME, &sinceBoot);
  return {std::chrono::steady_clock::now(), std::chrono::seconds(sinceBoot.tv_sec) + nanoseconds(sinceBoot.tv_nsec)};
}

std::optional<Bss> ReadBssEntry(nlattr* nest, const Instant& now) {
  std::array<nla_policy, NL80211_BSS_MAX + 1> policy{};
  policy[NL80211_BSS_FREQUENCY].type = NLA_U32;
  policy[NL80211_BSS_TSF].type = NLA_U64;
  policy[NL80211_BSS_BEACON_INTERVAL].type = NLA_U16;
  policy[NL80211_BSS_CAPABILITY].type = NLA_U16;
  policy[NL80211_BSS_SIGNAL_MBM].type = NLA_U32;
  policy[NL80211_BSS_SEEN_MS_AGO].type = NLA_U32;
  policy[NL80211_BSS_LAST_SEEN_BOOTTIME].type = NLA_U64;
  std::array<nlattr*, NL80211_BSS_MAX + 1> attributes{};
  if (nest == nullptr || nla_parse_nested(attributes.data(), NL80211_BSS_MAX, nest, policy.data()) != 0) return {};
  const nlattr* const address = attributes[NL80211_BSS_BSSID];
  if (address == nullptr || nla_len(address) != static_cast<int>(kAddressSize)) return {};

  Bss bss;
  const auto* const octets = static_cast<const uint8_t*>(nla_data(address));
  for (size_t i = 0; i < kAddressSize; ++i) bss.bssid = bss.bssid << 8 | octets[i];
  const auto has = [&](int type) { return attributes[static_cast<size_t>(type)]; };
  if (nlattr* const value = has(NL80211_BSS_FREQUENCY)) bss.frequencyMhz = nla_get_u32(value);
  if (nlattr* const value = has(NL80211_BSS_SIGNAL_MBM)) bss.signalMbm = static_cast<int32_t>(nla_get_u32(value));
  if (nlattr* const value = has(NL80211_BSS_TSF)) bss.timestampUs = nla_get_u64(value);
  if (nlattr* const value = has(NL80211_BSS_BEACON_INTERVAL)) bss.beaconIntervalTu = nla_get_u16(value);
  if (nlattr* const value = has(NL80211_BSS_CAPABILITY)) bss.capability = nla_get_u16(value);

  nanoseconds age{0};
  if (nlattr* const value = has(NL80211_BSS_SEEN_MS_AGO)) age = milliseconds(nla_get_u32(value));
  if (nlattr* const value = has(NL80211_BSS_LAST_SEEN_BOOTTIME)) {
    const uint64_t seen = nla_get_u64(value);
    const auto sinceBoot = static_cast<uint64_t>(now.sinceBoot.count());
    age = nanoseconds(seen < sinceBoot ? sinceBoot - seen : 0);
  }
  bss.takenAt = now.steady - std::chrono::duration_cast<std::chrono::steady_clock::duration>(age);

  // The probe response's elements where one was received, else the beacon's.
  const nlattr* const received = has(NL80211_BSS_INFORMATION_ELEMENTS);
  const std::span<const uint8_t> elements = WholeElements(received ? received : has(NL80211_BSS_BEACON_IES));
  bss.elements.assign(elements.begin(), elements.end());
  const auto name = wifi::FindElement(bss.elements, wifi::kElementSsid);
  if (name && name->payload.size() <= 32) bss.ssid.emplace(name->payload.begin(), name->payload.end());
  return bss;
}

void MergeHidden(std::vector<Bss>& found) {
  using Place = std::pair<uint64_t, uint32_t>;
  std::set<Place> named;
  for (const Bss& bss : found) {
    if (HasName(bss)) named.insert({bss.bssid, bss.frequencyMhz});
  }
  std::erase_if(found, [&](const Bss& bss) {
    return !HasName(bss) && named.count({bss.bssid, bss.frequencyMhz}) != 0;
  });
}

}  // namespace vexo_host::nl80211
