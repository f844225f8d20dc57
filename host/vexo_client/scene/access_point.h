// An access point of the scene: where it stands and what it sends.
#ifndef KESD_HOST_VEXO_CLIENT_SCENE_ACCESS_POINT_H_
#define KESD_HOST_VEXO_CLIENT_SCENE_ACCESS_POINT_H_

#include <cstdint>
#include <string>

namespace vexo_host {

// The newest of the standard's physical layers that it offers; it offers the older ones of its band too.
enum class Phy : uint8_t { kDsss, kErp, kHt, kVht, kHe, kEht };

enum class Security : uint8_t {
  kOpen,
  kWep,
  kWpaPsk,
  kWpa2Psk,
  kWpa2Enterprise,
  kWpa2Wpa3Transition,
  kWpa3Sae,
  kOwe,
  kOweTransition,  // open; points to a hidden OWE network
};

// How its beacons give the SSID.
enum class SsidInBeacon : uint8_t { kShown, kEmpty, kZeroed };

// What a request for a fine timing measurement brings. In all cases but the first the extended capabilities say that it
// is answered.
enum class Ftm : uint8_t { kNone, kAnswers, kSilent, kRefuses, kBusy };

struct Position {
  double x, y, z;  // metres; x to the east, y to the north, z up
};

struct AccessPoint {
  uint64_t bssid = 0;
  std::string ssid;  // octets, not text
  bool utf8Ssid = false;
  SsidInBeacon ssidInBeacon = SsidInBeacon::kShown;
  uint32_t frequencyMhz = 0;  // centre of the primary channel
  uint32_t widthMhz = 20;
  Phy phy = Phy::kHt;
  Security security = Security::kOpen;
  Ftm ftm = Ftm::kNone;
  bool sitePlan = false;     // sends the vendor element with OUI 02-4B-9E
  int32_t transmitDbm = 20;  // at the antenna
  Position position{0, 0, 0};
  uint64_t partnerBssid = 0;  // of the other half of an OWE transition pair
  std::string partnerSsid;
};

}  // namespace vexo_host

#endif  // KESD_HOST_VEXO_CLIENT_SCENE_ACCESS_POINT_H_
