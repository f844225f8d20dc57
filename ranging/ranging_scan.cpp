#include "ranging/ranging_scan.h"

#include <memory>

#include "dispatcher/buffers.h"
#include "dispatcher/vexo_dispatcher.h"
#include "ipc/services.h"
#include "marshal/records.h"
#include "platform/log.h"
#include "platform/vexo_request.h"
#include "ranging/ranging_result.h"

using zv_loc_fw::log_debug;
using zv_loc_fw::VEXONodeInfo;
using zv_loc_fw::VEXOPeriodicNodeInfo;
using zv_loc_fw::VEXOPeriodicRangingScanRequest;
using zv_loc_fw::VEXORangingScanRequest;

namespace {

constexpr char kTag[] = "kesd";

enum Slot : uint32_t { kNodesSlot, kParamsSlot, kCallbackSlot, kHandleSlot };

uint32_t InRangeOr(uint32_t value, uint32_t first, uint32_t last, uint32_t otherwise) {
  return value >= first && value <= last ? value : otherwise;
}

void Fill(VEXONodeInfo& node, const RangingNodeRecord& record) {
  node.address.setMac(static_cast<int>(record.hi24), static_cast<int>(record.lo24));
  node.value1 = record.value1;
  node.value2 = record.value2;
  node.value3 = record.value3;
  node.choice1 = InRangeOr(record.choice1, 1, 5, 0);
  node.secondAddress.setMac(static_cast<int>(record.secondHi24), static_cast<int>(record.secondLo24));
  node.choice2 = InRangeOr(record.choice2, 0, 3, 1);
  node.choice3 = InRangeOr(record.choice3, 1, 4, 0);
  node.choice4 = InRangeOr(record.choice4, 1, 3, 0);
  node.byte1 = record.byte1;
  node.byte2 = record.byte2;
  node.value4 = record.value4;
}

void Fill(VEXOPeriodicNodeInfo& node, const PeriodicRangingNodeRecord& record) {
  Fill(static_cast<VEXONodeInfo&>(node), record.node);
  node.byte3 = record.byte3;
  node.value5 = record.value5;
  node.value6 = record.value6;
}

// The nodes of a request, in the order of its buffer. One that finds no memory is missing.
template <typename Node, typename Record>
struct Nodes {
  explicit Nodes(const ObjectArg& buffer) {
    for (uint64_t i = 0; i < RecordCount<Record>(buffer); ++i) {
      Node node;
      Fill(node, RecordAt<Record>(buffer, i));
      list.push_back(node);
    }
  }
  zv_loc_fw::vector<Node> list;
};

// Null when there is no memory for the request.
template <typename Request, typename Node>
std::unique_ptr<Request> MakeRequest(uint32_t id, zv_loc_fw::vector<Node>& nodes, int64_t ts) try {
  return std::make_unique<Request>(id, nodes, ts);
} catch (...) {
  return nullptr;
}

int32_t Send(zv_loc_fw::VEXORequest* request, ObjectArg* args) {
  if (request == nullptr) return OBJECT_ERROR;
  const int32_t sent = VexoDispatcher::Get().SendRequest(request, ranging::ResponseReceived, args[kCallbackSlot].object,
                                                         &args[kHandleSlot].object);
  return sent == 0 ? OBJECT_OK : OBJECT_ERROR;
}

int32_t StartRangingScan(ObjectArg* args, int64_t ts) {
  Nodes<VEXONodeInfo, RangingNodeRecord> nodes(args[kNodesSlot]);
  const uint32_t id = ++VexoDispatcher::Get().requestIdCounter;
  const auto request = MakeRequest<VEXORangingScanRequest>(id, nodes.list, ts);
  const int32_t result = Send(request.get(), args);
  const uint32_t loggedId = request != nullptr ? request->getRequestId() : id;
  log_debug(kTag, "RangingScan: StartRangingScan ID %d ts %ld returning %d\n", static_cast<int>(loggedId), ts, result);
  return result;
}

int32_t StartPeriodicRangingScan(ObjectArg* args, int64_t ts) {
  Nodes<VEXOPeriodicNodeInfo, PeriodicRangingNodeRecord> nodes(args[kNodesSlot]);
  const uint32_t id = ++VexoDispatcher::Get().requestIdCounter;
  auto request = MakeRequest<VEXOPeriodicRangingScanRequest>(id, nodes.list, ts);
  const int32_t result = Send(request.get(), args);
  request.reset();
  log_debug(kTag, "RangingScan: StartPeriodicRangingScan returning %d\n", result);
  return result;
}

int32_t ranging_scan_invoke(void*, uint32_t op, ObjectArg* args, ArgCounts counts) try {
  const uint32_t operation = ObjectOperation(op);
  if (operation != kStartRangingScan && operation != kStartPeriodicRangingScan) return OBJECT_ERROR_INVALID;
  if (counts != kStartRangingScanCounts) return OBJECT_ERROR_INVALID;
  if (args[kParamsSlot].buffer.size != sizeof(RangingScanParams)) return OBJECT_ERROR_INVALID;
  if (args[kCallbackSlot].object.invoke == nullptr) return OBJECT_ERROR_INVALID;
  const int64_t ts = RecordAt<RangingScanParams>(args[kParamsSlot], 0).ts;
  return operation == kStartRangingScan ? StartRangingScan(args, ts) : StartPeriodicRangingScan(args, ts);
} catch (...) {  // nothing leaves an invocation but its result
  return OBJECT_ERROR;
}

}  // namespace

Object CreateVexoRangingScan() { return {ranging_scan_invoke, nullptr}; }
