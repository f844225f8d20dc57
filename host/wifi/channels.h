// Channel numbers and centre frequencies (IEEE Std 802.11-2020, 17.3.8.4 and Annex E; 6 GHz: 802.11ax-2021).
#ifndef KESD_HOST_WIFI_CHANNELS_H_
#define KESD_HOST_WIFI_CHANNELS_H_

#include <cstdint>

namespace wifi {

// Centre frequency in MHz of a 20 MHz channel of the 2.4 GHz (1 to 14) or 5 GHz band (32 to 177); 0 if there is
// no such channel.
constexpr uint32_t FrequencyOfChannel(uint32_t channel) {
  if (channel >= 1 && channel <= 13) return 2407 + 5 * channel;
  if (channel == 14) return 2484;
  if (channel >= 32 && channel <= 177) return 5000 + 5 * channel;
  return 0;
}

constexpr bool Is2GHz(uint32_t frequencyMhz) { return frequencyMhz >= 2401 && frequencyMhz <= 2495; }
constexpr bool Is5GHz(uint32_t frequencyMhz) { return frequencyMhz >= 5150 && frequencyMhz <= 5895; }
constexpr bool Is6GHz(uint32_t frequencyMhz) { return frequencyMhz >= 5925 && frequencyMhz <= 7125; }

// Channel number of a centre frequency in the 2.4, 5 or 6 GHz band; 0 if no channel has that centre.
constexpr uint32_t ChannelOfFrequency(uint32_t frequencyMhz) {
  if (frequencyMhz == 2484) return 14;
  if (frequencyMhz >= 2412 && frequencyMhz <= 2472 && (frequencyMhz - 2407) % 5 == 0) return (frequencyMhz - 2407) / 5;
  if (frequencyMhz >= 5160 && frequencyMhz <= 5885 && frequencyMhz % 5 == 0) return (frequencyMhz - 5000) / 5;
  if (frequencyMhz == 5935) return 2;  // the one 6 GHz channel off the raster
  if (frequencyMhz >= 5955 && frequencyMhz <= 7115 && (frequencyMhz - 5950) % 5 == 0) return (frequencyMhz - 5950) / 5;
  return 0;
}

// Whether an access point of the 6 GHz band that is not announced on another band is to be found here (IEEE Std
// 802.11ax-2021, 26.17.2.3.3).
constexpr bool IsPreferredScanningChannel(uint32_t frequencyMhz) {
  return Is6GHz(frequencyMhz) && frequencyMhz >= 5975 && (frequencyMhz - 5975) % 80 == 0;
}

static_assert(FrequencyOfChannel(6) == 2437 && FrequencyOfChannel(36) == 5180 && FrequencyOfChannel(15) == 0);
static_assert(ChannelOfFrequency(2437) == 6 && ChannelOfFrequency(5885) == 177 && ChannelOfFrequency(5955) == 1);
static_assert(IsPreferredScanningChannel(5975) && IsPreferredScanningChannel(7095) &&
              !IsPreferredScanningChannel(5955));

}  // namespace wifi

#endif  // KESD_HOST_WIFI_CHANNELS_H_
