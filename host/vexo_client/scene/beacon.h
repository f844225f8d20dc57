// The bodies of the management frames that an access point of the scene sends.
#ifndef KESD_HOST_VEXO_CLIENT_SCENE_BEACON_H_
#define KESD_HOST_VEXO_CLIENT_SCENE_BEACON_H_

#include <cstdint>
#include <vector>

#include "host/vexo_client/scene/access_point.h"

namespace vexo_host {

// A probe response gives the SSID also where the beacon hides it, and has no traffic indication map.
enum class FrameKind : uint8_t { kBeacon, kProbeResponse };

// The Capability Information field (IEEE Std 802.11-2020, 9.4.1.4).
uint16_t CapabilityOf(const AccessPoint& ap);

// The elements in the standard's order (9.3.3.2, 9.3.3.10).
std::vector<uint8_t> ElementsOf(const AccessPoint& ap, FrameKind kind);

}  // namespace vexo_host

#endif  // KESD_HOST_VEXO_CLIENT_SCENE_BEACON_H_
