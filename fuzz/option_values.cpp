// The values of kesctl's options: what is taken is what was written, and of the rest somebody says why not.
#include "client/option_values.h"

#include "client/text.h"
#include "fuzz/input.h"
#include "host/wifi/channels.h"

namespace {

using fuzz::Require;

template <typename T, typename Check>
void Try(const kesctl::Value<T>& value, const Check& check) {
  if (const T* taken = std::get_if<T>(&value)) return Require(check(*taken), "a value that was written");
  Require(!std::get<kesctl::BadValue>(value).why.empty(), "why not");
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  // As a number: leading zeros are all that a text may have beside it.
  const auto isNumber = [&](uint32_t least, uint32_t most) {
    return [&, least, most](uint32_t number) {
      const std::string digits = std::to_string(number);
      return number >= least && number <= most && text.ends_with(digits) &&
             text.find_first_not_of('0') >= text.size() - digits.size();
    };
  };
  const auto any = [](const auto&) { return true; };
  Try(kesctl::ReadSocketPath(text), [&](const std::string& path) { return path == text && text.size() < 108; });
  Try(kesctl::ReadCapturePath(text), [&](const std::string& path) { return path == text && !text.empty(); });
  Try(kesctl::ReadMode(text), any);
  Try(kesctl::ReadBand(text), any);
  Try(kesctl::ReadChannel(text), isNumber(1, 7115));
  Try(kesctl::ReadSsid(text), [&](const std::vector<uint8_t>& ssid) {
    return size >= 1 && size <= 32 && std::equal(ssid.begin(), ssid.end(), data, data + size);
  });
  for (const auto read : {kesctl::ReadTimeout, kesctl::ReadMaxAge}) Try(read(text), isNumber(1, 86'400'000));
  Try(kesctl::ReadInterval(text), isNumber(100, 3'600'000));
  Try(kesctl::ReadRounds(text), isNumber(1, 1'000));
  Try(kesctl::ReadRepeat(text), isNumber(1, 1'000'000));
  const auto isMac = [&](const kes::MacAddress& mac) {
    std::string written = text.substr(0, 17);
    for (char& c : written) c = c == '-' ? ':' : static_cast<char>(c >= 'A' && c <= 'F' ? c + 32 : c);
    return kesctl::MacText(mac) == written;
  };
  Try(kesctl::ReadBssid(text), [&](const kes::MacAddress& mac) { return size == 17 && isMac(mac); });
  Try(kesctl::ReadPeer(text), [&](const kes::RangingNode& node) {
    const int32_t frequency = node.parameters.frequencyMhz;
    return isMac(node.mac) &&
           (size == 17 ? frequency == 0 : wifi::ChannelOfFrequency(static_cast<uint32_t>(frequency)) != 0);
  });
  return 0;
}
