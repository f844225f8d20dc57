// A ranging request, typed, and the two buffers that carry it to the daemon.
#ifndef KESD_CLIENT_RANGING_REQUEST_H_
#define KESD_CLIENT_RANGING_REQUEST_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "client/mac_address.h"
#include "client/result.h"
#include "host/wifi/ranging_parameters.h"
#include "marshal/records.h"

namespace kes {

// As many nodes as the daemon takes in one message.
inline constexpr std::size_t kMaxRangingNodes = 16'000;

struct RangingNode {
  MacAddress mac{};
  std::optional<MacAddress> secondMac = {};  // another address of the same device
  wifi::RangingParameters parameters = {};
};

// Rounds of ranging. The daemon delivers the result of the first and drops the others, and aborting the request does
// not end them.
struct PeriodicRanging {
  int32_t intervalMs = 1'000;  // from round to round, kMinRangingIntervalMs to kMaxRangingIntervalMs
  int32_t rounds = 1;          // 1 to kMaxRangingRounds
};

struct RangingRequest {
  std::vector<RangingNode> nodes = {};           // the same one may stand more than once
  std::optional<PeriodicRanging> periodic = {};  // none: one-shot
  int64_t timeoutMs = 0;                         // until the daemon answers with what it has; 0 is its default
};

// The buffers of the invocation, in slot order.
struct RangingRequestBuffers {
  std::vector<uint8_t> nodes;  // RangingNodeRecord, or PeriodicRangingNodeRecord of a periodic request
  RangingScanParams params;
};

// kInvalidArgument when there are more than kMaxRangingNodes; kOutOfMemory.
Result<RangingRequestBuffers> EncodeRangingRequest(const RangingRequest& request);

}  // namespace kes

#endif  // KESD_CLIENT_RANGING_REQUEST_H_
