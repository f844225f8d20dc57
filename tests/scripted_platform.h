// Stands in for the device's libraries in tests of the daemon's units: a location client that does as it is told and
// remembers what it was asked, a log that is kept, and a client's callback object.
#ifndef KESD_TESTS_SCRIPTED_PLATFORM_H_
#define KESD_TESTS_SCRIPTED_PLATFORM_H_

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "ipc/object.h"
#include "platform/vexo_client.h"
#include "tests/failing_memory.h"

namespace scripted {

// Every message so far, each as "LEVEL TAG MESSAGE", LEVEL being one of D I W E; then forgets them.
std::vector<std::string> TakeLog();

// The request that one of the library's factories made, with what it was called with.
struct DiscoveryRequest : zv_loc_fw::VEXODiscoveryScanRequest {
  explicit DiscoveryRequest(unsigned int id) : VEXODiscoveryScanRequest(id) {}
  ~DiscoveryRequest() override;
};

// The library. What is set here holds until Reset.
struct Library {
  bool createThrows = false;                            // createInstance throws
  bool createFails = false;                             // createInstance answers null
  bool factoryFails = false;                            // the factories answer null
  bool throws = false;                                  // sendRequest throws
  bool forgets = false;                                 // keeps neither calls nor the log: many threads ask at once
  std::atomic<int32_t> sendResult = 0;                  // what sendRequest answers
  std::function<void(zv_loc_fw::VEXORequest&)> onSend;  // called from inside sendRequest

  zv_loc_fw::VEXOClientListener* listener = nullptr;  // of the client that was made last
  std::string createdWith;                            // "flag=1 level=2"
  std::atomic<int> sendCalls = 0;
  std::vector<std::string> factoryCalls;  // kind, channels or band, the other arguments in order
  std::atomic<int> liveRequests = 0;      // made by the factories and not yet deleted

  void Reset();  // everything but the listener
};
Library& TheLibrary();

// A client's callback object. Any thread may invoke it.
class Callback {
 public:
  Object AsObject() { return {&Invoke, this}; }

  std::function<void()> onDelivery;  // called from inside a delivery
  std::atomic<int> retains = 0;
  std::atomic<int> releases = 0;
  std::atomic<int> deliveries = 0;
  uint32_t op = 0;                            // of the last delivery
  uint32_t counts = 0;                        // of the last delivery
  std::vector<std::vector<uint8_t>> buffers;  // of the last delivery
  std::vector<bool> isNull;                   // which of them had a null address

 private:
  static int32_t Invoke(void* context, uint32_t op, ObjectArg* args, uint32_t counts);
};

// `data` as one argument slot; it is borrowed.
ObjectArg InputBuffer(const void* data, uint64_t size);

// The service's object; opening it needs no memory.
Object Open(Object root, uint32_t serviceId);

// A client's invocation of a scan service, and what it got.
struct Invocation {
  Callback callback;
  Object handle = {nullptr, this};  // what a slot still holds that was not written

  // Passes copies of `buffers`, each exactly as long as it is and at an odd address, the callback and the handle's
  // slot. Of the allocations that this takes, the first `skip` succeed, and the next `failures` do not.
  int32_t Invoke(Object service, uint32_t op, uint32_t counts, std::vector<std::vector<uint8_t>> buffers);
  int skip = 0, failures = 0;
  int allocations = 0;  // that it took
  bool HandleWritten() const { return handle.invoke != nullptr; }
  ~Invocation();  // releases the handle
};

// The entries' images, back to back.
template <typename... Entries>
std::vector<uint8_t> BytesOf(const Entries&... entries) {
  std::vector<uint8_t> bytes;
  const auto append = [&](const auto& entry) {
    const auto* data = reinterpret_cast<const uint8_t*>(&entry);
    bytes.insert(bytes.end(), data, data + sizeof(entry));
  };
  (append(entries), ...);
  return bytes;
}

}  // namespace scripted

#endif  // KESD_TESTS_SCRIPTED_PLATFORM_H_
