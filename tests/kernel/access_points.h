// Access points on simulated radios, which hostapd runs.
#ifndef KESD_TESTS_KERNEL_ACCESS_POINTS_H_
#define KESD_TESTS_KERNEL_ACCESS_POINTS_H_

#include <cstdint>
#include <string>
#include <vector>

#include "tests/process.h"

namespace kernel_test {

struct AccessPoint {
  const char* interface;
  const char* ssid;
  uint32_t frequencyMhz;
  const char* configuration;  // hostapd's lines beside the interface, the SSID and the country
  const char* security;       // as kesctl names it
  const char* phy;
  bool hidden = false;
};

// Those that are there for all tests; wlan0 listens.
extern const std::vector<AccessPoint> kAccessPoints;

// Runs access points until it goes. Ready is false when they do not get ready.
class Hostapd {
 public:
  explicit Hostapd(const std::vector<AccessPoint>& accessPoints);
  bool Ready() const { return ready; }

 private:
  testing_process::Process process;
  bool ready = false;
};

// The BSSID of an interface, which is its address, as kesctl writes it.
std::string AddressOf(const std::string& interface);

// Runs a program of the system with its arguments, the whole as one line of words.
testing_process::Outcome Command(const std::string& line);

}  // namespace kernel_test

#endif  // KESD_TESTS_KERNEL_ACCESS_POINTS_H_
