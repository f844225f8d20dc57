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

// What many measurements of one peer look like.
struct Spread {
  double meanMm = 0, deviationMm = 0;
  double reportedMm = 0;  // mean of the deviations that the measurements tell
};

Spread SpreadOf(const std::vector<RangedPeer>& peers) {
  Spread spread;
  for (const RangedPeer& peer : peers) {
    EXPECT_EQ(peer.values.status, RangingStatus::kSuccess);
    spread.meanMm += peer.values.distanceMm;
    spread.reportedMm += peer.values.distanceStdMm;
  }
  const auto count = static_cast<double>(peers.size());
  spread.meanMm /= count;
  spread.reportedMm /= count;
  for (const RangedPeer& peer : peers) spread.deviationMm += std::pow(peer.values.distanceMm - spread.meanMm, 2);
  spread.deviationMm = std::sqrt(spread.deviationMm / (count - 1));
  return spread;
}

TEST(SceneRanging, SaysOfEachPeerHowItWent) {
  const std::vector<AccessPoint> all = MakeNeighbourhood(kBuiltInAccessPoints, kSeed);
  const struct {
    const char* name;
    uint64_t address;
    RangingParameters parameters;
    RangingStatus status;
  } cases[] = {
      {"a wide one", kWide, {}, RangingStatus::kSuccess},
      {"its own frequency", kWide, {.frequencyMhz = 6135}, RangingStatus::kSuccess},
      {"an 11n one", 0x06D41E7720A0, {}, RangingStatus::kSuccess},
      {"nobody", 0x0E7C33905A22, {}, RangingStatus::kUnknownPeer},
      {"no address", 0, {}, RangingStatus::kUnknownPeer},
      {"another frequency", kWide, {.frequencyMhz = 5955}, RangingStatus::kWrongChannel},
      {"a frequency below zero", kWide, {.frequencyMhz = -6135}, RangingStatus::kWrongChannel},
      {"an old printer", 0x0240F4031299, {}, RangingStatus::kNotCapable},
      {"a silent one", 0x02BBCC01F00D, {}, RangingStatus::kNoResponse},
      {"one that refuses", 0x0A1B2C3D4E10, {}, RangingStatus::kRejected},
      {"a busy one", 0x0A1B2C3D4E11, {}, RangingStatus::kBusy},
      {"a timeout that is too short", kWide, {.timeoutMs = 249}, RangingStatus::kNotMeasured},
      {"a timeout that suffices", kWide, {.timeoutMs = 250}, RangingStatus::kSuccess},
      {"a timeout below zero", kWide, {.timeoutMs = -1}, RangingStatus::kSuccess},
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

TEST(SceneRanging, ScattersAroundTheTrueDistanceAsItsDeviationTells) {
  const std::vector<AccessPoint> all = MakeNeighbourhood(kBuiltInAccessPoints, kSeed);
  constexpr size_t kTimes = 4'000;
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
      {"160 MHz", with(RangingBandwidth::k160MHz), 300, 8},
      {"80 MHz", with(RangingBandwidth::k80MHz), 600, 8},
      {"40 MHz", with(RangingBandwidth::k40MHz), 1'200, 8},
      {"20 MHz", with(RangingBandwidth::k20MHz), 2'000, 8},
      {"no such bandwidth", with(static_cast<RangingBandwidth>(99)), 150, 8},
      {"HE is not that wide", with(RangingBandwidth::k320MHz, RangingPreamble::kHe), 300, 8},
      {"nor is VHT", with(RangingBandwidth::kChoose, RangingPreamble::kVht), 300, 8},
      {"still less HT", with(RangingBandwidth::kChoose, RangingPreamble::kHt), 1'200, 8},
      {"least a legacy one", with(RangingBandwidth::k80MHz, RangingPreamble::kLegacy), 2'000, 8},
      {"one frame", with(RangingBandwidth::k80MHz, RangingPreamble::kChoose, 1), 600, 1},
      {"eight bursts", with(RangingBandwidth::k80MHz, RangingPreamble::kChoose, 4, 3), 600, 32},
      {"frames beyond the limit", with(RangingBandwidth::k80MHz, RangingPreamble::kChoose, 200), 600, 31},
      {"bursts beyond the limit", with(RangingBandwidth::k80MHz, RangingPreamble::kChoose, 4, 40), 600, 8},
      {"a narrow peer", with(RangingBandwidth::k320MHz, RangingPreamble::kHe), 2'000, 8, 0x06D41E7720A0},
      {"a wider one", with(RangingBandwidth::k320MHz, RangingPreamble::kHe), 600, 8, 0x0AF58A61C0D0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const double trueMm = 1'000 * Distance(Find(all, c.address).position, kListener);
    const Spread spread = SpreadOf(Measure(all, QueryOf(c.address, c.parameters, kTimes)));
    const double expectedMm = c.frameErrorMm / std::sqrt(c.frames);
    EXPECT_NEAR(spread.reportedMm, expectedMm, 0.51);
    EXPECT_NEAR(spread.deviationMm, expectedMm, 0.06 * expectedMm);
    EXPECT_NEAR(spread.meanMm, trueMm, 5 * expectedMm / std::sqrt(kTimes) + 1);
  }
}

TEST(SceneRanging, TellsTimeAndVarianceOfTheSameMeasurementAndMayMeasureLessThanNothing) {
  std::vector<AccessPoint> near = {Find(MakeNeighbourhood(kBuiltInAccessPoints, kSeed), kWide)};
  near[0].position = kListener;
  constexpr double kMmPerPs = 0.299792458 / 2;  // there and back
  int negative = 0;
  for (const RangedPeer& peer :
       Measure(near, QueryOf(kWide, {.bandwidth = RangingBandwidth::k20MHz, .framesPerBurst = 1}, 1'000))) {
    EXPECT_NEAR(static_cast<double>(peer.values.rttPs) * kMmPerPs, peer.values.distanceMm, 1);
    EXPECT_NEAR(std::sqrt(static_cast<double>(peer.values.rttVariancePs2)) * kMmPerPs, peer.values.distanceStdMm, 1);
    EXPECT_NEAR(peer.values.signalMbm, peer.signalMbm, 400);
    EXPECT_EQ(peer.values.burstsAsked, 2u);
    EXPECT_EQ(peer.values.burstsAnswered, 2u);
    negative += peer.values.distanceMm < 0;
  }
  EXPECT_NEAR(negative, 500, 80);
}

TEST(SceneRanging, GivesTheSameResultsForTheSameSeed) {
  const std::vector<AccessPoint> all = MakeNeighbourhood(kBuiltInAccessPoints, kSeed);
  const auto rtt = [&](uint64_t seed) { return Measure(all, QueryOf(kWide), seed).at(0).values.rttPs; };
  EXPECT_EQ(rtt(1), rtt(1));
  EXPECT_NE(rtt(1), rtt(2));
}

TEST(SceneRanging, LosesBurstsOfAWeakPeer) {
  const AccessPoint strong = Find(MakeNeighbourhood(kBuiltInAccessPoints, kSeed), kWide);
  constexpr size_t kTimes = 500;
  // Bursts of two frames, eight of them, tried twice: all, many, few and none come through.
  const RangingParameters parameters{.burstExponent = 3, .framesPerBurst = 2, .retries = 1};
  const struct {
    int32_t signalDbm;
    double leastBursts, mostBursts;  // mean
    bool sometimesNone;
  } cases[] = {{-78, 8, 8, false}, {-84, 6, 7.6, false}, {-93, 0.3, 0.8, true}, {-95, 0, 0, true}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.signalDbm);
    std::vector<AccessPoint> weak = {strong};
    weak[0].transmitDbm += c.signalDbm - SignalMbm(strong, kSeed) / 100;
    double bursts = 0;
    int none = 0;
    for (const RangedPeer& peer : Measure(weak, QueryOf(kWide, parameters, kTimes))) {
      EXPECT_EQ(peer.values.burstsAsked, 8u);
      EXPECT_EQ(peer.values.status,
                peer.values.burstsAnswered == 0 ? RangingStatus::kNoResponse : RangingStatus::kSuccess);
      bursts += peer.values.burstsAnswered;
      none += peer.values.burstsAnswered == 0;
    }
    EXPECT_GE(bursts / kTimes, c.leastBursts);
    EXPECT_LE(bursts / kTimes, c.mostBursts);
    EXPECT_EQ(none > 0, c.sometimesNone);
  }
}

TEST(SceneRanging, AnswersAbsurdParameters) {
  const std::vector<AccessPoint> all = MakeNeighbourhood(kBuiltInAccessPoints, kSeed);
  for (const int32_t number : {INT32_MIN, -1, 1, INT32_MAX}) {
    const auto choice = static_cast<uint32_t>(number);
    const RangingParameters parameters = {0,
                                          number,
                                          number == 1 ? 0 : number,
                                          static_cast<RangingBandwidth>(choice),
                                          choice,
                                          static_cast<RangingPreamble>(choice),
                                          static_cast<wifi::RangingProtocol>(choice),
                                          number,
                                          255,
                                          255};
    const RangedPeer peer = Measure(all, QueryOf(kWide, parameters)).at(0);
    EXPECT_EQ(peer.values.status, RangingStatus::kSuccess) << number;
    EXPECT_GT(peer.values.distanceMm, 0) << number;
  }
}

}  // namespace
}  // namespace vexo_host
