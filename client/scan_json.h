// A discovery result as JSON for programs.
#ifndef KESD_CLIENT_SCAN_JSON_H_
#define KESD_CLIENT_SCAN_JSON_H_

#include <string>

#include "client/discovery_result.h"

namespace kesctl {

// One line with one object, in ASCII: whatever else an SSID holds is written as \u escapes.
//   {"scan_status": N, "measurements": [M...]}, in the order of delivery, where each M has
//   "bssid": "aa:bb:cc:dd:ee:ff"
//   "ssid": text, or null when it is not UTF-8 or the network hides it
//   "ssid_hex": its octets; "ssid_valid": whether the measurement has an SSID, perhaps an empty one
//   "frequency_mhz", "channel": of the primary channel; 0 when unknown
//   "signal_dbm": number, or null when unknown
//   "age_ms"; "beacon_interval_tu", in units of 1024 us; "capability", the Capability Information field
//   "security", "phy": as in the table
//   "elements": [{"id": N, "hex": payload}...], as delivered
//   "incomplete": true, only when the daemon delivered less than the measurement refers to
std::string ScanJson(const kes::DiscoveryResult& result);

}  // namespace kesctl

#endif  // KESD_CLIENT_SCAN_JSON_H_
