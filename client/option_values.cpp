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

Value<uint32_t> ReadMilliseconds(const std::string& text) {
  const std::optional<uint32_t> number = ReadDecimal(text);
  if (number && *number >= 1 && *number <= kMaxMilliseconds) return *number;
  return BadValue{"'" + text + "' is not a number of milliseconds from 1 to " + std::to_string(kMaxMilliseconds)};
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

}  // namespace kesctl
