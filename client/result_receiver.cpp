#include "client/result_receiver.h"

#include <new>

#include "ipc/services.h"

namespace kes {

static_assert(kDeliverDiscoveryResultCounts <= ResultReceiver::kMaxBuffers &&
                  kDeliverRangingResultCounts <= ResultReceiver::kMaxBuffers,
              "the counts of a result are its number of input buffers and nothing else");

ObjectRef ResultReceiver::Create(uint32_t counts) {
  auto* receiver = new (std::nothrow) ResultReceiver(counts);
  return receiver == nullptr ? ObjectRef() : ObjectRef({&ResultReceiver::Invoke, receiver});
}

const ResultReceiver& ResultReceiver::Of(const ObjectRef& object) {
  return *static_cast<const ResultReceiver*>(object.Get().context);
}

Result<const ResultReceiver::Buffers*> ResultReceiver::Delivered() const {
  if (memoryRanOut) return OutOfMemory();
  return &buffers;
}

int32_t ResultReceiver::Invoke(void* context, uint32_t op, ObjectArg* args, uint32_t counts) {
  auto* self = static_cast<ResultReceiver*>(context);
  switch (ObjectOperation(op)) {
    case OBJECT_OP_RETAIN:
      self->references.fetch_add(1, std::memory_order_relaxed);
      return OBJECT_OK;
    case OBJECT_OP_RELEASE:
      if (self->references.fetch_sub(1, std::memory_order_acq_rel) == 1) delete self;
      return OBJECT_OK;
    case kDeliverResult:
      return counts == self->counts ? self->Take({args, counts}) : OBJECT_ERROR_INVALID;
    default:
      return OBJECT_ERROR_INVALID;
  }
}

int32_t ResultReceiver::Take(std::span<const ObjectArg> args) {
  State expected = State::kWaiting;
  if (!state.compare_exchange_strong(expected, State::kTaking)) return OBJECT_ERROR_INVALID;
  try {
    for (std::size_t i = 0; i < args.size(); ++i) {
      const auto* first = static_cast<const uint8_t*>(args[i].buffer.ptr);
      if (args[i].buffer.size != 0) buffers[i].assign(first, first + args[i].buffer.size);
    }
  } catch (const std::bad_alloc&) {
    memoryRanOut = true;  // the client learns of it: there will be no second result
  }
  state.store(State::kDelivered, std::memory_order_release);
  return memoryRanOut ? OBJECT_ERROR : OBJECT_OK;
}

}  // namespace kes
