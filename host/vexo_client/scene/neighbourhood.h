// The access points of a scene.
#ifndef KESD_HOST_VEXO_CLIENT_SCENE_NEIGHBOURHOOD_H_
#define KESD_HOST_VEXO_CLIENT_SCENE_NEIGHBOURHOOD_H_

#include <cstdint>
#include <vector>

#include "host/vexo_client/scene/access_point.h"

namespace vexo_host {

inline constexpr uint32_t kBuiltInAccessPoints = 13;
inline constexpr uint32_t kMaxAccessPoints = 20'000;

// Where the scene is listened to.
inline constexpr Position kListener{0, 0, 1.5};

// The first `count` access points: the built-in ones, which are the same for every seed, then generated ones.
// Throws std::bad_alloc.
std::vector<AccessPoint> MakeNeighbourhood(uint32_t count, uint64_t seed);

// Metres.
double Distance(const Position& a, const Position& b);

// What a receiver can still decode.
inline constexpr int32_t kWeakestSignalMbm = -9500;

// What the listener receives of it, in 1/100 dBm: log-distance path loss and a shadowing that is the same each time.
// Never below the weakest.
int32_t SignalMbm(const AccessPoint& ap, uint64_t seed);

}  // namespace vexo_host

#endif  // KESD_HOST_VEXO_CLIENT_SCENE_NEIGHBOURHOOD_H_
