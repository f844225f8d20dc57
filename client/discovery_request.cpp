#include "client/discovery_request.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace kes {

Result<DiscoveryRequestBuffers> EncodeDiscoveryRequest(const DiscoveryRequest& request) try {
  DiscoveryRequestBuffers buffers{};

  DiscoveryScanParams params{};
  params.timeout = request.timeoutMs;
  params.scan_type = static_cast<uint32_t>(request.scanType);
  params.mode = static_cast<uint32_t>(request.mode);
  params.age_filter = request.maxAgeMs;
  params.fallback_param = request.fallbackBelow;
  params.band = static_cast<uint32_t>(request.band);
  std::memcpy(buffers.params.data(), &params, buffers.params.size());

  buffers.channels.reserve(request.channels.size());
  for (const uint32_t channel : request.channels) buffers.channels.push_back({channel});

  buffers.ssids.reserve(request.ssids.size());
  for (const std::vector<uint8_t>& ssid : request.ssids) {
    if (ssid.size() > kMaxSsidOctets) {
      return Error{ErrorKind::kInvalidArgument, "an SSID has at most 32 octets, not " + std::to_string(ssid.size())};
    }
    DiscoverySsidEntry entry{};
    entry.length = static_cast<uint16_t>(ssid.size());
    std::copy(ssid.begin(), ssid.end(), entry.ssid);
    buffers.ssids.push_back(entry);
  }

  buffers.macs.reserve(request.bssids.size());
  for (const MacAddress& bssid : request.bssids) buffers.macs.push_back({Low24(bssid), High24(bssid)});
  return buffers;
} catch (const std::bad_alloc&) {
  return OutOfMemory();
}

}  // namespace kes
