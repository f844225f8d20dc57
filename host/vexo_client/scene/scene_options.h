// What may be said about a scene.
#ifndef KESD_HOST_VEXO_CLIENT_SCENE_SCENE_OPTIONS_H_
#define KESD_HOST_VEXO_CLIENT_SCENE_SCENE_OPTIONS_H_

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

#include "host/vexo_client/scene/neighbourhood.h"

namespace vexo_host {

struct SceneOptions {
  uint32_t accessPoints = kBuiltInAccessPoints;
  uint64_t seed = 1;
  std::chrono::milliseconds delay{250};  // how long a scan takes
  uint32_t fadingDb = 0;                 // standard deviation of the signals over time
};

// For error messages: the keys that ParseSceneOptions knows, with their ranges.
inline constexpr char kSceneOptionKeys[] =
    "aps=0..20000, seed=0..18446744073709551615, delay=0..600000 ms, fading=0..20 dB";

// Reads `key=value,...`, each key at most once. False when something is wrong with it; then `error` says what.
bool ParseSceneOptions(std::string_view text, SceneOptions& options, std::string& error);

}  // namespace vexo_host

#endif  // KESD_HOST_VEXO_CLIENT_SCENE_SCENE_OPTIONS_H_
