#include "host/vexo_client/capture/radio_header.h"

#include <gtest/gtest.h>

#include "host/vexo_client/capture/capture_writer.h"

namespace vexo_host {
namespace {

using test::Big;
using test::Bytes;
using test::Le16;
using test::Le32;
using test::Text;
using test::operator+;

constexpr int32_t kUnknown = wifi::kSignalUnknown;

struct HeaderCase {
  const char* name;
  Bytes packet;
  std::optional<RadioHeader> header;
};

using Reader = std::optional<RadioHeader> (*)(std::span<const uint8_t>);

void ExpectHeaders(Reader read, const std::vector<HeaderCase>& cases) {
  for (const HeaderCase& c : cases) {
    EXPECT_EQ(read(c.packet), c.header) << c.name;
  }
}

Bytes RadiotapOf(const std::vector<uint32_t>& words, const Bytes& fields) {
  Bytes present;
  for (const uint32_t word : words) present = present + Le32(word);
  return Bytes{0, 0} + Le16(4 + present.size() + fields.size()) + present + fields;
}

constexpr uint32_t kTsft = 1, kFlags = 1u << 1, kRate = 1u << 2, kChannel = 1u << 3, kSignal = 1u << 5;
constexpr uint32_t kAntenna = 1u << 11, kTlv = 1u << 28;
constexpr uint32_t kNext = 1u << 29 | 1u << 31, kVendorNext = 1u << 30 | 1u << 31, kContinued = 1u << 31;

const Bytes kMinus50 = {0xCE};

// Three presence words, a vendor's fields between them, and every kind of field that is read.
const Bytes kChained =
    RadiotapOf({kTsft | kFlags | kRate | kChannel | kSignal | kVendorNext, 0xFFFF | kNext, kSignal | kAntenna},
               Bytes(8, 0x11) + Bytes{0x50, 2} + Le16(5180) + Le16(0x140) + kMinus50 + Bytes{0} +
                   Bytes{0xAA, 0xBB, 0xCC, 1} + Le16(3) + Bytes{9, 9, 9} + Bytes{0xC0, 1});

TEST(RadiotapHeader, IsReadWithinItsOwnLength) {
  ExpectHeaders(
      ReadRadiotap,
      {
          {"flags, channel, signal", test::Radiotap(0x10, 2437, -50), RadioHeader{15, false, true, 2437, -5000}},
          {"bad FCS without an FCS", test::Radiotap(0x40, 2412, 5), RadioHeader{15, true, false, 2412, 500}},
          {"alignment counts from the header's start",
           RadiotapOf({kTsft | kFlags | kChannel | kNext, kSignal},
                      Bytes(4, 0) + Bytes(8, 1) + Bytes{0x10, 0} + Le16(2462) + Le16(0) + kMinus50),
           RadioHeader{31, false, true, 2462, -5000}},
          {"chained words and a vendor's fields", kChained, RadioHeader{kChained.size(), true, true, 5180, -5000}},
          {"signal of the first antenna only",
           RadiotapOf({kNext, kSignal | kAntenna | kNext, kSignal | kAntenna}, {0xC4, 0, 0xF6, 1}),
           RadioHeader{20, false, false, 0, -6000}},
          {"second word continues the numbering: unknown fields",
           RadiotapOf({kFlags | kContinued, kSignal}, {0x10, 0xCE}), RadioHeader{14, false, true, 0, kUnknown}},
          {"nothing is read behind a field of unknown size", RadiotapOf({kFlags | kTlv | kNext, kSignal}, {0x10, 0xCE}),
           RadioHeader{14, false, true, 0, kUnknown}},
          {"field past the header's end", RadiotapOf({kSignal | kChannel}, {1, 2}),
           RadioHeader{10, false, false, 0, kUnknown}},
          {"vendor's length past the header's end",
           RadiotapOf({kFlags | kVendorNext, kNext, kSignal}, Bytes{0x10, 0} + Bytes(4, 0) + Le16(0xFFFF) + kMinus50),
           RadioHeader{25, false, true, 0, kUnknown}},
          {"length below the fixed fields", Bytes{0, 0, 7, 0} + Le32(0), {}},
          {"length beyond the packet", Bytes{0, 0, 9, 0} + Le32(0), {}},
          {"presence words without end", RadiotapOf({kContinued, kContinued}, {}), {}},
          {"empty packet", {}, {}},
      });
}

Bytes PrismItem(uint32_t identifier, uint16_t status, uint32_t value) {
  return Le32(identifier) + Le16(status) + Le16(4) + Le32(value);
}

Bytes Prism(uint32_t code, const Bytes& items) {
  Bytes name = Text("wlan0");
  name.resize(16);
  return Le32(code) + Le32(24 + items.size()) + name + items;
}

Bytes Avs(uint32_t version, uint32_t channel, uint32_t signalKind, int32_t signal) {
  return Big(version, 4) + Big(64, 4) + Bytes(20, 0) + Big(channel, 4) + Bytes(12, 0) + Big(signalKind, 4) +
         Big(static_cast<uint32_t>(signal), 4) + Bytes(12, 0);
}

const Bytes kPrism = Prism(
    0x44, PrismItem(0x10044, 0, 7) + PrismItem(0x30044, 0, 11) + PrismItem(0x60044, 0, static_cast<uint32_t>(-71)));

TEST(PrismHeader, GivesWhatIsClear) {
  ExpectHeaders(
      ReadPrism,
      {
          {"channel and dBm", kPrism, RadioHeader{60, false, false, 2462, -7100}},
          {"identifiers of message 0x41", Prism(0x41, PrismItem(0x3041, 0, 36)),
           RadioHeader{36, false, false, 5180, kUnknown}},
          {"signal in the chip's own scale", Prism(0x44, PrismItem(0x60044, 0, 57)),
           RadioHeader{36, false, false, 0, kUnknown}},
          {"item without a value", Prism(0x44, PrismItem(0x30044, 1, 11)), RadioHeader{36, false, false, 0, kUnknown}},
          {"big endian", Big(0x44, 4) + Big(36, 4) + Bytes(16, 0) + Big(0x30044, 4) + Big(4, 4) + Big(1, 4),
           RadioHeader{36, false, false, 2412, kUnknown}},
          {"AVS in dBm", Avs(0x80211001, 6, 2, -40), RadioHeader{64, false, false, 2437, -4000}},
          {"AVS in a scale of its own", Avs(0x80211002, 6, 1, 40), RadioHeader{64, false, false, 2437, kUnknown}},
          {"AVS cut short", Big(0x80211001, 4) + Big(64, 4) + Bytes(55, 0), {}},
          {"length beyond the packet", Le32(0x44) + Le32(145) + Bytes(136, 0), {}},
          {"empty packet", {}, {}},
      });
}

}  // namespace
}  // namespace vexo_host
