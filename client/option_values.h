// The values of kesctl's options. Each function reads one value whole or says in a sentence why not.
#ifndef KESD_CLIENT_OPTION_VALUES_H_
#define KESD_CLIENT_OPTION_VALUES_H_

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include "client/mac_address.h"
#include "client/ranging_request.h"
#include "host/wifi/discovery_parameters.h"

namespace kesctl {

struct BadValue {
  std::string why;
};

template <typename T>
using Value = std::variant<T, BadValue>;

// The longest that a request or an age may be given: one day, in milliseconds.
inline constexpr uint32_t kMaxMilliseconds = 86'400'000;

// A radio that scans more often has no time left for anything else.
inline constexpr uint32_t kMinScanIntervalMs = 500;

inline constexpr uint32_t kMaxRepeats = 1'000'000;

Value<std::string> ReadSocketPath(const std::string& text);     // 1 to 107 bytes
Value<wifi::RequestMode> ReadMode(const std::string& text);     // fresh, cache, fallback
Value<wifi::Band> ReadBand(const std::string& text);            // 2.4, 5, all
Value<uint32_t> ReadChannel(const std::string& text);           // a channel number, or a centre frequency in MHz
Value<std::vector<uint8_t>> ReadSsid(const std::string& text);  // 1 to 32 octets
Value<kes::MacAddress> ReadBssid(const std::string& text);
Value<uint32_t> ReadTimeout(const std::string& text);         // ms, 1 to kMaxMilliseconds
Value<uint32_t> ReadMaxAge(const std::string& text);          // ms, 1 to kMaxMilliseconds
Value<std::string> ReadCapturePath(const std::string& text);  // of a file; "-" is none

// Of watching.
Value<uint32_t> ReadScanInterval(const std::string& text);  // ms, kMinScanIntervalMs to kMaxMilliseconds
Value<uint32_t> ReadScanCount(const std::string& text);     // 1 to kMaxRepeats

// Of ranging.
Value<kes::RangingNode> ReadPeer(const std::string& text);  // MAC, or MAC@FREQ with a channel's centre in MHz
Value<uint32_t> ReadInterval(const std::string& text);      // ms, as the library keeps it
Value<uint32_t> ReadRounds(const std::string& text);        // 1 to wifi::kMaxRangingRounds
Value<uint32_t> ReadRepeat(const std::string& text);        // 1 to kMaxRepeats

}  // namespace kesctl

#endif  // KESD_CLIENT_OPTION_VALUES_H_
