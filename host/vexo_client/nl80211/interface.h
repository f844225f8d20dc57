// A radio's interface: what it is, and why it cannot scan.
#ifndef KESD_HOST_VEXO_CLIENT_NL80211_INTERFACE_H_
#define KESD_HOST_VEXO_CLIENT_NL80211_INTERFACE_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/vexo_client/nl80211/netlink.h"
#include "host/vexo_client/nl80211/peer_measurement.h"
#include "host/wifi/measurement_values.h"

namespace vexo_host::nl80211 {

struct Interface {
  uint32_t index = 0;
  uint32_t wiphy = 0;
  size_t maxScanSsids = 1;
  std::vector<uint32_t> frequenciesMhz;  // that the radio may listen on now
  std::optional<FtmCapabilities> ftm;    // none: it cannot measure distances
};

// Takes what one message of the radio's description says; its description comes in many. Throws std::bad_alloc.
void ReadWiphy(const Attributes& attributes, Interface& interface);

// The index of the network interface; 0, which none has, when there is none, with errno. Takes no descriptor of its
// own.
uint32_t IndexOf(const std::string& name, const Netlink& netlink);

// Looks the interface up by its name, anew each time: it may have gone and come back as another one. kOk, or why it
// cannot serve. Throws std::bad_alloc. FindInterface sets its index and its radio's number alone.
wifi::ScanStatus FindInterface(const std::string& name, Netlink& netlink, Interface& interface);
wifi::ScanStatus LookUp(const std::string& name, Netlink& netlink, Interface& interface);

// kOk while the interface that had `index` is there and up, else why it no longer serves.
wifi::ScanStatus StateOf(const std::string& name, const Netlink& netlink, uint32_t index) noexcept;

// What the kernel's refusal of a command on the interface means to a client.
wifi::ScanStatus StatusOf(int error, const std::string& name) noexcept;

}  // namespace vexo_host::nl80211

#endif  // KESD_HOST_VEXO_CLIENT_NL80211_INTERFACE_H_
