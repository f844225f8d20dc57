// Repeatable pseudo-random numbers: the same inputs give the same numbers everywhere.
#ifndef KESD_HOST_VEXO_CLIENT_SCENE_NOISE_H_
#define KESD_HOST_VEXO_CLIENT_SCENE_NOISE_H_

#include <cstdint>

namespace vexo_host {

// The splitmix64 generator.
class Noise {
 public:
  Noise(uint64_t seed, uint64_t stream) : state(seed * 0x9E3779B97F4A7C15 ^ (stream + 1) * 0xD1B54A32D192ED03) {}

  uint64_t Next() {
    state += 0x9E3779B97F4A7C15;
    uint64_t z = state;
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EB;
    return z ^ (z >> 31);
  }

  // Below `limit`, which is not 0.
  uint32_t Below(uint32_t limit) { return static_cast<uint32_t>(Next() % limit); }

  // From 0 to below 1.
  double Unit() { return static_cast<double>(Next() >> 11) * 0x1p-53; }

  // About normally distributed, with mean 0 and standard deviation 1, and never beyond 3.5.
  double Normal() {
    double sum = 0;
    for (int i = 0; i < 4; ++i) sum += Unit();
    return (sum - 2) * 1.7320508;
  }

 private:
  uint64_t state;
};

}  // namespace vexo_host

#endif  // KESD_HOST_VEXO_CLIENT_SCENE_NOISE_H_
