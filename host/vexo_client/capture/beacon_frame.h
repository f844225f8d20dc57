// Beacons and probe responses (IEEE Std 802.11-2020, 9.3.3.2 and 9.3.3.10) among the frames of a capture.
#ifndef KESD_HOST_VEXO_CLIENT_CAPTURE_BEACON_FRAME_H_
#define KESD_HOST_VEXO_CLIENT_CAPTURE_BEACON_FRAME_H_

#include <cstdint>
#include <span>

#include "host/vexo_client/bss.h"

namespace vexo_host {

enum class FrameKind {
  kOther,            // neither a beacon nor a probe response
  kTooShort,         // not even a frame control field, or one of the two that ends before its fixed fields do
  kWhole,            // read
  kOverrunElements,  // read; an element that overruns the frame ended its element list
};

// Reads `frame`, which begins with its frame control field and ends before its frame check sequence, into `bss`, all
// but signalMbm and takenAt. `bss` is changed only when the frame was read.
// `radioFrequencyMhz` is the channel the radio listened to, 0 if unknown: neighbouring channels are heard as well, so
// it only counts where no element names the channel.
FrameKind ReadBeacon(std::span<const uint8_t> frame, uint32_t radioFrequencyMhz, Bss& bss);

}  // namespace vexo_host

#endif  // KESD_HOST_VEXO_CLIENT_CAPTURE_BEACON_FRAME_H_
