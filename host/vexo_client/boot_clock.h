// CLOCK_BOOTTIME, in which responses tell time: it goes on while the machine sleeps.
#ifndef KESD_HOST_VEXO_CLIENT_BOOT_CLOCK_H_
#define KESD_HOST_VEXO_CLIENT_BOOT_CLOCK_H_

#include <chrono>
#include <cstdint>
#include <ctime>

namespace vexo_host {

inline uint64_t BootTimeUs() {
  timespec now{};
  clock_gettime(CLOCK_BOOTTIME, &now);
  return static_cast<uint64_t>(now.tv_sec) * 1'000'000 + static_cast<uint64_t>(now.tv_nsec) / 1'000;
}

// The time of something that was taken since, in milliseconds modulo 2^32.
inline uint32_t BootTimeMs(std::chrono::steady_clock::time_point takenAt) {
  const auto age = std::chrono::steady_clock::now() - takenAt;
  const auto boot = std::chrono::microseconds(BootTimeUs()) - age;
  return static_cast<uint32_t>(std::chrono::duration_cast<std::chrono::milliseconds>(boot).count());
}

}  // namespace vexo_host

#endif  // KESD_HOST_VEXO_CLIENT_BOOT_CLOCK_H_
