#include "host/vexo_client/scene/ranging.h"

#include <algorithm>
#include <cmath>

#include "host/vexo_client/discovery_query.h"
#include "host/vexo_client/scene/neighbourhood.h"
#include "host/wifi/ranging_parameters.h"

namespace vexo_host {
namespace {

using wifi::RangingParameters;
using wifi::RangingStatus;

constexpr uint64_t kRoundStream = 1ull << 48;  // of the noise; the streams of single access points lie below
constexpr double kLightMmPerPs = 0.299792458;

constexpr uint32_t kMaxBurstExponent = 3;
constexpr uint32_t kStandardFrames = 8, kMaxFrames = 31;  // in a burst
constexpr uint32_t kStandardRetries = 3;                  // of a burst that is not answered

uint32_t Bursts(const RangingParameters& parameters) {
  return 1u << (parameters.burstExponent <= kMaxBurstExponent ? parameters.burstExponent : wifi::kDefaultBurstExponent);
}

uint32_t Frames(const RangingParameters& parameters) {
  if (parameters.framesPerBurst == 0) return kStandardFrames;
  return std::min<uint32_t>(parameters.framesPerBurst, kMaxFrames);
}

// The widest channel of which frames of a kind are made.
uint32_t WidestOf(Phy phy) {
  switch (phy) {
    case Phy::kDsss:
    case Phy::kErp:
      return 20;
    case Phy::kHt:
      return 40;
    case Phy::kVht:
    case Phy::kHe:
      return 160;
    case Phy::kEht:
      return 320;
  }
  return 20;
}

// The preamble asked for, or the best that the access point has.
Phy PhyOf(const AccessPoint& ap, wifi::RangingPreamble preamble) {
  switch (preamble) {
    case wifi::RangingPreamble::kLegacy:
      return std::min(ap.phy, Phy::kErp);
    case wifi::RangingPreamble::kHt:
      return std::min(ap.phy, Phy::kHt);
    case wifi::RangingPreamble::kVht:
      return std::min(ap.phy, Phy::kVht);
    case wifi::RangingPreamble::kHe:
      return std::min(ap.phy, Phy::kHe);
    case wifi::RangingPreamble::kChoose:
      break;
  }
  return ap.phy;
}

// The widest that the access point and the preamble allow, unless less is asked for.
uint32_t BandwidthMhz(const AccessPoint& ap, const RangingParameters& parameters) {
  const uint32_t widest = std::min(ap.widthMhz, WidestOf(PhyOf(ap, parameters.preamble)));
  const auto asked = static_cast<uint32_t>(parameters.bandwidth);
  const bool choose = asked == 0 || asked > static_cast<uint32_t>(wifi::RangingBandwidth::k320MHz);
  return choose ? widest : std::min(widest, 10u << asked);
}

// Standard deviation of the distance that one frame gives: the wider the band, the sharper its time of arrival.
double FrameErrorMm(uint32_t bandwidthMhz) {
  if (bandwidthMhz >= 320) return 150;
  if (bandwidthMhz >= 160) return 300;
  if (bandwidthMhz >= 80) return 600;
  if (bandwidthMhz >= 40) return 1'200;
  return 2'000;
}

// The share of frames that come through: all down to -80 dBm, none from -95 dBm on.
double FrameChance(int32_t signalMbm) { return std::clamp((signalMbm + 9'500) / 1'500.0, 0.0, 1.0); }

// Whether one of the tries came through.
bool Reaches(double chance, uint32_t tries, Noise& noise) {
  while (tries-- > 0) {
    if (noise.Unit() < chance) return true;
  }
  return false;
}

struct Received {
  uint32_t bursts = 0, frames = 0;
  double errorMm = 0, signalMbm = 0;  // sums over the frames
};

Received Receive(uint32_t bandwidthMhz, int32_t signalMbm, const RangingParameters& parameters, Noise& noise) {
  constexpr double kSignalJitterMbm = 100;
  const double chance = FrameChance(signalMbm);
  const double frameErrorMm = FrameErrorMm(bandwidthMhz);
  const uint32_t tries = 1 + (parameters.retries == 0 ? kStandardRetries : parameters.retries);
  Received received;
  for (uint32_t burst = Bursts(parameters); burst-- > 0;) {
    if (!Reaches(chance, tries, noise)) continue;
    const uint32_t before = received.frames;
    for (uint32_t frame = Frames(parameters); frame-- > 0;) {
      if (noise.Unit() >= chance) continue;
      ++received.frames;
      received.errorMm += frameErrorMm * noise.Normal();
      received.signalMbm += signalMbm + kSignalJitterMbm * noise.Normal();
    }
    if (received.frames > before) ++received.bursts;
  }
  return received;
}

void MeasureDistance(const AccessPoint& ap, int32_t signalMbm, const RangingParameters& parameters, Noise& noise,
                     wifi::RangingValues& values) {
  const uint32_t bandwidthMhz = BandwidthMhz(ap, parameters);
  const Received received = Receive(bandwidthMhz, signalMbm, parameters, noise);
  values.burstsAnswered = static_cast<uint16_t>(received.bursts);
  if (received.frames == 0) {
    values.status = RangingStatus::kNoResponse;
    return;
  }
  const double distanceMm = 1'000 * Distance(ap.position, kListener) + received.errorMm / received.frames;
  const double deviationMm = FrameErrorMm(bandwidthMhz) / std::sqrt(received.frames);
  const double deviationPs = 2 * deviationMm / kLightMmPerPs;
  values.status = RangingStatus::kSuccess;
  values.distanceMm = static_cast<int32_t>(std::lround(distanceMm));
  values.distanceStdMm = static_cast<uint32_t>(std::lround(deviationMm));
  values.rttPs = std::llround(2 * distanceMm / kLightMmPerPs);
  values.rttVariancePs2 = static_cast<uint64_t>(std::llround(deviationPs * deviationPs));
  values.signalMbm = static_cast<int32_t>(std::lround(received.signalMbm / received.frames));
}

void Ask(const AccessPoint& ap, int32_t signalMbm, const RangingParameters& parameters, Noise& noise,
         wifi::RangingValues& values) {
  values.burstsAsked = static_cast<uint16_t>(ap.ftm == Ftm::kNone ? 0 : Bursts(parameters));
  switch (ap.ftm) {
    case Ftm::kNone:
      values.status = RangingStatus::kNotCapable;
      break;
    case Ftm::kAnswers:
      MeasureDistance(ap, signalMbm, parameters, noise, values);
      break;
    case Ftm::kSilent:
      values.status = RangingStatus::kNoResponse;
      break;
    case Ftm::kRefuses:
      values.status = RangingStatus::kRejected;
      values.signalMbm = signalMbm;
      break;
    case Ftm::kBusy:
      values.status = RangingStatus::kBusy;
      values.signalMbm = signalMbm;
      break;
  }
}

}  // namespace

SceneRanging::SceneRanging(const std::vector<AccessPoint>& accessPoints, uint64_t someSeed) : seed(someSeed) {
  byBssid.reserve(accessPoints.size());
  for (const AccessPoint& ap : accessPoints) byBssid.push_back(&ap);
  std::sort(byBssid.begin(), byBssid.end(),
            [](const AccessPoint* a, const AccessPoint* b) { return a->bssid < b->bssid; });
}

const AccessPoint* SceneRanging::Find(uint64_t bssid) const {
  const auto found = std::lower_bound(byBssid.begin(), byBssid.end(), bssid,
                                      [](const AccessPoint* ap, uint64_t wanted) { return ap->bssid < wanted; });
  return found != byBssid.end() && (*found)->bssid == bssid ? *found : nullptr;
}

std::vector<RangedPeer> SceneRanging::Measure(const RangingQuery& query, uint64_t round,
                                              std::chrono::milliseconds duration) const {
  std::vector<RangedPeer> peers;
  peers.reserve(query.nodes.size());
  Noise roundNoise(seed, kRoundStream + round);
  for (const zv_loc_fw::VEXONodeInfo& node : query.nodes) {
    peers.push_back(MeasureOne(node, Noise(roundNoise.Next(), peers.size()), duration));
  }
  return peers;
}

RangedPeer SceneRanging::MeasureOne(const zv_loc_fw::VEXONodeInfo& node, Noise noise,
                                    std::chrono::milliseconds duration) const {
  const RangingParameters parameters = wifi::LoadRangingParameters(node);
  RangedPeer peer;
  peer.takenAt = std::chrono::steady_clock::now();
  if (parameters.timeoutMs > 0 && parameters.timeoutMs < duration.count()) {
    peer.values.status = RangingStatus::kNotMeasured;
    return peer;
  }
  const AccessPoint* const ap = Find(AddressBits(node.address));
  if (ap == nullptr) {
    peer.values.status = RangingStatus::kUnknownPeer;
    return peer;
  }
  peer.frequencyMhz = ap->frequencyMhz;
  peer.signalMbm = SignalMbm(*ap, seed);
  if (parameters.frequencyMhz != 0 && static_cast<uint32_t>(parameters.frequencyMhz) != ap->frequencyMhz) {
    peer.values.status = RangingStatus::kWrongChannel;
  } else {
    Ask(*ap, peer.signalMbm, parameters, noise, peer.values);
  }
  return peer;
}

}  // namespace vexo_host
