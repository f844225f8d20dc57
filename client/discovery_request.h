// A discovery scan request, typed, and the four buffers that carry it to the daemon.
#ifndef KESD_CLIENT_DISCOVERY_REQUEST_H_
#define KESD_CLIENT_DISCOVERY_REQUEST_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "client/mac_address.h"
#include "client/result.h"
#include "host/wifi/discovery_parameters.h"
#include "marshal/records.h"

namespace kes {

inline constexpr std::size_t kMaxSsidOctets = 32;

struct DiscoveryRequest {
  wifi::RequestMode mode = wifi::RequestMode::kFresh;
  wifi::ScanType scanType = wifi::ScanType::kActive;
  wifi::Band band = wifi::Band::kAll;            // without channels only
  std::vector<uint32_t> channels = {};           // channel numbers, or centre frequencies in MHz from 1000 on
  std::vector<std::vector<uint8_t>> ssids = {};  // octets, at most 32 each; empty admits every SSID
  std::vector<MacAddress> bssids = {};           // empty admits every BSSID
  uint32_t maxAgeMs = 0;                         // of a cached measurement; 0 admits every age
  uint32_t fallbackBelow = 0;                    // mode kCacheFallback: scan when the cache holds fewer; 0 counts as 1
  int64_t timeoutMs = 0;                         // until the daemon answers with what it has; 0 is its default
};

// The buffers of the invocation, in slot order.
struct DiscoveryRequestBuffers {
  std::array<uint8_t, kDiscoveryScanParamsSize> params;
  std::vector<DiscoveryChannelEntry> channels;
  std::vector<DiscoverySsidEntry> ssids;
  std::vector<DiscoveryMacEntry> macs;
};

// kInvalidArgument when an SSID is longer than 32 octets; kOutOfMemory.
Result<DiscoveryRequestBuffers> EncodeDiscoveryRequest(const DiscoveryRequest& request);

}  // namespace kes

#endif  // KESD_CLIENT_DISCOVERY_REQUEST_H_
