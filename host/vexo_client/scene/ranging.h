// How the access points of a scene answer fine timing measurements.
#ifndef KESD_HOST_VEXO_CLIENT_SCENE_RANGING_H_
#define KESD_HOST_VEXO_CLIENT_SCENE_RANGING_H_

#include <chrono>
#include <cstdint>
#include <vector>

#include "host/vexo_client/ranging_query.h"
#include "host/vexo_client/scene/access_point.h"
#include "host/vexo_client/scene/noise.h"

namespace vexo_host {

// The distances are the true ones from the scene's listener plus an error of each frame's own, whose standard deviation
// is that of the bandwidth; a result is the mean over the frames received. Frames of a weak access point get lost. Any
// thread may call Measure.
class SceneRanging {
 public:
  // Borrows `accessPoints`, which must stay as they are. Throws std::bad_alloc.
  SceneRanging(const std::vector<AccessPoint>& accessPoints, uint64_t someSeed);

  // An entry for each node, in their order. The same seed, query and round give the same. Nodes whose own timeout is
  // shorter than `duration`, what the measurement takes, are not measured. Throws std::bad_alloc.
  std::vector<RangedPeer> Measure(const RangingQuery& query, uint64_t round, std::chrono::milliseconds duration) const;

 private:
  RangedPeer MeasureOne(const zv_loc_fw::VEXONodeInfo& node, Noise noise, std::chrono::milliseconds duration) const;
  const AccessPoint* Find(uint64_t bssid) const;

  const uint64_t seed;
  std::vector<const AccessPoint*> byBssid;  // sorted
};

}  // namespace vexo_host

#endif  // KESD_HOST_VEXO_CLIENT_SCENE_RANGING_H_
