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

TEST(DecodeRangingResult, DoesNotMultiplyAddressesThatManyMeasurementsClaim) {
  TestRangingResult test;
  test.Add(kPeer, kValues, std::vector<MacAddress>(999, kSecond));
  test.measurements.resize(1000, test.measurements[0]);
  const Result<RangingResult> result = DecodeImages(ImagesOf(test));
  ASSERT_TRUE(result);
  std::size_t total = 0;
  for (const RangingMeasurement& measurement : result->measurements) total += measurement.peers.size();
  EXPECT_EQ(total, 1000u);
  EXPECT_FALSE(result->measurements.front().incomplete);
  EXPECT_TRUE(result->measurements.back().incomplete);
}

TEST(DecodeRangingResult, SurvivesEveryTruncationOfEveryBuffer) {
  const Images whole = ImagesOf(TwoPeers());
  const std::size_t recordSizes[] = {sizeof(RangingResultHeader), sizeof(WifiScanMeasurement),
                                     sizeof(WifiMeasurementInfo), 1, sizeof(WifiMacAddress)};
  for (std::size_t cut = 0; cut < whole.size(); ++cut) {
    for (std::size_t size = 0; size < whole[cut].size(); ++size) {
      Images images = whole;
      images[cut].resize(size);
      const Result<RangingResult> result = DecodeImages(images);
      const bool expected = cut != 0 && size % recordSizes[cut] == 0;
      ASSERT_EQ(static_cast<bool>(result), expected) << "buffer " << cut << " cut to " << size;
      if (!expected) {
        ASSERT_EQ(result.GetError().kind, ErrorKind::kProtocol);
      }
    }
  }
}

// What shows measurements must take whatever a decoder can make of hostile records.
TEST(DecodeRangingResult, SurvivesRandomDamageAndSoDoesWhatIsShownOfIt) {
  const Images whole = ImagesOf(TwoPeers());
  constexpr std::size_t kDamaged[] = {0, 1, 2, 4};
  std::mt19937 random(80211);
  for (int round = 0; round < 20'000; ++round) {
    Images images = whole;
    for (int flips = 1 + static_cast<int>(random() % 8); flips > 0; --flips) {
      std::vector<uint8_t>& image = images[kDamaged[random() % 4]];
      image[random() % image.size()] = static_cast<uint8_t>(random() % 4 == 0 ? 0xFF : random());
    }
    const Result<RangingResult> result = DecodeImages(images);
    ASSERT_TRUE(result);
    ASSERT_EQ(result->measurements.size(), 2u);
    ASSERT_LE(result->measurements[0].peers.size() + result->measurements[1].peers.size(), 3u);
    if (round % 20 != 0) continue;
    ASSERT_FALSE(kesctl::RangeTable(*result, true).empty());
    ASSERT_FALSE(kesctl::RangeJson(*result).empty());
  }
}

}  // namespace
}  // namespace kes
