// The source whose air is made up: a neighbourhood of access points.
#ifndef KESD_HOST_VEXO_CLIENT_SCENE_SCENE_SOURCE_H_
#define KESD_HOST_VEXO_CLIENT_SCENE_SCENE_SOURCE_H_

#include <atomic>
#include <chrono>
#include <vector>

#include "host/vexo_client/scene/ranging.h"
#include "host/vexo_client/scene/scene_options.h"
#include "host/vexo_client/scheduler.h"
#include "host/vexo_client/source.h"
#include "support/mutex.h"

namespace vexo_host {

// Hears every access point on the channels asked for, and ranges every node asked for. The same options give the same
// measurements, but for the timestamps, which run on, and the noise of ranging, which each round has of its own. With
// fading, the signals of scans come and go.
class SceneSource final : public MeasurementSource {
 public:
  // Throws std::bad_alloc.
  SceneSource(const SceneOptions& someOptions, Scheduler& someScheduler);

  wifi::SourceKind Kind() const noexcept override { return wifi::SourceKind::kScene; }
  bool StartScan(std::shared_ptr<const DiscoveryQuery> query, ScanDone done) noexcept override;
  bool StartRanging(std::shared_ptr<const RangingQuery> query, RangingDone done) noexcept override;

 private:
  template <typename Task>
  bool AfterDelay(Task&& task) noexcept;
  void Scan(const DiscoveryQuery& query, const ScanDone& done) noexcept;
  BssList Listen(const DiscoveryQuery& query);
  BssList LatestBeacons() KESD_EXCLUDES(mutex);
  static bool AnswersProbe(const AccessPoint& ap, const DiscoveryQuery& query);
  void Range(const RangingQuery& query, uint64_t round, const RangingDone& done) const noexcept;
  int32_t FadedSignalMbm(const AccessPoint& ap, std::chrono::microseconds listening) const;
  Bss Hear(const AccessPoint& ap, bool answersProbe, std::chrono::steady_clock::time_point now) const;

  const SceneOptions options;
  Scheduler& scheduler;
  const std::chrono::steady_clock::time_point begun;
  const std::vector<AccessPoint> accessPoints;
  const SceneRanging ranging;
  std::atomic<uint64_t> nextRound = 0;  // in the order in which they are asked for
  kesd::Mutex mutex;
  BssList beacons KESD_GUARDED_BY(mutex);
  std::chrono::steady_clock::time_point beaconsSent KESD_GUARDED_BY(mutex);
};

}  // namespace vexo_host

#endif  // KESD_HOST_VEXO_CLIENT_SCENE_SCENE_SOURCE_H_
