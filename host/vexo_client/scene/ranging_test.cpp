#include "host/vexo_client/scene/ranging.h"

#include <gtest/gtest.h>

#include <cmath>

#include "host/vexo_client/scene/neighbourhood.h"
#include "host/wifi/ranging_parameters.h"

namespace vexo_host {
namespace {

using std::chrono::milliseconds;
using wifi::RangingBandwidth;
using wifi::RangingParameters;
using wifi::RangingPreamble;
using wifi::RangingStatus;

constexpr uint64_t kWide = 0x0E7C33905A20;  // 320 MHz, EHT
constexpr uint64_t kSeed = 11;

RangingQuery QueryOf(uint64_t address, const RangingParameters& parameters = {}, size_t times = 1) {
  zv_loc_fw::VEXONodeInfo node;
  node.address.setMac(static_cast<int>(address >> 24), static_cast<int>(address & 0xFFFFFF));
  wifi::StoreRangingParameters(parameters, node);
  return {std::vector<zv_loc_fw::VEXONodeInfo>(times, node)};
}

std::vector<RangedPeer> Measure(const std::vector<AccessPoint>& accessPoints, const RangingQuery& query,
                                uint64_t seed = kSeed) {
  return SceneRanging(accessPoints, seed).Measure(query, 0, milliseconds(250));
}

const AccessPoint& Find(const std::vector<AccessPoint>& accessPoints, uint64_t bssid) {
  for (const AccessPoint& ap : accessPoints) {
    if (ap.bssid == bssid) return ap;
  }
  ADD_FAILURE() << bssid;
  return accessPoints.front();
}

TEST(SceneRanging, SaysOfEachPeerHowItWent) {
  const std::vector<AccessPoint> all = MakeNeighbourhood(kBuiltInAccessPoints, kSeed);
  const struct {
    const char* name;
    uint64_t address;
    RangingParameters parameters;
    RangingStatus status;
  } cases[] = {
      {"its own frequency", kWide, {.frequencyMhz = 6135}, RangingStatus::kSuccess},
      {"nobody", 0x0E7C33905A22, {}, RangingStatus::kUnknownPeer},
      {"another frequency", kWide, {.frequencyMhz = 5955}, RangingStatus::kWrongChannel},
      {"a frequency below zero", kWide, {.frequencyMhz = -6135}, RangingStatus::kWrongChannel},
      {"an old printer", 0x0240F4031299, {}, RangingStatus::kNotCapable},
      {"a silent one", 0x02BBCC01F00D, {}, RangingStatus::kNoResponse},
      {"one that refuses", 0x0A1B2C3D4E10, {}, RangingStatus::kRejected},
      {"a busy one", 0x0A1B2C3D4E11, {}, RangingStatus::kBusy},
      {"a timeout that is too short", kWide, {.timeoutMs = 249}, RangingStatus::kNotMeasured},
      {"a timeout that suffices", kWide, {.timeoutMs = 250}, RangingStatus::kSuccess},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const RangedPeer peer = Measure(all, QueryOf(c.address, c.parameters)).at(0);
    EXPECT_EQ(peer.values.status, c.status);
    const bool isHeard = c.status != RangingStatus::kUnknownPeer && c.status != RangingStatus::kNotMeasured;
    EXPECT_EQ(peer.frequencyMhz, isHeard ? Find(all, c.address).frequencyMhz : 0u);
    EXPECT_EQ(peer.signalMbm, isHeard ? SignalMbm(Find(all, c.address), kSeed) : wifi::kSignalUnknown);
    if (c.status == RangingStatus::kSuccess) continue;
    EXPECT_EQ(peer.values.distanceMm, 0);
    EXPECT_EQ(peer.values.rttPs, 0);
    EXPECT_EQ(peer.values.burstsAnswered, 0u);
  }
}

TEST(SceneRanging, MeasuresAsWideAndAsOftenAsItIsAskedTo) {
  const std::vector<AccessPoint> all = MakeNeighbourhood(kBuiltInAccessPoints, kSeed);
  const auto with = [](RangingBandwidth bandwidth, RangingPreamble preamble = RangingPreamble::kChoose,
                       uint8_t frames = 8, uint32_t burstExponent = 0) {
    return RangingParameters{
        .bandwidth = bandwidth, .burstExponent = burstExponent, .preamble = preamble, .framesPerBurst = frames};
  };
  const struct {
    const char* name;
    RangingParameters parameters;
    double frameErrorMm;
    uint32_t frames;
    uint64_t address = kWide;
  } cases[] = {
      {"the library's choice", {}, 150, 16},
      {"320 MHz", with(RangingBandwidth::k320MHz), 150, 8},
      {"80 MHz", with(RangingBandwidth::k80MHz), 600, 8},
      {"20 MHz", with(RangingBandwidth::k20MHz), 2'000, 8},
      {"no such bandwidth", with(static_cast<RangingBandwidth>(99)), 150, 8},
      {"no such preamble", with(RangingBandwidth::k80MHz, static_cast<RangingPreamble>(99)), 600, 8},
      {"HE is not that wide", with(RangingBandwidth::k320MHz, RangingPreamble::kHe), 300, 8},
      {"nor is VHT", with(RangingBandwidth::kChoose, RangingPreamble::kVht), 300, 8},
      {"still less HT", with(RangingBandwidth::kChoose, RangingPreamble::kHt), 1'200, 8},
      {"least a legacy one", with(RangingBandwidth::k80MHz, RangingPreamble::kLegacy), 2'000, 8},
      {"eight bursts", with(RangingBandwidth::k80MHz, RangingPreamble::kChoose, 4, 3), 600, 32},
      {"frames beyond the limit", with(RangingBandwidth::k80MHz, RangingPreamble::kChoose, 255), 600, 31},
      {"bursts beyond the limit", with(RangingBandwidth::k80MHz, RangingPreamble::kChoose, 4, UINT32_MAX), 600, 8},
      {"a narrow peer", with(RangingBandwidth::k320MHz, RangingPreamble::kHe), 2'000, 8, 0x06D41E7720A0},
      {"a wider one", with(RangingBandwidth::k320MHz, RangingPreamble::kHe), 600, 8, 0x0AF58A61C0D0},
  };
  for (const auto& c : cases) {
    const RangedPeer peer = Measure(all, QueryOf(c.address, c.parameters)).at(0);
    EXPECT_EQ(peer.values.distanceStdMm, std::lround(c.frameErrorMm / std::sqrt(c.frames))) << c.name;
  }
  const auto rtt = [&](uint64_t seed) { return Measure(all, QueryOf(kWide), seed).at(0).values.rttPs; };
  EXPECT_EQ(rtt(1), rtt(1));
  EXPECT_NE(rtt(1), rtt(2));
}

// Also at no distance, where half of the measurements are below it.
TEST(SceneRanging, ScattersAroundTheTrueDistanceAsItsDeviationTells) {
  std::vector<AccessPoint> all = {Find(MakeNeighbourhood(kBuiltInAccessPoints, kSeed), kWide)};
  constexpr size_t kTimes = 4'000;
  constexpr double kMmPerPs = 0.299792458 / 2;  // there and back
  for (const double trueMm : {1'000 * Distance(all[0].position, kListener), 0.0}) {
    if (trueMm == 0) all[0].position = kListener;
    double sum = 0, squares = 0;
    for (const RangedPeer& peer : Measure(all, QueryOf(kWide, {.framesPerBurst = 1}, kTimes))) {
      ASSERT_EQ(peer.values.status, RangingStatus::kSuccess);
      EXPECT_NEAR(static_cast<double>(peer.values.rttPs) * kMmPerPs, peer.values.distanceMm, 1);
      EXPECT_NEAR(std::sqrt(static_cast<double>(peer.values.rttVariancePs2)) * kMmPerPs, peer.values.distanceStdMm, 1);
      EXPECT_NEAR(peer.values.signalMbm, peer.signalMbm, 400);
      EXPECT_EQ(peer.values.burstsAnswered, 2u);
      sum += peer.values.distanceMm - trueMm;
      squares += std::pow(peer.values.distanceMm - trueMm, 2);
    }
    constexpr double kDeviationMm = 106;  // of two frames of 150 mm each
    EXPECT_NEAR(sum / kTimes, 0, 5 * kDeviationMm / std::sqrt(kTimes));
    EXPECT_NEAR(std::sqrt(squares / kTimes), kDeviationMm, 0.06 * kDeviationMm);
  }
}

TEST(SceneRanging, LosesBurstsOfAWeakPeer) {
  const AccessPoint strong = Find(MakeNeighbourhood(kBuiltInAccessPoints, kSeed), kWide);
  constexpr size_t kTimes = 500;
  // Bursts of two frames, eight of them, tried twice: all, many, few and none come through.
  const RangingParameters parameters{.burstExponent = 3, .framesPerBurst = 2, .retries = 1};
  const struct {
    int32_t signalDbm;
    double leastBursts, mostBursts;  // mean
  } cases[] = {{-78, 8, 8}, {-84, 6, 7.6}, {-93, 0.3, 0.8}, {-95, 0, 0}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.signalDbm);
    std::vector<AccessPoint> weak = {strong};
    weak[0].transmitDbm += c.signalDbm - SignalMbm(strong, kSeed) / 100;
    double bursts = 0;
    for (const RangedPeer& peer : Measure(weak, QueryOf(kWide, parameters, kTimes))) {
      EXPECT_EQ(peer.values.burstsAsked, 8u);
      EXPECT_EQ(peer.values.status,
                peer.values.burstsAnswered == 0 ? RangingStatus::kNoResponse : RangingStatus::kSuccess);
      bursts += peer.values.burstsAnswered;
    }
    EXPECT_GE(bursts / kTimes, c.leastBursts);
    EXPECT_LE(bursts / kTimes, c.mostBursts);
  }
}

}  // namespace
}  // namespace vexo_host
