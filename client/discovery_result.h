// What a discovery scan found, decoded from the records that the daemon delivered.
#ifndef KESD_CLIENT_DISCOVERY_RESULT_H_
#define KESD_CLIENT_DISCOVERY_RESULT_H_

#include <cstdint>
#include <span>
#include <vector>

#include "client/mac_address.h"
#include "client/result.h"
#include "host/wifi/information_elements.h"
#include "host/wifi/measurement_values.h"

namespace kes {

// One access point as it was measured.
struct Measurement {
  MacAddress bssid{};
  bool ssidValid = false;     // the measurement holds an SSID, perhaps an empty one
  std::vector<uint8_t> ssid;  // octets, not text, at most 32; empty when not valid
  wifi::ScanValues values;
  uint32_t ageMs = 0;  // when the daemon's library put the result together
  // Information elements back to back, whole ones only, as they were delivered; walk them with wifi::ElementReader.
  std::vector<uint8_t> elements;
  // Something that the record refers to was not delivered, or not whole; this has what was.
  bool incomplete = false;
};

struct DiscoveryResult {
  wifi::ScanStatus status = wifi::ScanStatus::kOk;       // may hold a number that has no name
  wifi::SourceKind source = wifi::SourceKind::kUnknown;  // so may this
  std::vector<Measurement> measurements;                 // in the order of delivery
};

// The buffers of a result invocation, in slot order.
struct DiscoveryResultBuffers {
  std::span<const uint8_t> header;
  std::span<const uint8_t> measurements;
  std::span<const uint8_t> infos;
  std::span<const uint8_t> bytes;
};

// Reads nothing outside the buffers, whatever they hold, and keeps nothing of them. kProtocol when a buffer is no whole
// number of its records; kOutOfMemory.
Result<DiscoveryResult> DecodeDiscoveryResult(const DiscoveryResultBuffers& buffers);

}  // namespace kes

#endif  // KESD_CLIENT_DISCOVERY_RESULT_H_
