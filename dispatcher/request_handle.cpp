#include "dispatcher/request_handle.h"

#include "dispatcher/vexo_dispatcher.h"

int32_t RequestHandle::Invoke(void* context, uint32_t op, ObjectArg*, ArgCounts) {
  auto* const handle = static_cast<RequestHandle*>(context);
  switch (ObjectOperation(op)) {
    case OBJECT_OP_RETAIN:
      handle->refCount.fetch_add(1);
      return OBJECT_OK;
    case OBJECT_OP_RELEASE:
      if (handle->refCount.fetch_sub(1) == 1) {
        VexoDispatcher::Get().Release(handle->requestId);
        delete handle;
      }
      return OBJECT_OK;
    default:
      return OBJECT_ERROR_INVALID;
  }
}
