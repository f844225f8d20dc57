// The headers that a capturing radio puts before a frame.
#ifndef KESD_HOST_VEXO_CLIENT_CAPTURE_RADIO_HEADER_H_
#define KESD_HOST_VEXO_CLIENT_CAPTURE_RADIO_HEADER_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "host/wifi/measurement_values.h"

namespace vexo_host {

struct RadioHeader {
  size_t length = 0;                         // octets; the frame begins behind them
  bool badFcs = false;                       // the radio saw that the frame check sequence is wrong
  bool fcsAtEnd = false;                     // the frame's last 4 octets are its frame check sequence
  uint32_t frequencyMhz = 0;                 // centre of the channel the radio listened to; 0 if unknown
  int32_t signalMbm = wifi::kSignalUnknown;  // 1/100 dBm

  bool operator==(const RadioHeader&) const = default;
};

// Both take a packet as captured and give nothing when no frame can be found in it: the header is cut short, claims
// more octets than there are, or is of an unknown version. A field that does not fit into its header is left out.

// Radiotap (radiotap.org). Of several antennas' signals the first counts.
std::optional<RadioHeader> ReadRadiotap(std::span<const uint8_t> packet);

// The two headers that share the Prism link type: Prism itself, in either byte order, and AVS.
std::optional<RadioHeader> ReadPrism(std::span<const uint8_t> packet);

}  // namespace vexo_host

#endif  // KESD_HOST_VEXO_CLIENT_CAPTURE_RADIO_HEADER_H_
