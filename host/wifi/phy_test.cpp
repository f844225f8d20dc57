#include "host/wifi/phy.h"

#include <gtest/gtest.h>

#include <vector>

namespace wifi {
namespace {

using Bytes = std::vector<uint8_t>;

Bytes operator+(Bytes left, const Bytes& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

const Bytes kRatesB{1, 4, 0x82, 0x84, 0x8B, 0x96};
const Bytes kRatesG{50, 4, 0x30, 0x48, 0x60, 0x6C};
const Bytes kRatesOfdm{1, 8, 0x8C, 0x12, 0x98, 0x24, 0xB0, 0x48, 0x60, 0x6C};
const Bytes kHtCapabilities = Bytes{45, 26} + Bytes(26, 0);
const Bytes kVhtCapabilities = Bytes{191, 12} + Bytes(12, 0);
const Bytes kHeCapabilities = Bytes{255, 22, 35} + Bytes(21, 0);
const Bytes kEhtCapabilities = Bytes{255, 12, 108} + Bytes(11, 0);

// `segment2`: centre of the second half of a wide VHT channel, which HT Operation holds in bits 5 to 12.
Bytes HtOperation(uint8_t flags, uint8_t segment2 = 0) {
  const auto bits = static_cast<uint16_t>(segment2 << 5);
  return Bytes{61, 22, 36, flags, static_cast<uint8_t>(bits), static_cast<uint8_t>(bits >> 8)} + Bytes(18, 0);
}
const Bytes kHt40 = HtOperation(0x05);

Bytes VhtOperation(uint8_t width, uint8_t segment0, uint8_t segment1) {
  return {192, 5, width, segment0, segment1, 0, 0};
}

// HE Operation with these optional fields announced by `flags`, bits 8 to 23 of its parameters.
Bytes HeOperation(uint8_t flagsLow, uint8_t flagsHigh, const Bytes& optional) {
  return Bytes{255, static_cast<uint8_t>(7 + optional.size()), 36, 0, flagsLow, flagsHigh, 0, 0, 0} + optional;
}
Bytes He6Ghz(uint8_t control, uint8_t segment0, uint8_t segment1) {
  return HeOperation(0, 0x02, {37, control, segment0, segment1, 6});
}
Bytes EhtOperation(uint8_t present, uint8_t control) { return {255, 9, 106, present, 0, 0, 0, 0, control, 47, 63}; }

const struct {
  const char* name;
  uint32_t frequencyMhz;
  Bytes elements;
  const char* phy;
  const char* width;
} kCases[] = {
    {"no elements", 0, {}, "?", "?"},
    {"first rates only", 2437, kRatesB, "b", "20"},
    {"extended rates", 2437, kRatesB + kRatesG, "g", "20"},
    {"a membership selector is no rate", 2437, {1, 5, 0x82, 0x84, 0x8B, 0x96, 0xFF}, "b", "20"},
    {"5 GHz", 5180, kRatesOfdm, "a", "20"},
    {"OFDM rates on an unknown band", 0, kRatesOfdm, "?", "?"},
    {"HT", 2437, kRatesB + kHtCapabilities + HtOperation(0), "HT", "20"},
    {"HT 40 above", 5180, kHtCapabilities + kHt40, "HT", "40"},
    {"HT 40 below", 5200, kHtCapabilities + HtOperation(0x07), "HT", "40"},
    {"HT with a secondary channel that it does not use", 5180, kHtCapabilities + HtOperation(0x01), "HT", "20"},
    {"HT without operation", 5180, kHtCapabilities, "HT", "?"},
    {"HT Operation too short", 5180, kHtCapabilities + Bytes{61, 2, 36, 5}, "HT", "?"},
    {"VHT that leaves it to HT", 5180, kHt40 + kVhtCapabilities + VhtOperation(0, 0, 0), "VHT", "40"},
    {"VHT 80", 5180, kHt40 + kVhtCapabilities + VhtOperation(1, 42, 0), "VHT", "80"},
    {"VHT 160", 5180, kHt40 + kVhtCapabilities + VhtOperation(1, 42, 50), "VHT", "160"},
    {"VHT 160, second segment in HT Operation", 5180, HtOperation(5, 50) + kVhtCapabilities + VhtOperation(1, 42, 0),
     "VHT", "160"},
    {"VHT 80+80", 5180, kHt40 + kVhtCapabilities + VhtOperation(1, 42, 155), "VHT", "80+80"},
    {"VHT 160, deprecated", 5180, kVhtCapabilities + VhtOperation(2, 50, 0), "VHT", "160"},
    {"VHT 80+80, deprecated", 5180, kVhtCapabilities + VhtOperation(3, 42, 155), "VHT", "80+80"},
    {"VHT of a reserved distance", 5180, kVhtCapabilities + VhtOperation(1, 42, 58), "VHT", "80"},
    {"HE at 5 GHz", 5180, kHt40 + kVhtCapabilities + VhtOperation(1, 42, 0) + kHeCapabilities, "HE", "80"},
    {"HE at 6 GHz, 20", 6135, kHeCapabilities + He6Ghz(0, 37, 0), "HE", "20"},
    {"HE at 6 GHz, 80", 6135, kHeCapabilities + He6Ghz(2, 39, 0), "HE", "80"},
    {"HE at 6 GHz, behind VHT and co-hosted fields", 6135,
     kHeCapabilities + HeOperation(0xC0, 0x02, {0, 0, 0, 3, 37, 1, 35, 0, 6}), "HE", "40"},
    {"HE at 6 GHz, announced but missing", 6135, kHeCapabilities + HeOperation(0, 0x02, {37, 2}), "HE", "?"},
    {"HE with VHT information", 5180, kHeCapabilities + HeOperation(0x40, 0, {1, 42, 0}), "HE", "80"},
    {"EHT 320", 6135, kHeCapabilities + He6Ghz(3, 39, 47) + kEhtCapabilities + EhtOperation(1, 4), "EHT", "320"},
    {"EHT without its own width", 6135, kHeCapabilities + He6Ghz(3, 39, 47) + kEhtCapabilities + EhtOperation(0, 4),
     "EHT", "160"},
    {"EHT of a reserved width", 6135, He6Ghz(2, 39, 0) + kEhtCapabilities + EhtOperation(1, 7), "EHT", "80"},
    {"an extension element without an extension", 5180, Bytes{255, 0} + kRatesOfdm, "a", "20"},
};

TEST(Radio, IsReadFromTheNewestElementThatTells) {
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(PhyName(PhyOf(c.elements, c.frequencyMhz)), c.phy);
    EXPECT_EQ(WidthName(ChannelWidthOf(c.elements, c.frequencyMhz)), c.width);
  }
}

}  // namespace
}  // namespace wifi
