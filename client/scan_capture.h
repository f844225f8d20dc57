// A discovery result as a capture: each measurement put back into the frame that it was taken from.
#ifndef KESD_CLIENT_SCAN_CAPTURE_H_
#define KESD_CLIENT_SCAN_CAPTURE_H_

#include <string>

#include "client/discovery_result.h"

namespace kesctl {

// A pcap file of link type 127 (radiotap), with a packet for each measurement, from the oldest to the latest. It was
// captured when the measurement was taken, and holds what the measurement tells: the channel, the signal in whole dBm,
// the BSSID, the fixed fields and the elements as they were on the air. A frame is a probe response where an access
// point's elements lack the traffic indication map that each of its beacons has, else a beacon. Who received it is not
// known, so the receiver is the broadcast address. Throws std::bad_alloc.
std::string ScanCapture(const kes::DiscoveryResult& result);

}  // namespace kesctl

#endif  // KESD_CLIENT_SCAN_CAPTURE_H_
