#include "host/vexo_client/scene/scene_source.h"

#include <new>
#include <utility>

#include "host/vexo_client/scene/beacon.h"
#include "host/vexo_client/scene/noise.h"
#include "platform/log.h"

namespace vexo_host {
namespace {

using wifi::ScanStatus;

constexpr uint64_t kUptimeStream = 1ull << 41;  // of the noise
constexpr uint32_t kLongestUptimeS = 90 * 24 * 60 * 60;

}  // namespace

SceneSource::SceneSource(const SceneOptions& someOptions, Scheduler& someScheduler)
    : options(someOptions),
      scheduler(someScheduler),
      begun(std::chrono::steady_clock::now()),
      accessPoints(MakeNeighbourhood(someOptions.accessPoints, someOptions.seed)),
      ranging(accessPoints, someOptions.seed) {}

void SceneSource::StartScan(std::shared_ptr<const DiscoveryQuery> query, ScanDone done) noexcept {
  bool begunScan = false;
  try {
    const auto scan = [this, query = std::move(query), done] { Scan(*query, done); };
    begunScan = scheduler.At(Scheduler::Clock::now() + options.delay, scan).has_value();
  } catch (const std::bad_alloc&) {
    // Answered below.
  }
  if (!begunScan) done(ScanStatus::kFailed, {});
}

void SceneSource::Scan(const DiscoveryQuery& query, const ScanDone& done) const noexcept {
  std::vector<Bss> found;
  ScanStatus status = ScanStatus::kOk;
  const auto now = std::chrono::steady_clock::now();
  try {
    for (const AccessPoint& ap : accessPoints) {
      if (query.filters.AdmitsFrequency(ap.frequencyMhz)) found.push_back(Hear(ap, query, now));
    }
  } catch (const std::bad_alloc&) {
    zv_loc_fw::log_error("vexo_client", "no memory for a scan of the scene\n");
    found.clear();
    status = ScanStatus::kFailed;
  }
  done(status, std::move(found));
}

Bss SceneSource::Hear(const AccessPoint& ap, const DiscoveryQuery& query,
                      std::chrono::steady_clock::time_point now) const {
  const Ssid ssid(ap.ssid.begin(), ap.ssid.end());
  const bool hidden = ap.ssidInBeacon != SsidInBeacon::kShown;
  const bool answersProbe = hidden && query.scanType == wifi::ScanType::kActive && query.filters.ListsSsid(ssid);

  Bss bss;
  bss.bssid = ap.bssid;
  if (!hidden || answersProbe) {
    bss.ssid = ssid;
  } else {
    bss.ssid.emplace(ap.ssidInBeacon == SsidInBeacon::kZeroed ? ssid.size() : 0);
  }
  bss.frequencyMhz = ap.frequencyMhz;
  bss.signalMbm = SignalMbm(ap, options.seed);
  const auto listening = std::chrono::duration_cast<std::chrono::microseconds>(now - begun).count();
  const uint64_t uptimeUs = Noise(options.seed, kUptimeStream ^ ap.bssid).Below(kLongestUptimeS) * 1'000'000ull;
  bss.timestampUs = uptimeUs + static_cast<uint64_t>(listening);
  bss.beaconIntervalTu = 100;
  bss.capability = CapabilityOf(ap);
  bss.elements = ElementsOf(ap, answersProbe ? FrameKind::kProbeResponse : FrameKind::kBeacon);
  bss.takenAt = now;
  return bss;
}

void SceneSource::StartRanging(std::shared_ptr<const RangingQuery> query, RangingDone done) noexcept {
  bool begunRound = false;
  try {
    const auto range = [this, query = std::move(query), round = nextRound++, done] { Range(*query, round, done); };
    begunRound = scheduler.At(Scheduler::Clock::now() + options.delay, range).has_value();
  } catch (const std::bad_alloc&) {
    // Answered below.
  }
  if (!begunRound) done(ScanStatus::kFailed, {});
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
