#include "client/ranging_request.h"

#include <new>

#include "host/fenksocket/limits.h"

namespace kes {
namespace {

static_assert(kMaxRangingNodes * sizeof(PeriodicRangingNodeRecord) + 4096 <= fenk::kServerLimits.maxFrameBytes);

RangingNodeRecord RecordOf(const RangingNode& node) {
  RangingNodeRecord record{};
  record.lo24 = Low24(node.mac);
  record.hi24 = High24(node.mac);
  if (node.secondMac) {
    record.secondLo24 = Low24(*node.secondMac);
    record.secondHi24 = High24(*node.secondMac);
  }
  wifi::StoreRangingParameters(node.parameters, record);
  return record;
}

template <typename Record>
void Append(std::vector<uint8_t>& image, const Record& record) {
  const auto* first = reinterpret_cast<const uint8_t*>(&record);
  image.insert(image.end(), first, first + sizeof record);
}

}  // namespace

Result<RangingRequestBuffers> EncodeRangingRequest(const RangingRequest& request) try {
  if (request.nodes.size() > kMaxRangingNodes) {
    return Error{ErrorKind::kInvalidArgument, "a ranging request has at most " + std::to_string(kMaxRangingNodes) +
                                                  " nodes, not " + std::to_string(request.nodes.size())};
  }
  RangingRequestBuffers buffers{};
  buffers.params.ts = request.timeoutMs;
  for (const RangingNode& node : request.nodes) {
    const RangingNodeRecord record = RecordOf(node);
    if (request.periodic) {
      PeriodicRangingNodeRecord periodic{};
      periodic.node = record;
      periodic.value5 = request.periodic->intervalMs;
      periodic.value6 = request.periodic->rounds;
      Append(buffers.nodes, periodic);
    } else {
      Append(buffers.nodes, record);
    }
  }
  return buffers;
} catch (const std::bad_alloc&) {
  return OutOfMemory();
}

}  // namespace kes
