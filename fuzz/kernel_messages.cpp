// What the kernel says of its radios: any attributes behind the headers of a message, several messages an input.
#include "fuzz/input.h"
#include "host/vexo_client/nl80211/bss_entry.h"
#include "host/vexo_client/nl80211/interface.h"
#include "host/vexo_client/nl80211/netlink.h"
#include "host/vexo_client/nl80211/peer_measurement.h"
#include "host/wifi/information_elements.h"

namespace {

using namespace vexo_host;
using namespace vexo_host::nl80211;
using fuzz::Input;
using fuzz::Require;

void CheckBss(const Bss& bss) {
  Require(bss.bssid >> 48 == 0, "a BSSID has 48 bits");
  Require(!bss.ssid || bss.ssid->size() <= 32, "an SSID has at most 32 octets");
  wifi::ElementReader reader(bss.elements);
  while (reader.Next()) continue;
  Require(reader.Rest().empty(), "only whole elements are taken");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  Input input(data, size);
  std::vector<Bss> found;
  Interface interface;
  const Instant now{std::chrono::steady_clock::time_point(std::chrono::hours(1)), std::chrono::hours(1)};
  wifi::RangingValues sum;
  while (!input.AtEnd()) {
    const std::size_t length = input.Take<uint16_t>() % 600;
    std::vector<uint8_t> message(NLMSG_HDRLEN);
    const std::vector<uint8_t> content = input.Bytes(length);
    message.insert(message.end(), content.begin(), content.end());
    auto& header = *reinterpret_cast<nlmsghdr*>(message.data());
    header.nlmsg_len = static_cast<uint32_t>(message.size());
    uint8_t command = 0;
    Attributes attributes;
    if (!ReadAttributes(header, command, attributes)) continue;
    ReadWiphy(attributes, interface);
    ReadFtmResults(attributes[NL80211_ATTR_PEER_MEASUREMENTS], [&](const FtmResult& result) {
      Require(result.address >> 48 == 0, "an address has 48 bits");
      AddBurst(sum, result.values);
    });
    if (auto bss = ReadBssEntry(attributes[NL80211_ATTR_BSS], now)) {
      CheckBss(*bss);
      found.push_back(std::move(*bss));
    }
  }
  if (interface.ftm) Require(interface.ftm->maxPeers - 1 < kMaxPeersAtOnce, "some peers are measured at once");
  const std::size_t before = found.size();
  MergeHidden(found);
  Require(found.empty() == (before == 0), "merging leaves something");
  return 0;
}
