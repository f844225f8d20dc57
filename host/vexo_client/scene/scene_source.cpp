#include "host/vexo_client/scene/scene_source.h"

#include <cmath>
#include <new>
#include <utility>

#include "host/vexo_client/scene/beacon.h"
#include "host/vexo_client/scene/noise.h"
#include "platform/log.h"

namespace vexo_host {
namespace {

using wifi::ScanStatus;

constexpr uint64_t kUptimeStream = 1ull << 41;  // of the noise
constexpr uint64_t kFadingStream = 1ull << 42;
constexpr int kFadingStreamBits = 43;  // above them the stream's number counts steps of time
constexpr std::chrono::microseconds kFadingStep = std::chrono::seconds(5);
constexpr uint32_t kLongestUptimeS = 90 * 24 * 60 * 60;
constexpr uint16_t kBeaconIntervalTu = 100;
constexpr std::chrono::microseconds kBeaconInterval{kBeaconIntervalTu * 1024};

}  // namespace

SceneSource::SceneSource(const SceneOptions& someOptions, Scheduler& someScheduler)
    : options(someOptions),
      scheduler(someScheduler),
      begun(std::chrono::steady_clock::now()),
      accessPoints(MakeNeighbourhood(someOptions.accessPoints, someOptions.seed)),
      ranging(accessPoints, someOptions.seed) {}

// False when there is no memory to keep it.
template <typename Task>
bool SceneSource::AfterDelay(Task&& task) noexcept try {
  if (options.delay.count() == 0) return scheduler.Now(std::forward<Task>(task));
  return scheduler.At(Scheduler::Clock::now() + options.delay, std::forward<Task>(task)).has_value();
} catch (const std::bad_alloc&) {
  return false;
}

bool SceneSource::StartScan(std::shared_ptr<const DiscoveryQuery> query, ScanDone done) noexcept {
  return AfterDelay([this, query = std::move(query), done = std::move(done)] { Scan(*query, done); });
}

void SceneSource::Scan(const DiscoveryQuery& query, const ScanDone& done) noexcept {
  BssList found;
  ScanStatus status = ScanStatus::kOk;
  try {
    found = Listen(query);
  } catch (const std::bad_alloc&) {
    zv_loc_fw::log_error("vexo_client", "no memory for a scan of the scene\n");
    status = ScanStatus::kFailed;
  }
  done(status, std::move(found));
}

// The frames that came last on the channels asked for, a hidden network's answer to a probe among them.
BssList SceneSource::Listen(const DiscoveryQuery& query) {
  const BssList latest = LatestBeacons();
  auto found = std::make_shared<std::vector<BssPointer>>();
  bool other = false;  // than all of the latest
  for (size_t i = 0; i < accessPoints.size(); ++i) {
    const AccessPoint& ap = accessPoints[i];
    const bool heard = query.filters.AdmitsFrequency(ap.frequencyMhz) && (*latest)[i]->signalMbm >= kWeakestSignalMbm;
    const bool answers = heard && AnswersProbe(ap, query);
    if (!other && heard && !answers) continue;
    if (!std::exchange(other, true)) found->assign(latest->begin(), latest->begin() + static_cast<ptrdiff_t>(i));
    if (answers) {
      found->push_back(std::make_shared<const SharedBss>(Hear(ap, true, std::chrono::steady_clock::now())));
    } else if (heard) {
      found->push_back((*latest)[i]);
    }
  }
  return other ? BssList(std::move(found)) : latest;
}

// Each access point sends a beacon in every interval, so whoever listens within the same interval hears the same.
BssList SceneSource::LatestBeacons() {
  const auto now = std::chrono::steady_clock::now();
  const kesd::MutexLock lock(mutex);
  if (beacons != nullptr && now - beaconsSent < kBeaconInterval) return beacons;
  std::vector<Bss> heard;
  heard.reserve(accessPoints.size());
  for (const AccessPoint& ap : accessPoints) heard.push_back(Hear(ap, false, now));
  beacons = MakeBssList(std::move(heard));
  beaconsSent = now;
  return beacons;
}

bool SceneSource::AnswersProbe(const AccessPoint& ap, const DiscoveryQuery& query) {
  return ap.ssidInBeacon != SsidInBeacon::kShown && query.scanType == wifi::ScanType::kActive &&
         query.filters.ListsSsid(Ssid(ap.ssid.begin(), ap.ssid.end()));
}

// From step to step the fading goes from one normally distributed number straight to the next one.
int32_t SceneSource::FadedSignalMbm(const AccessPoint& ap, std::chrono::microseconds listening) const {
  const int32_t signal = SignalMbm(ap, options.seed);
  if (options.fadingDb == 0) return signal;
  const auto step = static_cast<uint64_t>(listening / kFadingStep);
  const auto at = [&](uint64_t which) {
    return Noise(options.seed, (kFadingStream ^ ap.bssid) + (which << kFadingStreamBits)).Normal();
  };
  const double share =
      static_cast<double>((listening % kFadingStep).count()) / static_cast<double>(kFadingStep.count());
  return signal +
         static_cast<int32_t>(std::lround(100.0 * options.fadingDb * std::lerp(at(step), at(step + 1), share)));
}

Bss SceneSource::Hear(const AccessPoint& ap, bool answersProbe, std::chrono::steady_clock::time_point now) const {
  const Ssid ssid(ap.ssid.begin(), ap.ssid.end());
  Bss bss;
  bss.bssid = ap.bssid;
  if (ap.ssidInBeacon == SsidInBeacon::kShown || answersProbe) {
    bss.ssid = ssid;
  } else {
    bss.ssid.emplace(ap.ssidInBeacon == SsidInBeacon::kZeroed ? ssid.size() : 0);
  }
  bss.frequencyMhz = ap.frequencyMhz;
  const auto listening = std::chrono::duration_cast<std::chrono::microseconds>(now - begun);
  bss.signalMbm = FadedSignalMbm(ap, listening);
  const uint64_t uptimeUs = Noise(options.seed, kUptimeStream ^ ap.bssid).Below(kLongestUptimeS) * 1'000'000ull;
  bss.timestampUs = uptimeUs + static_cast<uint64_t>(listening.count());
  bss.beaconIntervalTu = kBeaconIntervalTu;
  bss.capability = CapabilityOf(ap);
  bss.elements = ElementsOf(ap, answersProbe ? FrameKind::kProbeResponse : FrameKind::kBeacon);
  bss.takenAt = now;
  return bss;
}

bool SceneSource::StartRanging(std::shared_ptr<const RangingQuery> query, RangingDone done) noexcept {
  return AfterDelay(
      [this, query = std::move(query), round = nextRound++, done = std::move(done)] { Range(*query, round, done); });
}

void SceneSource::Range(const RangingQuery& query, uint64_t round, const RangingDone& done) const noexcept {
  std::vector<RangedPeer> peers;
  ScanStatus status = ScanStatus::kOk;
  try {
    peers = ranging.Measure(query, round, options.delay);
  } catch (const std::bad_alloc&) {
    zv_loc_fw::log_error("vexo_client", "no memory for a ranging in the scene\n");
    status = ScanStatus::kFailed;
  }
  done(status, std::move(peers));
}

}  // namespace vexo_host
