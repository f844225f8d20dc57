// How wide channels lie over the 20 MHz ones (IEEE Std 802.11-2020, Annex E; 6 GHz: 802.11ax-2021, 320 MHz: 802.11be).
#ifndef KESD_HOST_WIFI_CHANNEL_LAYOUT_H_
#define KESD_HOST_WIFI_CHANNEL_LAYOUT_H_

#include <cstdint>

#include "host/wifi/channels.h"

namespace wifi {

// Channel numbers. The centres are those of the 80, 160 and 320 MHz channels that hold the primary one.
struct ChannelLayout {
  uint32_t primaryChannel;
  bool secondaryAbove;  // where the second half of the 40 MHz channel lies
  uint32_t centre80, centre160, centre320;
};

constexpr ChannelLayout LayoutOf(uint32_t frequencyMhz) {
  const uint32_t channel = ChannelOfFrequency(frequencyMhz);
  if (Is2GHz(frequencyMhz)) return {channel, channel <= 7, 0, 0, 0};
  uint32_t first = 36;
  if (Is6GHz(frequencyMhz)) {
    first = 1;
  } else if (channel >= 149) {
    first = 149;
  } else if (channel >= 100) {
    first = 100;
  }
  const uint32_t index = (channel - first) / 4;  // of the 20 MHz channel
  const auto centre = [&](uint32_t channels) { return first + 4 * (index - index % channels) + 2 * (channels - 1); };
  return {channel, index % 2 == 0, centre(4), centre(8), centre(16)};
}

static_assert(LayoutOf(5220).centre80 == 42 && LayoutOf(5500).centre160 == 114 && LayoutOf(6135).centre320 == 31);

}  // namespace wifi

#endif  // KESD_HOST_WIFI_CHANNEL_LAYOUT_H_
