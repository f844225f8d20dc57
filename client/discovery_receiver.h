// The callback object through which the daemon delivers one discovery result.
#ifndef KESD_CLIENT_DISCOVERY_RECEIVER_H_
#define KESD_CLIENT_DISCOVERY_RECEIVER_H_

#include <atomic>
#include <cstdint>
#include <vector>

#include "client/discovery_result.h"
#include "client/object_ref.h"

namespace kes {

// A counted object: it lives until its last release. Takes exactly one result, on any thread; a second one and every
// other invocation are answered with OBJECT_ERROR_INVALID. The buffers of an invocation are valid only while it runs,
// so they are copied out, and decoded later on the client's own thread.
class DiscoveryReceiver {
 public:
  // With one reference. Holds none when memory ran out.
  static ObjectRef Create();

  // `object` must be one that Create made, and outlive what this returns.
  static const DiscoveryReceiver& Of(const ObjectRef& object);

  bool IsDelivered() const { return state.load(std::memory_order_acquire) == State::kDelivered; }

  // Only after IsDelivered.
  Result<DiscoveryResult> Decode() const;

 private:
  enum class State { kWaiting, kTaking, kDelivered };

  DiscoveryReceiver() = default;
  ~DiscoveryReceiver() = default;

  static int32_t Invoke(void* context, uint32_t op, ObjectArg* args, uint32_t counts);
  int32_t Take(const ObjectArg* args);

  std::atomic<uint32_t> references{1};
  std::atomic<State> state{State::kWaiting};
  // Written by the one invocation that went to kTaking, read after kDelivered.
  std::vector<uint8_t> buffers[4];
  bool memoryRanOut = false;
};

}  // namespace kes

#endif  // KESD_CLIENT_DISCOVERY_RECEIVER_H_
