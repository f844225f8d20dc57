// What a ranging request found, decoded from the records that the daemon delivered.
#ifndef KESD_CLIENT_RANGING_RESULT_H_
#define KESD_CLIENT_RANGING_RESULT_H_

#include <cstdint>
#include <span>
#include <vector>

#include "client/mac_address.h"
#include "client/result.h"
#include "host/wifi/measurement_values.h"
#include "host/wifi/ranging_values.h"

namespace kes {

// How the ranging of one peer ended.
struct RangingMeasurement {
  MacAddress bssid{};
  wifi::ScanValues values;
  wifi::RangingValues ranging;  // status kFailed when nothing was delivered; may hold a number that has no name
  std::vector<MacAddress> peers;
  // It has no ranging values, or something that the record refers to was not delivered, or not whole; this has what
  // was.
  bool incomplete = false;
};

struct RangingResult {
  wifi::ScanStatus status = wifi::ScanStatus::kOk;  // may hold a number that has no name
  std::vector<RangingMeasurement> measurements;     // in the order of delivery
};

// The buffers of a result invocation, in slot order.
struct RangingResultBuffers {
  std::span<const uint8_t> header;
  std::span<const uint8_t> measurements;
  std::span<const uint8_t> infos;
  std::span<const uint8_t> bytes;
  std::span<const uint8_t> macs;
};

// Reads nothing outside the buffers, whatever they hold, and keeps nothing of them. kProtocol when a buffer is no whole
// number of its records; kOutOfMemory.
Result<RangingResult> DecodeRangingResult(const RangingResultBuffers& buffers);

}  // namespace kes

#endif  // KESD_CLIENT_RANGING_RESULT_H_
