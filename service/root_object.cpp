#include "service/root_object.h"

#include "discovery/discovery_scan.h"
#include "dispatcher/buffers.h"
#include "ipc/services.h"
#include "ranging/ranging_scan.h"

namespace {

int32_t invoke(void*, uint32_t op, ObjectArg* args, ArgCounts counts) {
  const uint32_t operation = ObjectOperation(op);
  if (operation == OBJECT_OP_RETAIN || operation == OBJECT_OP_RELEASE) return OBJECT_OK;
  if (operation != ROOT_OP_OPEN) return OBJECT_ERROR_INVALID;
  if (counts != kRootOpenCounts) return OBJECT_ERROR_INVALID;
  if (args[0].buffer.size != sizeof(uint32_t)) return OBJECT_ERROR_INVALID;
  const auto serviceId = RecordAt<uint32_t>(args[0], 0);
  Object& service = args[1].object;
  service = {nullptr, nullptr};
  switch (serviceId) {
    case SERVICE_ID_RANGING_SCAN:
      service = CreateVexoRangingScan();
      return OBJECT_OK;
    case SERVICE_ID_DISCOVERY_SCAN:
      service = CreateVexoDiscoveryScan();
      return OBJECT_OK;
    default:
      return OBJECT_ERROR_INVALID;
  }
}

}  // namespace

Object RootObject() { return {invoke, nullptr}; }
