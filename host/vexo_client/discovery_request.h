// The discovery request that the library's factories make.
#ifndef KESD_HOST_VEXO_CLIENT_DISCOVERY_REQUEST_H_
#define KESD_HOST_VEXO_CLIENT_DISCOVERY_REQUEST_H_

#include <cstdint>

#include "host/wifi/discovery_parameters.h"
#include "platform/vexo_request.h"

namespace vexo_host {

enum class ScanMode { kFresh, kCacheOnly, kCacheFallback };

class DiscoveryRequest final : public zv_loc_fw::VEXODiscoveryScanRequest {
 public:
  DiscoveryRequest(unsigned int id, ScanMode someMode, long someTimeoutMs)
      : VEXODiscoveryScanRequest(id), mode(someMode), timeoutMs(someTimeoutMs) {}
  ~DiscoveryRequest() override = default;

  const ScanMode mode;
  const int64_t timeoutMs;  // this and what follows as the caller gave it
  wifi::ScanType scanType = wifi::ScanType::kPassive;
  uint32_t ageFilterMs = 0;
  uint32_t fallbackCount = 0;
  wifi::Band band = wifi::Band::kAll;  // not looked at when there are channels
  zv_loc_fw::vector<zv_loc_fw::VEXOChannelInfo> channels;
};

}  // namespace vexo_host

#endif  // KESD_HOST_VEXO_CLIENT_DISCOVERY_REQUEST_H_
