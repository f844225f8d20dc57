// Result buffers as a daemon may deliver them, through decoding to what kesctl prints: whatever an access point calls
// itself, no table may drive a terminal or show a line of its own, and JSON must say the same in ASCII.
#include <clocale>
#include <cuchar>
#include <nlohmann/json.hpp>
#include <string_view>

#include "client/range_table.h"
#include "client/result_json.h"
#include "client/scan_capture.h"
#include "client/scan_table.h"
#include "client/test_records.h"
#include "client/text.h"
#include "client/watch_screen.h"
#include "fuzz/input.h"

namespace {

using fuzz::Input;
using fuzz::Require;
using kes::Images;

kes::MacAddress TakeMac(Input& input) {
  kes::MacAddress mac{};
  for (uint8_t& octet : mac) octet = input.Take<uint8_t>();
  return mac;
}

// Some records that make sense, in which something is overwritten in the end.
Images TakeRecords(Input& input, bool ranging) {
  kes::TestResult scan;
  kes::TestRangingResult peers;
  scan.header.scanStatus = peers.header.scanStatus = input.Below(8);
  const unsigned overwritten = input.Below(4);
  unsigned count = input.Below(6);
  for (; count != 0 && ranging; --count) {
    const kes::MacAddress mac = TakeMac(input);
    const wifi::RangingValues values{
        .status = static_cast<wifi::RangingStatus>(input.Below(12)),
        .distanceMm = input.Take<int32_t>(),
        .distanceStdMm = input.Take<uint32_t>(),
        .rttPs = input.Take<int64_t>(),
        .signalMbm = input.Take<int16_t>(),
    };
    peers.Add(mac, values, std::vector(input.Below(4), mac));
  }
  for (; count != 0; --count) {
    const kes::MacAddress mac = TakeMac(input);
    const std::vector<uint8_t> ssid = input.Bytes(input.Below(33));
    std::vector<uint8_t> elements;
    for (unsigned e = input.Below(12); e != 0; --e) {
      constexpr uint8_t kRead[] = {48, 61, 192, 221, 244, 255};  // those that somebody looks into
      const unsigned choice = input.Below(12);
      const uint8_t id = choice < std::size(kRead) ? kRead[choice] : input.Take<uint8_t>();
      const std::vector<uint8_t> payload = input.Bytes(input.Take<uint8_t>());
      elements.insert(elements.end(), {id, static_cast<uint8_t>(payload.size())});
      elements.insert(elements.end(), payload.begin(), payload.end());
    }
    const uint32_t frequency = input.Take<uint16_t>();
    const int32_t signal = input.Take<int16_t>();
    scan.Add(mac, {reinterpret_cast<const char*>(ssid.data()), ssid.size()}, frequency, signal, elements,
             input.Take<uint16_t>());
  }
  Images images = ranging ? kes::ImagesOf(peers) : kes::ImagesOf(scan);
  for (unsigned i = 0; i < overwritten; ++i) {
    std::vector<uint8_t>& image = images[input.Below(static_cast<unsigned>(images.size()))];
    const std::size_t at = input.Take<uint16_t>();
    const uint8_t octet = input.Take<uint8_t>();
    if (!image.empty()) image[at % image.size()] = octet;
  }
  return images;
}

Images TakeBuffers(Input& input, bool ranging) {
  Images images;
  for (int i = 0; i < (ranging ? 4 : 3); ++i) images.push_back(input.Bytes(input.Take<uint16_t>() % 1024));
  images.push_back(input.Rest());
  return images;
}

// The next code point, as the C library decodes UTF-8; ends the process where there is none.
uint32_t NextCodePoint(std::string_view& text) {
  static const bool isSet = std::setlocale(LC_CTYPE, "C.UTF-8") != nullptr;
  char32_t value = 0;
  std::mbstate_t state{};
  const std::size_t size = std::mbrtoc32(&value, text.data(), text.size(), &state);
  Require(isSet && size > 0 && size <= text.size(), "whole characters of UTF-8");
  Require(value <= 0x10FFFF && (value < 0xD800 || value > 0xDFFF), "a Unicode character");
  text.remove_prefix(size);
  return value;
}

// Only whole lines that a terminal shows as they are.
void CheckTable(std::string text, std::size_t lines, bool colour) {
  for (const std::string_view sequence : {"\033[0m", "\033[1m", "\033[2m", "\033[31m", "\033[32m", "\033[33m"}) {
    for (std::size_t at; colour && (at = text.find(sequence)) != std::string::npos;) text.erase(at, sequence.size());
  }
  Require(!text.empty() && text.back() == '\n', "the last line has an end");
  std::size_t ends = 0;
  for (std::string_view rest = text; !rest.empty();) {
    const uint32_t c = NextCodePoint(rest);
    ends += c == '\n' ? 1 : 0;
    Require(c == '\n' || (c >= 0x20 && (c < 0x7F || c > 0x9F)), "no control characters");
    const bool steers = c == 0xAD || c == 0x61C || c == 0x180E || (c >= 0x200B && c <= 0x200F) ||
                        (c >= 0x2028 && c <= 0x202E) || (c >= 0x2060 && c <= 0x206F) || c == 0xFEFF ||
                        (c >= 0xFFF9 && c <= 0xFFFB) || (c >= 0xE0000 && c <= 0xE0FFF);
    Require(!steers, "no character that is invisible or turns the direction of writing");
  }
  Require(ends == lines, "as many lines as there are things to say");
}

template <typename Result>
nlohmann::json CheckJson(const std::string& text, const Result& result) {
  Require(std::all_of(text.begin(), text.end() - 1, [](char c) { return c >= 0x20 && c < 0x7F; }), "printable ASCII");
  Require(text.back() == '\n', "one line");
  const nlohmann::json json = nlohmann::json::parse(text, nullptr, false);
  Require(!json.is_discarded() && json.at("scan_status") == static_cast<uint32_t>(result.status), "JSON");
  Require(json.at("measurements").size() == result.measurements.size(), "an entry for each measurement");
  return json.at("measurements");
}

template <typename Result>
std::size_t TableLines(const Result& result) {
  const std::size_t count = result.measurements.size();
  return count + (count != 0 ? 1 : 0) + (result.status != wifi::ScanStatus::kOk ? 1 : 0) + 1;
}

// Once heard, and then gone, on a screen of any size.
void CheckScreen(const kes::DiscoveryResult& result) {
  kesctl::SignalHistory history;
  history.Add(result, {});
  history.Add({}, {});
  for (const kesctl::ScreenSize size : {kesctl::ScreenSize{1, 1}, {4, 60}, {60, 400}}) {
    const std::vector<std::string> lines = kesctl::WatchLines(history, {}, size, {}, {.utf8 = true, .colour = true});
    Require(lines.size() <= size.rows, "as many lines as a screen has");
    std::string text;
    for (const std::string& line : lines) text += line + '\n';
    CheckTable(text, lines.size(), true);
  }
}

void CheckScan(const kes::DiscoveryResult& result, std::size_t bytes) {
  std::size_t lines = TableLines(result);
  CheckTable(kesctl::ScanTable(result, {.colour = true}), lines, true);
  std::size_t octets = 0;
  const nlohmann::json json = CheckJson(kesctl::ScanJson(result), result);
  for (std::size_t i = 0; i < result.measurements.size(); ++i) {
    const kes::Measurement& m = result.measurements[i];
    const nlohmann::json& entry = json[i];
    Require(m.ssid.size() <= 32 && (m.ssidValid || m.ssid.empty()), "an SSID of at most 32 octets");
    Require(entry.at("ssid_hex") == kesctl::Hex(m.ssid) && entry.at("bssid") == kesctl::MacText(m.bssid), "its names");
    const nlohmann::json& ssid = entry.at("ssid");
    Require(ssid.is_null() || ssid == std::string(m.ssid.begin(), m.ssid.end()), "its SSID");
    wifi::ElementReader reader(m.elements);
    std::size_t elements = 0;
    while (reader.Next()) ++elements;
    Require(reader.Rest().empty() && entry.at("elements").size() == elements, "whole elements");
    lines += elements;
    octets += m.elements.size();
  }
  Require(octets <= bytes, "no more octets of elements than were delivered");
  const std::size_t headers = 24 + result.measurements.size() * (16 + 13 + 36);
  Require(kesctl::ScanCapture(result).size() <= headers + octets, "a capture of what was delivered");
  CheckTable(kesctl::ScanTable(result, {.elements = true}), lines, false);
  CheckScreen(result);
}

void CheckRanging(const kes::RangingResult& result, std::size_t macs) {
  for (const bool colour : {false, true}) CheckTable(kesctl::RangeTable(result, colour), TableLines(result), colour);
  const nlohmann::json json = CheckJson(kesctl::RangeJson(result), result);
  std::size_t peers = 0;
  for (const nlohmann::json& entry : json) peers += entry.at("peers").size();
  Require(peers <= macs, "no more addresses than were delivered");
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  Input input(data, size);
  const unsigned kind = input.Below(4);
  const bool ranging = kind % 2 != 0;
  const Images images = kind < 2 ? TakeRecords(input, ranging) : TakeBuffers(input, ranging);
  const kes::ExactBlocks b(images);
  const bool whole = images[0].size() == (ranging ? 4 : 16) && images[1].size() % 160 == 0 &&
                     images[2].size() % 64 == 0 && (!ranging || images[4].size() % 8 == 0);
  if (ranging) {
    const auto result = kes::DecodeRangingResult({b[0], b[1], b[2], b[3], b[4]});
    Require(bool{result} == whole, "records of the right size are decoded, others are not");
    if (result) CheckRanging(*result, images[4].size() / 8);
  } else {
    const auto result = kes::DecodeDiscoveryResult({b[0], b[1], b[2], b[3]});
    Require(bool{result} == whole, "records of the right size are decoded, others are not");
    if (result) CheckScan(*result, images[3].size());
  }
  return 0;
}
