#include "client/discovery_receiver.h"

#include <new>

#include "ipc/services.h"

namespace kes {

ObjectRef DiscoveryReceiver::Create() {
  auto* receiver = new (std::nothrow) DiscoveryReceiver;
  return receiver == nullptr ? ObjectRef() : ObjectRef({&DiscoveryReceiver::Invoke, receiver});
}

const DiscoveryReceiver& DiscoveryReceiver::Of(const ObjectRef& object) {
  return *static_cast<const DiscoveryReceiver*>(object.Get().context);
}

Result<DiscoveryResult> DiscoveryReceiver::Decode() const {
  if (memoryRanOut) return OutOfMemory();
  return DecodeDiscoveryResult({buffers[0], buffers[1], buffers[2], buffers[3]});
}

int32_t DiscoveryReceiver::Invoke(void* context, uint32_t op, ObjectArg* args, uint32_t counts) {
  auto* self = static_cast<DiscoveryReceiver*>(context);
  switch (ObjectOperation(op)) {
    case OBJECT_OP_RETAIN:
      self->references.fetch_add(1, std::memory_order_relaxed);
      return OBJECT_OK;
    case OBJECT_OP_RELEASE:
      if (self->references.fetch_sub(1, std::memory_order_acq_rel) == 1) delete self;
      return OBJECT_OK;
    case kDeliverResult:
      return counts == kDeliverDiscoveryResultCounts ? self->Take(args) : OBJECT_ERROR_INVALID;
    default:
      return OBJECT_ERROR_INVALID;
  }
}

int32_t DiscoveryReceiver::Take(const ObjectArg* args) {
  State expected = State::kWaiting;
  if (!state.compare_exchange_strong(expected, State::kTaking)) return OBJECT_ERROR_INVALID;
  try {
    for (std::vector<uint8_t>& buffer : buffers) {
      const auto* first = static_cast<const uint8_t*>(args->buffer.ptr);
      if (args->buffer.size != 0) buffer.assign(first, first + args->buffer.size);
      ++args;
    }
  } catch (const std::bad_alloc&) {
    memoryRanOut = true;  // the client learns of it: there will be no second result
  }
  state.store(State::kDelivered, std::memory_order_release);
  return memoryRanOut ? OBJECT_ERROR : OBJECT_OK;
}

}  // namespace kes
