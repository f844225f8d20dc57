// What the client makes of results, also of those whose buffers do not hold what their records say.
#include <gtest/gtest.h>

#include <limits>

#include "client/test_records.h"

namespace kes {
namespace {

using Bytes = std::vector<uint8_t>;

constexpr uint32_t kFar = std::numeric_limits<uint32_t>::max();
const MacAddress kBssid{0x02, 0x00, 0x5E, 0x10, 0x00, 0x01};
const MacAddress kSecond{0x02, 0x00, 0x5E, 0x10, 0x00, 0x0A};
const Bytes kElements{0, 4, 'C', 'a', 'f', 'e', 1, 2, 0x82, 0x84, 48, 2, 1, 0, 255, 1, 35};
const wifi::RangingValues kValues{.status = wifi::RangingStatus::kSuccess,
                                  .distanceMm = -12,
                                  .rttVariancePs2 = 0x0102030405060708,
                                  .burstsAsked = 4,
                                  .burstsAnswered = 3};

TestResult Scanned() {
  TestResult test;
  test.Add(kBssid, "Cafe", 2437, -4550, kElements);
  return test;
}

TestRangingResult Ranged() {
  TestRangingResult test;
  test.Add(kBssid, kValues, {kSecond});
  return test;
}

Measurement Decode(const TestResult& test) {
  const ExactBlocks blocks(ImagesOf(test));
  return DecodeDiscoveryResult({blocks[0], blocks[1], blocks[2], blocks[3]})->measurements.at(0);
}

RangingMeasurement Decode(const TestRangingResult& test) {
  const ExactBlocks blocks(ImagesOf(test));
  return DecodeRangingResult({blocks[0], blocks[1], blocks[2], blocks[3], blocks[4]})->measurements.at(0);
}

// What kesctl does not show.
TEST(Result, HasTheValuesOfItsRecords) {
  const Measurement scanned = Decode(Scanned());
  EXPECT_FALSE(scanned.incomplete);
  EXPECT_EQ(scanned.values.timestampUs, 123456789u);
  const RangingMeasurement ranged = Decode(Ranged());
  EXPECT_FALSE(ranged.incomplete);
  EXPECT_EQ(ranged.values.frequencyMhz, 5180u);
  EXPECT_EQ(ranged.ranging.rttVariancePs2, 0x0102030405060708u);
  EXPECT_EQ(ranged.ranging.burstsAsked, 4);
  EXPECT_EQ(ranged.ranging.burstsAnswered, 3);
}

TEST(Result, KeepsWhatFitsOfAScansMeasurementAndMarksIt) {
  const struct {
    const char* name;
    void (*damage)(TestResult&);
    long elementOctets;  // what is left of kElements
  } cases[] = {
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
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    TestResult test = Scanned();
    c.damage(test);
    const Measurement measurement = Decode(test);
    EXPECT_TRUE(measurement.incomplete);
    EXPECT_EQ(measurement.bssid, kBssid);
    EXPECT_EQ(measurement.elements, Bytes(kElements.begin(), kElements.begin() + c.elementOctets));
    EXPECT_EQ(measurement.ssid.size(), test.measurements[0].ssidLength == 33 ? 32u : 4u);
  }
}

TEST(Result, HasAnSsidOnlyWhereThereIsOne) {
  TestResult test = Scanned();
  test.measurements[0].ssidCopied = 0;
  EXPECT_TRUE(Decode(test).ssidValid);
  EXPECT_TRUE(Decode(test).ssid.empty());
  test.measurements[0].ssidCopied = 1;
  test.measurements[0].ssidValid = 0;
  EXPECT_FALSE(Decode(test).ssidValid);
  EXPECT_TRUE(Decode(test).ssid.empty());
}

TEST(Result, KeepsWhatFitsOfARangingMeasurementAndMarksIt) {
  const struct {
    const char* name;
    void (*damage)(TestRangingResult&);
    bool hasValues;
    std::size_t peers;  // how many are left
  } cases[] = {
      {"no info", [](TestRangingResult& r) { r.measurements[0].infoCount = 0; }, false, 2},
      {"infos not delivered", [](TestRangingResult& r) { r.infos.clear(); }, false, 2},
      {"info past the end", [](TestRangingResult& r) { r.measurements[0].firstInfoIndex = 1; }, false, 2},
      {"more infos than delivered", [](TestRangingResult& r) { r.measurements[0].infoCount = 2; }, true, 2},
      {"byte list not delivered", [](TestRangingResult& r) { r.measurements[0].byteListLength = 1; }, true, 2},
      {"more peers than delivered", [](TestRangingResult& r) { r.measurements[0].macCount = 3; }, true, 2},
      {"enormous number of peers", [](TestRangingResult& r) { r.measurements[0].macCount = kFar; }, true, 2},
      {"peers start past the end", [](TestRangingResult& r) { r.measurements[0].firstMacIndex = 3; }, true, 0},
      {"index and count overflow", [](TestRangingResult& r) { r.measurements[0].firstMacIndex = kFar; }, true, 0},
      {"a peer was not delivered", [](TestRangingResult& r) { r.macs.pop_back(); }, true, 1},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    TestRangingResult test = Ranged();
    c.damage(test);
    const RangingMeasurement measurement = Decode(test);
    EXPECT_TRUE(measurement.incomplete);
    EXPECT_EQ(measurement.bssid, kBssid);
    EXPECT_EQ(measurement.ranging.distanceMm, c.hasValues ? -12 : 0);
    EXPECT_EQ(measurement.ranging.status, c.hasValues ? kValues.status : wifi::RangingStatus::kFailed);
    EXPECT_EQ(measurement.peers.size(), c.peers);
  }
}

}  // namespace
}  // namespace kes
