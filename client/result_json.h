// Results as JSON for programs: one line with one object, in ASCII.
#ifndef KESD_CLIENT_RESULT_JSON_H_
#define KESD_CLIENT_RESULT_JSON_H_

#include <string>

#include "client/discovery_result.h"
#include "client/ranging_result.h"

namespace kesctl {

// Whatever an SSID holds beside ASCII is written as \u escapes.
//   {"scan_status": N, "source": S, "measurements": [M...]}, in the order of delivery, where S is what the daemon
//   measures with: "scene", "capture", "radio", "unknown" or the digits of a number without a name; and each M has
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

//   {"scan_status": N, "measurements": [M...]}, in the order of delivery, where each M has
//   "bssid": the peer, "aa:bb:cc:dd:ee:ff"
//   "status": "success", "no-response"...; "unknown(N)" when the number has no name
//   "distance_m", "distance_std_m": its standard deviation, "rtt_ps": numbers, or null unless the status is "success"
//   "signal_dbm": number, or null when unknown
//   "peers": [MAC address...], as delivered
//   "incomplete": true, only when the daemon delivered less than the measurement refers to
std::string RangeJson(const kes::RangingResult& result);

}  // namespace kesctl

#endif  // KESD_CLIENT_RESULT_JSON_H_
