// A basic service set as a measurement source heard it.
#ifndef KESD_HOST_VEXO_CLIENT_BSS_H_
#define KESD_HOST_VEXO_CLIENT_BSS_H_

#include <chrono>
#include <cstdint>
#include <optional>
#include <vector>

#include "host/wifi/measurement_values.h"

namespace vexo_host {

struct Bss {
  uint64_t bssid = 0;                        // 48 bits, the first octet on the air is the most significant
  std::optional<std::vector<uint8_t>> ssid;  // octets, at most 32; nothing when the frame had no SSID element
  uint32_t frequencyMhz = 0;                 // centre of the primary channel; 0 if unknown
  int32_t signalMbm = wifi::kSignalUnknown;  // 1/100 dBm
  uint64_t timestampUs = 0;                  // Timestamp field of the frame
  uint16_t beaconIntervalTu = 0;
  uint16_t capability = 0;
  std::vector<uint8_t> elements;                  // whole information elements only, in frame order, SSID included
  std::chrono::steady_clock::time_point takenAt;  // when it was measured; age counts from here
};

}  // namespace vexo_host

#endif  // KESD_HOST_VEXO_CLIENT_BSS_H_
