#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "platform/vexo_measurement.h"
#include "platform/vexo_request.h"

namespace zv_loc_fw {
namespace {

TEST(MacAddress, KeepsTwentyFourBitsOfEachHalf) {
  VEXOMacAddress address;
  address.setMac(static_cast<int>(0xFF123456), -1);
  EXPECT_EQ(address.getHi24(), 0x123456);
  EXPECT_EQ(address.getLo24(), 0xFFFFFF);
}

TEST(Ssid, HoldsWhatFits) {
  const std::string octets(40, 'x');
  const struct {
    const char* name;
    const char* from;
    int length;
    bool valid;
    int kept;
  } cases[] = {
      {"usual", octets.data(), 5, true, 5},          {"empty but valid", octets.data(), 0, true, 0},
      {"empty without octets", nullptr, 0, true, 0}, {"longest", octets.data(), 32, true, 32},
      {"too long", octets.data(), 40, true, 32},     {"negative length", octets.data(), -1, false, 0},
      {"no octets", nullptr, 3, false, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    VEXOSsid ssid;
    ssid.setSSID(reinterpret_cast<const unsigned char*>("before"), 6);
    ssid.setSSID(reinterpret_cast<const unsigned char*>(c.from), c.length);
    EXPECT_EQ(ssid.isSSIDValid(), c.valid);
    unsigned char out[32] = {};
    int length = -7;
    EXPECT_EQ(ssid.getSSID(out, &length) == 0, c.valid);
    if (!c.valid) continue;
    EXPECT_EQ(length, c.kept);
    EXPECT_EQ(std::memcmp(out, octets.data(), static_cast<size_t>(c.kept)), 0);
  }
  EXPECT_FALSE(VEXOSsid().isSSIDValid());
}

// A client reads bytes that nobody set as zeros, whatever the memory held before.
TEST(Measurement, IsZeroWhereNothingWasSet) {
  alignas(VEXOFullBeaconScanMeasurement) unsigned char memory[sizeof(VEXOFullBeaconScanMeasurement)];
  std::memset(memory, 0xA5, sizeof memory);
  auto* const measurement = new (memory) VEXOFullBeaconScanMeasurement;
  const auto isZero = [&](size_t from, size_t to) {
    for (size_t i = from; i < to; ++i) {
      if (memory[i] != 0) return false;
    }
    return true;
  };
  EXPECT_TRUE(isZero(0x08, 0x80));   // up to the info list's vtable pointer
  EXPECT_TRUE(isZero(0x88, 0xB0));   // up to the byte list's
  EXPECT_TRUE(isZero(0xB8, 0x110));  // up to the elements'
  EXPECT_TRUE(isZero(0x118, sizeof memory));
  measurement->~VEXOFullBeaconScanMeasurement();
}

}  // namespace
}  // namespace zv_loc_fw
