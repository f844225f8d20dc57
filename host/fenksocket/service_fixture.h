// A service under test, which takes requests as the daemon does.
#ifndef KESD_HOST_FENKSOCKET_SERVICE_FIXTURE_H_
#define KESD_HOST_FENKSOCKET_SERVICE_FIXTURE_H_

#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "host/fenksocket/service.h"
#include "host/fenksocket/test_support.h"

namespace fenk::test {

// Operation 0 keeps the callback and hands out a handle, whose last release, like the delivery, gives the callback
// back. Operation 1 invokes the callback at once and returns its result.
class Requests {
 public:
  Object Root() { return {Invoke, this}; }

  // Delivers to whoever still waits, as a library's thread would; the number of deliveries.
  int DeliverAll(uint64_t payloadBytes = 8) {
    std::string payload(payloadBytes, 'p');
    std::map<uint64_t, Object> taken;
    pending.Update([&](auto& callbacks) { taken.swap(callbacks); });
    for (const auto& [id, callback] : taken) {
      ObjectArg arg;
      arg.buffer = {payload.data(), payload.size()};
      const int32_t result = callback.invoke(callback.context, 0, &arg, ObjectCounts(1, 0, 0, 0));
      results.Update([&](auto& list) { list.push_back(result); });
      ObjectRelease(callback);
    }
    return static_cast<int>(taken.size());
  }

  Watched<std::map<uint64_t, Object>> pending;
  Watched<int> handles;
  Watched<std::vector<int32_t>> results;

 private:
  struct Handle {
    Requests* requests;
    uint64_t id;
    std::atomic<int> references = 1;
  };
  static int32_t InvokeHandle(void* context, uint32_t op, ObjectArg*, uint32_t) {
    Handle* const handle = static_cast<Handle*>(context);
    if (ObjectOperation(op) == OBJECT_OP_RETAIN) ++handle->references;
    if (ObjectOperation(op) != OBJECT_OP_RELEASE) return OBJECT_OK;
    if (--handle->references != 0) return OBJECT_OK;
    Object callback{};
    handle->requests->pending.Update([&](auto& callbacks) {
      const auto found = callbacks.find(handle->id);
      if (found == callbacks.end()) return;
      callback = found->second;
      callbacks.erase(found);
    });
    if (callback.invoke != nullptr) ObjectRelease(callback);
    handle->requests->handles.Update([](int& n) { --n; });
    delete handle;
    return OBJECT_OK;
  }
  static int32_t Invoke(void* context, uint32_t op, ObjectArg* args, uint32_t counts) {
    Requests& requests = *static_cast<Requests*>(context);
    if (ObjectOperation(op) >= OBJECT_OP_RETAIN) return OBJECT_OK;
    if (op == 1 && counts == ObjectCounts(0, 0, 1, 0)) {
      const int32_t result = args[0].object.invoke(args[0].object.context, 0, nullptr, 0);
      requests.results.Update([&](auto& list) { list.push_back(result); });
      return result;
    }
    if (op == 2) return 2000;
    if (op != 0 || counts != ObjectCounts(1, 0, 1, 1)) return OBJECT_ERROR_INVALID;
    const Object callback = args[1].object;
    ObjectRetain(callback);
    Handle* const handle = new Handle{&requests, ++requests.lastId};
    requests.handles.Update([](int& n) { ++n; });
    requests.pending.Update([&](auto& callbacks) { callbacks.emplace(handle->id, callback); });
    args[2].object = {InvokeHandle, handle};
    return OBJECT_OK;
  }
  std::atomic<uint64_t> lastId = 0;
};

class ServiceTest : public testing::Test {
 protected:
  void SetUp() override { ForgetLines(); }
  void Start(std::chrono::milliseconds deadline = kPatience) {
    options.limits.answerDeadline = deadline;
    service = Service::Start(socket.Fd(), requests.Root(), options);
    ASSERT_NE(service, nullptr);
  }
  RawPeer Connect() { return RawPeer(socket.Connect()); }
  // A peer that has been greeted.
  RawPeer Greet() {
    RawPeer peer = Connect();
    EXPECT_TRUE(peer.Send(Hello()));
    EXPECT_EQ(peer.Receive().type, 1);
    return peer;
  }
  void ExpectServes(const RawPeer& peer) {
    EXPECT_TRUE(peer.Send(Invoke(77, 0, 2, 0)));
    const RawFrame reply = peer.Receive();
    EXPECT_EQ(reply.type, 3);
    EXPECT_EQ(reply.serial, 77u);
    EXPECT_EQ(reply.U32(0), 2000u);
  }

  ListeningSocket socket;
  Requests requests;
  ServiceOptions options;
  std::unique_ptr<Service> service;
};

inline Bytes StartRequest(uint64_t serial, uint64_t callbackId) {
  return Invoke(serial, 0, 0, 0x1101, Bytes().U64(5) += Reference(kMine, callbackId) += Bytes().Text("hello"));
}

}  // namespace fenk::test

#endif  // KESD_HOST_FENKSOCKET_SERVICE_FIXTURE_H_
