#include "client/option_values.h"

#include <sys/un.h>

#include <charconv>
#include <optional>

#include "client/discovery_request.h"
#include "client/text.h"
#include "host/wifi/channels.h"

namespace kesctl {
namespace {

// Decimal digits and nothing else.
std::optional<uint32_t> ReadDecimal(const std::string& text) {
  uint32_t number = 0;
  const char* end = text.data() + text.size();
  const std::from_chars_result read = std::from_chars(text.data(), end, number);
  if (text.empty() || read.ec != std::errc() || read.ptr != end) return std::nullopt;
  return number;
}

// `what`: what the number counts.
Value<uint32_t> ReadNumber(const std::string& text, const std::string& what, uint32_t least, uint32_t most) {
  const std::optional<uint32_t> number = ReadDecimal(text);
  if (number && *number >= least && *number <= most) return *number;
  return BadValue{"'" + text + "' is not a number of " + what + " from " + std::to_string(least) + " to " +
                  std::to_string(most)};
}

Value<uint32_t> ReadMilliseconds(const std::string& text) {
  return ReadNumber(text, "milliseconds", 1, kMaxMilliseconds);
}

}  // namespace

Value<std::string> ReadSocketPath(const std::string& text) {
  constexpr std::size_t kMaxPath = sizeof sockaddr_un::sun_path - 1;
  if (!text.empty() && text.size() <= kMaxPath) return text;
  return BadValue{"a socket path has 1 to " + std::to_string(kMaxPath) + " bytes, not " + std::to_string(text.size())};
}

Value<wifi::RequestMode> ReadMode(const std::string& text) {
  if (text == "fresh") return wifi::RequestMode::kFresh;
  if (text == "cache") return wifi::RequestMode::kCacheOnly;
  if (text == "fallback") return wifi::RequestMode::kCacheFallback;
  return BadValue{"'" + text + "' is not fresh, cache or fallback"};
}

Value<wifi::Band> ReadBand(const std::string& text) {
  if (text == "2.4") return wifi::Band::k2GHz;
  if (text == "5") return wifi::Band::k5GHz;
  if (text == "all") return wifi::Band::kAll;
  return BadValue{"'" + text + "' is not 2.4, 5 or all"};
}

Value<uint32_t> ReadChannel(const std::string& text) {
  const std::optional<uint32_t> number = ReadDecimal(text);
  if (number) {
    const bool isFrequency = *number >= wifi::kFirstChannelFrequencyMhz;
    if (isFrequency ? wifi::ChannelOfFrequency(*number) != 0 : wifi::FrequencyOfChannel(*number) != 0) return *number;
  }
  return BadValue{"'" + text +
                  "' is not a channel: give 1 to 14, 32 to 177, or the centre frequency in MHz, such as 5955"};
}

Value<std::vector<uint8_t>> ReadSsid(const std::string& text) {
  if (!text.empty() && text.size() <= kes::kMaxSsidOctets) return std::vector<uint8_t>(text.begin(), text.end());
  return BadValue{"an SSID has 1 to 32 bytes, not " + std::to_string(text.size())};
}

Value<kes::MacAddress> ReadBssid(const std::string& text) {
  if (const std::optional<kes::MacAddress> mac = ParseMac(text)) return *mac;
  return BadValue{"'" + text + "' is not a MAC address such as 02:00:5e:10:00:01"};
}

Value<uint32_t> ReadTimeout(const std::string& text) { return ReadMilliseconds(text); }

Value<uint32_t> ReadMaxAge(const std::string& text) { return ReadMilliseconds(text); }

Value<std::string> ReadCapturePath(const std::string& text) {
  if (!text.empty() && text != "-") return text;
  return BadValue{"'" + text + "' is not the name of a file, which a capture needs"};
}

Value<uint32_t> ReadScanInterval(const std::string& text) {
  return ReadNumber(text, "milliseconds", kMinScanIntervalMs, kMaxMilliseconds);
}

Value<uint32_t> ReadScanCount(const std::string& text) { return ReadNumber(text, "scans", 1, kMaxRepeats); }

Value<kes::RangingNode> ReadPeer(const std::string& text) {
  const std::size_t at = text.find('@');
  kes::RangingNode node;
  const Value<kes::MacAddress> mac = ReadBssid(text.substr(0, at));
  if (const auto* bad = std::get_if<BadValue>(&mac)) return *bad;
  node.mac = std::get<kes::MacAddress>(mac);
  if (at == std::string::npos) return node;
  const std::string frequency = text.substr(at + 1);
  const std::optional<uint32_t> number = ReadDecimal(frequency);
  if (!number || wifi::ChannelOfFrequency(*number) == 0) {
    return BadValue{"'" + frequency + "' is not the centre frequency of a channel in MHz, such as 5180"};
  }
  node.parameters.frequencyMhz = static_cast<int32_t>(*number);
  return node;
}

Value<uint32_t> ReadInterval(const std::string& text) {
  return ReadNumber(text, "milliseconds", wifi::kMinRangingIntervalMs, wifi::kMaxRangingIntervalMs);
}

Value<uint32_t> ReadRounds(const std::string& text) { return ReadNumber(text, "rounds", 1, wifi::kMaxRangingRounds); }

Value<uint32_t> ReadRepeat(const std::string& text) { return ReadNumber(text, "requests", 1, kMaxRepeats); }

}  // namespace kesctl
