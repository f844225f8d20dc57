#include "client/discovery_result.h"

#include <gtest/gtest.h>

#include <limits>
#include <random>

#include "client/result_json.h"
#include "client/scan_table.h"
#include "client/test_records.h"
#include "host/wifi/phy.h"

namespace kes {
namespace {

using Bytes = std::vector<uint8_t>;

const MacAddress kBssid{0x02, 0x00, 0x5E, 0x10, 0x00, 0x01};
const Bytes kElements{0, 4, 'C', 'a', 'f', 'e', 1, 2, 0x82, 0x84, 48, 2, 1, 0, 255, 1, 35};

TestResult TwoAccessPoints() {
  TestResult result;
  result.Add(kBssid, "Cafe", 2437, -4550, kElements);
  result.Add({0x02, 0x00, 0x5E, 0x10, 0x00, 0x02}, "", 5180, wifi::kSignalUnknown, {0, 0});
  return result;
}

Result<DiscoveryResult> DecodeImages(const Images& images) {
  const ExactBlocks blocks(images);
  return DecodeDiscoveryResult({blocks[0], blocks[1], blocks[2], blocks[3]});
}

Measurement DecodeOnly(const TestResult& test) {
  const Result<DiscoveryResult> result = DecodeImages(ImagesOf(test));
  EXPECT_TRUE(result && result->measurements.size() == 1);
  return result ? result->measurements.at(0) : Measurement{};
}

TEST(DecodeDiscoveryResult, GivesEveryMeasurementWithItsOwnElements) {
  TestResult test = TwoAccessPoints();
  test.header.scanStatus = 2;
  const Result<DiscoveryResult> result = DecodeImages(ImagesOf(test));
  ASSERT_TRUE(result);
  EXPECT_EQ(result->status, wifi::ScanStatus::kTimedOut);
  ASSERT_EQ(result->measurements.size(), 2u);
  const Measurement& first = result->measurements[0];
  EXPECT_EQ(first.bssid, kBssid);
  EXPECT_TRUE(first.ssidValid);
  EXPECT_EQ(first.ssid, Bytes({'C', 'a', 'f', 'e'}));
  EXPECT_EQ(first.values.timestampUs, 123456789u);
  EXPECT_EQ(first.ageMs, 1500u);
  EXPECT_EQ(first.values.frequencyMhz, 2437u);
  EXPECT_EQ(first.values.signalMbm, -4550);
  EXPECT_EQ(first.values.beaconIntervalTu, 100);
  EXPECT_EQ(first.values.capability, 0x0411);
  EXPECT_EQ(first.elements, kElements);
  EXPECT_FALSE(first.incomplete);
  EXPECT_EQ(result->measurements[1].elements, Bytes({0, 0}));
  EXPECT_FALSE(result->measurements[1].incomplete);
}

struct DamageCase {
  const char* name;
  void (*damage)(TestResult&);
  std::size_t elementOctets;  // what is left of kElements
};

constexpr uint32_t kFar = std::numeric_limits<uint32_t>::max();

const DamageCase kDamages[] = {
    {"elements reach past the end", [](TestResult& r) { r.measurements[0].beaconElementsLength += 1; }, 17},
    {"elements of enormous length", [](TestResult& r) { r.measurements[0].beaconElementsLength = kFar; }, 17},
    {"elements start past the end", [](TestResult& r) { r.measurements[0].beaconElementsOffset = 18; }, 0},
    {"offset and length overflow", [](TestResult& r) { r.measurements[0].beaconElementsOffset = kFar; }, 0},
    {"the last element was not delivered whole", [](TestResult& r) { r.bytes.pop_back(); }, 14},
    {"nothing was delivered", [](TestResult& r) { r.bytes.clear(); }, 0},
    {"an element lies about its length", [](TestResult& r) { r.bytes[7] = 200; }, 6},
    {"byte list past the end", [](TestResult& r) { r.measurements[0].byteListLength = 18; }, 17},
    {"first optional element past the end", [](TestResult& r) { r.measurements[0].element1Length = 18; }, 17},
    {"second optional element past the end",
     [](TestResult& r) { r.measurements[0].element2Offset = kFar, r.measurements[0].element2Length = 1; }, 17},
    {"infos past the end", [](TestResult& r) { r.measurements[0].infoCount = 2; }, 17},
    {"infos start past the end", [](TestResult& r) { r.measurements[0].firstInfoIndex = 0xFFFF; }, 17},
    {"SSID longer than it can be", [](TestResult& r) { r.measurements[0].ssidLength = 33; }, 17},
};

TEST(DecodeDiscoveryResult, KeepsWhatFitsOfAMeasurementAndMarksIt) {
  for (const DamageCase& c : kDamages) {
    SCOPED_TRACE(c.name);
    TestResult test;
    test.Add(kBssid, "Cafe", 2437, -4550, kElements);
    c.damage(test);
    const Measurement measurement = DecodeOnly(test);
    EXPECT_TRUE(measurement.incomplete);
    EXPECT_EQ(measurement.bssid, kBssid);
    EXPECT_EQ(measurement.elements, Bytes(kElements.begin(), kElements.begin() + static_cast<long>(c.elementOctets)));
    EXPECT_EQ(measurement.ssid.size(), test.measurements[0].ssidLength == 33 ? 32u : 4u);
  }
}

TEST(DecodeDiscoveryResult, TakesAnSsidOnlyWhereThereIsOne) {
  TestResult test;
  test.Add(kBssid, "Cafe", 2437, -4550, kElements).ssidCopied = 0;
  EXPECT_TRUE(DecodeOnly(test).ssidValid);
  EXPECT_TRUE(DecodeOnly(test).ssid.empty());
  test.measurements[0].ssidCopied = 1;
  test.measurements[0].ssidValid = 0;
  EXPECT_FALSE(DecodeOnly(test).ssidValid);
  EXPECT_TRUE(DecodeOnly(test).ssid.empty());
}

}  // namespace
}  // namespace kes
