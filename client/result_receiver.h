// The callback object through which the daemon delivers the one result of a request, of either kind.
#ifndef KESD_CLIENT_RESULT_RECEIVER_H_
#define KESD_CLIENT_RESULT_RECEIVER_H_

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "client/object_ref.h"
#include "client/result.h"

namespace kes {

// A counted object: it lives until its last release. Takes exactly one result, on any thread; a second one and every
// other invocation are answered with OBJECT_ERROR_INVALID. The buffers of an invocation are valid only while it runs,
// so they are copied out, and decoded later on the client's own thread.
class ResultReceiver {
 public:
  static constexpr std::size_t kMaxBuffers = 5;
  using Buffers = std::array<std::vector<uint8_t>, kMaxBuffers>;

  // With one reference. `counts`: those of the invocation that delivers the result, at most kMaxBuffers input buffers.
  // Holds none when memory ran out.
  static ObjectRef Create(uint32_t counts);

  // `object` must be one that Create made, and outlive what this returns.
  static const ResultReceiver& Of(const ObjectRef& object);

  bool IsDelivered() const { return state.load(std::memory_order_acquire) == State::kDelivered; }

  // Nobody but the client holds it any more: what is not delivered by then never will be.
  bool IsGivenBack() const { return references.load(std::memory_order_acquire) == 1; }

  // The delivered buffers in slot order, which last as long as this object; kOutOfMemory when they could not be kept.
  // Only after IsDelivered.
  Result<const Buffers*> Delivered() const;

 private:
  enum class State { kWaiting, kTaking, kDelivered };

  explicit ResultReceiver(uint32_t deliveryCounts) : counts(deliveryCounts) {}
  ~ResultReceiver() = default;

  static int32_t Invoke(void* context, uint32_t op, ObjectArg* args, uint32_t counts);
  int32_t Take(std::span<const ObjectArg> args);

  const uint32_t counts;
  std::atomic<uint32_t> references{1};
  std::atomic<State> state{State::kWaiting};
  // Written by the one invocation that went to kTaking, read after kDelivered.
  Buffers buffers;
  bool memoryRanOut = false;
};

}  // namespace kes

#endif  // KESD_CLIENT_RESULT_RECEIVER_H_
