#include "client/ranging_result.h"

#include <gtest/gtest.h>

#include <limits>
#include <random>

#include "client/range_table.h"
#include "client/result_json.h"
#include "client/test_records.h"

namespace kes {
namespace {

const MacAddress kPeer{0x02, 0x00, 0x5E, 0x10, 0x00, 0x01};
const MacAddress kSecond{0x02, 0x00, 0x5E, 0x10, 0x00, 0x0A};
const MacAddress kOther{0x02, 0x00, 0x5E, 0x10, 0x00, 0x02};

const wifi::RangingValues kValues{.status = wifi::RangingStatus::kSuccess,
                                  .distanceMm = -12,
                                  .distanceStdMm = 345,
                                  .rttPs = -80,
                                  .rttVariancePs2 = 0x0102030405060708,
                                  .burstsAsked = 4,
                                  .burstsAnswered = 3,
                                  .signalMbm = -5150};

TestRangingResult TwoPeers() {
  TestRangingResult result;
  result.Add(kPeer, kValues, {kSecond});
  result.Add(kOther, {.status = wifi::RangingStatus::kBusy});
  return result;
}

Result<RangingResult> DecodeImages(const Images& images) {
  const ExactBlocks blocks(images);
  return DecodeRangingResult({blocks[0], blocks[1], blocks[2], blocks[3], blocks[4]});
}

TEST(DecodeRangingResult, GivesEveryMeasurementWithItsOwnValuesAndPeers) {
  TestRangingResult test = TwoPeers();
  test.header.scanStatus = 2;
  const Result<RangingResult> result = DecodeImages(ImagesOf(test));
  ASSERT_TRUE(result);
  EXPECT_EQ(result->status, wifi::ScanStatus::kTimedOut);
  ASSERT_EQ(result->measurements.size(), 2u);
  const RangingMeasurement& first = result->measurements[0];
  EXPECT_EQ(first.bssid, kPeer);
  EXPECT_EQ(first.values.frequencyMhz, 5180u);
  EXPECT_EQ(first.ranging.status, wifi::RangingStatus::kSuccess);
  EXPECT_EQ(first.ranging.distanceMm, -12);
  EXPECT_EQ(first.ranging.distanceStdMm, 345u);
  EXPECT_EQ(first.ranging.rttPs, -80);
  EXPECT_EQ(first.ranging.rttVariancePs2, 0x0102030405060708u);
  EXPECT_EQ(first.ranging.burstsAsked, 4);
  EXPECT_EQ(first.ranging.burstsAnswered, 3);
  EXPECT_EQ(first.ranging.signalMbm, -5150);
  EXPECT_EQ(first.peers, (std::vector{kPeer, kSecond}));
  EXPECT_FALSE(first.incomplete);
  const RangingMeasurement& second = result->measurements[1];
  EXPECT_EQ(second.ranging.status, wifi::RangingStatus::kBusy);
  EXPECT_EQ(second.peers, std::vector{kOther});
  EXPECT_FALSE(second.incomplete);
}

struct DamageCase {
  const char* name;
  void (*damage)(TestRangingResult&);
  bool hasValues;
  std::size_t peers;  // how many are left
};

constexpr uint32_t kFar = std::numeric_limits<uint32_t>::max();

const DamageCase kDamages[] = {
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

TEST(DecodeRangingResult, KeepsWhatFitsOfAMeasurementAndMarksIt) {
  for (const DamageCase& c : kDamages) {
    SCOPED_TRACE(c.name);
    TestRangingResult test;
    test.Add(kPeer, kValues, {kSecond});
    c.damage(test);
    const Result<RangingResult> result = DecodeImages(ImagesOf(test));
    ASSERT_TRUE(result);
    const RangingMeasurement& measurement = result->measurements.at(0);
    EXPECT_TRUE(measurement.incomplete);
    EXPECT_EQ(measurement.bssid, kPeer);
    EXPECT_EQ(measurement.ranging.distanceMm, c.hasValues ? -12 : 0);
    EXPECT_EQ(measurement.ranging.status, c.hasValues ? kValues.status : wifi::RangingStatus::kFailed);
    EXPECT_EQ(measurement.peers.size(), c.peers);
  }
}

}  // namespace
}  // namespace kes
