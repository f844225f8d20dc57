// Which generation of the radio a network uses and how wide its channel is, as its beacon says (IEEE Std 802.11-2020,
// 9.4.2; 802.11ax-2021 and 802.11be for HE and EHT).
#ifndef KESD_HOST_WIFI_PHY_H_
#define KESD_HOST_WIFI_PHY_H_

#include <cstdint>
#include <span>
#include <string_view>

namespace wifi {

// The newest that the network offers; older ones are included.
enum class Phy {
  kUnknown,
  kB,    // 2.4 GHz, DSSS and CCK only
  kG,    // 2.4 GHz, OFDM
  kA,    // 5 GHz, OFDM
  kHt,   // 802.11n
  kVht,  // 802.11ac
  kHe,   // 802.11ax
  kEht,  // 802.11be
};

enum class ChannelWidth { kUnknown, k20, k40, k80, k160, k80Plus80, k320 };

// "b", "g", "a", "HT", "VHT", "HE", "EHT"; "?" when unknown.
std::string_view PhyName(Phy phy);

// In MHz: "20", "40", "80", "160", "80+80", "320"; "?" when unknown.
std::string_view WidthName(ChannelWidth width);

// `elements`: those of the beacon, back to back. `frequencyMhz` tells the band; 0 if unknown.
Phy PhyOf(std::span<const uint8_t> elements, uint32_t frequencyMhz);

ChannelWidth ChannelWidthOf(std::span<const uint8_t> elements, uint32_t frequencyMhz);

}  // namespace wifi

#endif  // KESD_HOST_WIFI_PHY_H_
