#include "host/fenksocket/service.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <atomic>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "host/fenksocket/test_support.h"

namespace fenk {
namespace {

using namespace fenk::test;

// A service that takes requests as the daemon does: operation 0 keeps the callback and hands out a handle, whose last
// release, like the delivery, gives the callback back. Operation 1 invokes the callback at once and returns its result.
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
  Watched<int> calling;

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
      requests.calling.Update([](int& n) { ++n; });
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

Bytes StartRequest(uint64_t serial, uint64_t callbackId) {
  return Invoke(serial, 0, 0, 0x1101, Bytes().U64(5) += Reference(kMine, callbackId) += Bytes().Text("hello"));
}

TEST_F(ServiceTest, CarriesARequestItsResultAndItsHandle) {
  Start();
  RawPeer peer = Greet();
  ASSERT_TRUE(peer.Send(StartRequest(1, 0x51)));
  const RawFrame reply = peer.Receive();
  EXPECT_EQ(reply.type, 3);
  EXPECT_EQ(reply.serial, 1u);
  EXPECT_EQ(reply.U32(0), 0u);
  EXPECT_EQ(reply.U32(4), 0x1000u);
  EXPECT_EQ(reply.U32(8), kMine);
  const uint64_t handle = reply.U64(16);
  std::thread delivering([&] { EXPECT_EQ(requests.DeliverAll(), 1); });
  const RawFrame result = peer.Receive();
  EXPECT_EQ(result.type, 2);
  EXPECT_EQ(result.U64(0), 0x51u);
  EXPECT_EQ(result.U32(12), 0x0001u);
  EXPECT_EQ(result.U64(16), 8u);
  EXPECT_EQ(result.body.substr(24), "pppppppp");
  ASSERT_TRUE(peer.Send(Reply(result.serial, 9)));
  delivering.join();
  EXPECT_EQ(requests.results.Get(), std::vector<int32_t>{9});
  const RawFrame release = peer.Receive();
  EXPECT_EQ(release.type, 4);
  EXPECT_EQ(release.U64(0), 0x51u);
  ASSERT_TRUE(peer.Send(Release(handle)));
  EXPECT_TRUE(requests.handles.AwaitEqual(0));
  ExpectServes(peer);
}

TEST_F(ServiceTest, AbortsAPeersRequestsWhereverItsStreamBreaksOff) {
  Start();
  // A whole conversation as a client sends it: two requests, the release of one handle. Handles are numbered from 1.
  const Bytes conversation = Hello() += StartRequest(1, 0x51) += StartRequest(2, 0x52) += Release(1);
  for (std::size_t length = 0; length <= conversation.data.size(); ++length) {
    SCOPED_TRACE(length);
    Bytes part;
    part.data = conversation.data.substr(0, length);
    RawPeer peer = Connect();
    ASSERT_TRUE(part.data.empty() || peer.Send(part));
    if (length % 2 == 0) {  // an orderly end; otherwise the peer just disappears
      shutdown(peer.Fd(), SHUT_WR);
      EXPECT_TRUE(peer.AwaitEnd());
    }
    peer.Close();
    ASSERT_TRUE(AwaitLines("closed by the peer", length + 1));
    EXPECT_EQ(requests.handles.Get(), 0);
    EXPECT_TRUE(requests.pending.Get().empty());
  }
  EXPECT_EQ(CountLines("W fenksocket"), 0u);
}

TEST_F(ServiceTest, DisconnectsAPeerThatBreaksTheProtocolAndNobodyElse) {
  Start();
  const RawPeer bystander = Greet();
  struct Case {
    const char* name;
    Bytes bytes;
  };
  const Bytes object = Reference(kMine, 1);
  const Case cases[] = {
      {"no HELLO", Invoke(1, 0, 2, 0)},
      {"HELLO with another magic", Header(32, 1, 0).U32(1).U16(1).U16(0).U32(1 << 20).U32(0)},
      {"HELLO of another version", Header(32, 1, 0).U32(0x4B4E4546).U16(2).U16(0).U32(1 << 20).U32(0)},
      {"HELLO that takes nothing", Header(32, 1, 0).U32(0x4B4E4546).U16(1).U16(0).U32(4095).U32(0)},
      {"HELLO cut short", Header(24, 1, 0).U32(0x4B4E4546).U16(1).U16(0)},
      {"HELLO too long", Header(40, 1, 0).U32(0x4B4E4546).U16(1).U16(0).U32(1 << 20).U32(0).U64(0)},
      {"HELLO with a serial", Header(32, 1, 9).U32(0x4B4E4546).U16(1).U16(0).U32(1 << 20).U32(0)},
      {"second HELLO", Hello() += Hello()},
      {"length 0", Hello() += Header(0, 2, 1)},
      {"length below the header's", Hello() += Header(8, 2, 1)},
      {"length that is not a multiple of 8", Hello() += Header(33, 2, 1)},
      {"length above the limit", Hello() += Header((1 << 20) + 8, 2, 1)},
      {"length above everything", Hello() += Header(0xFFFFFFF8, 2, 1)},
      {"flags of no meaning", Hello() += Bytes().U32(32).U16(2).U16(2).U64(1)},
      {"nested release", Hello() += Bytes().U32(24).U16(4).U16(1).U64(0).U64(1)},
      {"unknown type", Hello() += Header(16, 5, 0)},
      {"INVOKE without a body", Hello() += Header(16, 2, 1)},
      {"INVOKE of an object never given", Hello() += Invoke(1, 1, 0, 0)},
      {"retain as an invocation", Hello() += Invoke(1, 0, 0xFFFE, 0)},
      {"release as an invocation", Hello() += Invoke(1, 0, 0x1FFFF, 0)},
      {"no sizes", Hello() += Invoke(1, 0, 0, 0x0001)},
      {"fewer sizes than buffers", Hello() += Invoke(1, 0, 0, 0x0011, Bytes().U64(0))},
      {"buffer larger than the frame", Hello() += Invoke(1, 0, 0, 0x0001, Bytes().U64(1))},
      {"buffer that wraps around", Hello() += Invoke(1, 0, 0, 0x0001, Bytes().U64(~0ull).U64(0))},
      {"buffer without its padding", Hello() += Invoke(1, 0, 0, 0x0002, Bytes().U64(8).U64(1).U64(0))},
      {"two buffers that wrap around together",
       Hello() += Invoke(1, 0, 0, 0x0002, Bytes().U64(8).U64(0xFFFFFFFFFFFFFFF8).U64(0))},
      {"bytes after the last buffer", Hello() += Invoke(1, 0, 0, 0x0001, Bytes().U64(1).U64(0).U64(0))},
      {"bytes without a buffer", Hello() += Invoke(1, 0, 0, 0, Bytes().U64(0))},
      {"no object", Hello() += Invoke(1, 0, 0, 0x0100)},
      {"object cut in half", Hello() += Invoke(1, 0, 0, 0x0100, Bytes().U64(1))},
      {"object of an unknown kind", Hello() += Invoke(1, 0, 0, 0x0100, Reference(3, 1))},
      {"object with a reserved field", Hello() += Invoke(1, 0, 0, 0x0100, Bytes().U32(1).U32(1).U64(1))},
      {"object without an ID", Hello() += Invoke(1, 0, 0, 0x0100, Reference(kMine, 0))},
      {"null with an ID", Hello() += Invoke(1, 0, 0, 0x0100, Reference(kNoObject, 1))},
      {"the receiver's object, never given", Hello() += Invoke(1, 0, 0, 0x0100, Reference(kYours, 4))},
      {"a good object and a bad one", Hello() += Invoke(1, 0, 0, 0x0200, Bytes(object) += Reference(kYours, 4))},
      {"REPLY to nothing", Hello() += Reply(1, 0)},
      {"REPLY with inputs", Hello() += Reply(1, 0, 0x0001, Bytes().U64(0))},
      {"REPLY without a body", Hello() += Header(16, 3, 1)},
      {"RELEASE of nothing", Hello() += Header(16, 4, 0)},
      {"RELEASE of the root", Hello() += Release(0)},
      {"RELEASE of what was never given", Hello() += Release(7)},
      {"RELEASE twice", Hello() += StartRequest(1, 1) += Release(1) += Release(1)},
  };
  std::size_t disconnected = 0;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    RawPeer peer = Connect();
    ASSERT_TRUE(peer.Send(c.bytes));
    EXPECT_TRUE(peer.AwaitEnd());
    ASSERT_TRUE(AwaitLines("disconnected: ", ++disconnected));
    EXPECT_EQ(CountLines("W fenksocket"), disconnected);
    ExpectServes(bystander);
  }
  EXPECT_TRUE(requests.handles.AwaitEqual(0));
  EXPECT_TRUE(requests.pending.Get().empty());
}

TEST_F(ServiceTest, RefusesWhatItCannotRunAndServesOn) {
  Start();
  const RawPeer peer = Greet();
  struct Case {
    const char* name;
    Bytes invocation;
    int32_t answer;
  };
  const Case cases[] = {
      {"counts with a high bit", Invoke(1, 0, 2, 0x10000), OBJECT_ERROR_INVALID},
      {"null for an input object", Invoke(1, 0, 1, 0x0100, Reference(kNoObject, 0)), OBJECT_ERROR_INVALID},
      {"output buffers beyond the frame limit", Invoke(1, 0, 2, 0x0010, Bytes().U64((1 << 20) + 1)), kErrorLimit},
      {"output buffers that wrap around",
       Invoke(1, 0, 2, 0x0020, Bytes().U64(0xFFFFFFFFFFFFFFF9).U64(0xFFFFFFFFFFFFFFFF)), kErrorLimit},
      {"unknown operation", Invoke(1, 0, 3, 0), OBJECT_ERROR_INVALID},
      {"the root as its own callback", Invoke(1, 0, 1, 0x0100, Reference(kYours, 0)), OBJECT_ERROR_INVALID},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ASSERT_TRUE(peer.Send(c.invocation));
    const RawFrame reply = peer.Receive();
    EXPECT_EQ(reply.type, 3);
    EXPECT_EQ(static_cast<int32_t>(reply.U32(0)), c.answer);
    EXPECT_EQ(reply.U32(4), 0u);
    ExpectServes(peer);
  }
}

TEST_F(ServiceTest, EndsACallWhenThePeerDiesDuringIt) {
  Start();
  RawPeer peer = Greet();
  ASSERT_TRUE(peer.Send(Invoke(1, 0, 1, 0x0100, Reference(kMine, 1))));
  EXPECT_EQ(peer.Receive().type, 2);
  peer.Close();
  EXPECT_TRUE(requests.results.AwaitEqual({kErrorDisconnected}));
}

TEST_F(ServiceTest, DisconnectsThePeerThatAnswersWrongly) {
  Start();
  const Bytes answers[] = {
      Reply(1, 0, 0x1000, Reference(kMine, 1)),    // outputs that nobody asked for
      Reply(1, 0, 0x0010, Bytes().U64(8).U64(0)),  //
      Reply(1, 3, 0x0010, Bytes().U64(0)),         // outputs with a failure
      Reply(999, 0),                               // another invocation
  };
  std::size_t count = 0;
  for (const Bytes& answer : answers) {
    const RawPeer peer = Greet();
    ASSERT_TRUE(peer.Send(Invoke(1, 0, 1, 0x0100, Reference(kMine, 1))));
    ASSERT_EQ(peer.Receive().serial, 1u);
    ASSERT_TRUE(peer.Send(answer));
    EXPECT_TRUE(peer.AwaitEnd());
    ++count;
    EXPECT_TRUE(requests.results.AwaitEqual(std::vector<int32_t>(count, kErrorDisconnected)));
    EXPECT_TRUE(AwaitLines("W fenksocket", count));
  }
}

TEST_F(ServiceTest, DisconnectsAPeerThatDoesNotAnswerOrReadWhileOthersGoOn) {
  Start(std::chrono::milliseconds(500));
  const RawPeer bystander = Greet();
  const RawPeer silent = Greet();
  ASSERT_TRUE(silent.Send(StartRequest(1, 1)));
  ASSERT_EQ(silent.Receive().type, 3);
  std::thread delivering([&] { EXPECT_EQ(requests.DeliverAll(), 1); });
  EXPECT_EQ(silent.Receive().type, 2);
  ExpectServes(bystander);
  EXPECT_TRUE(silent.AwaitEnd());
  delivering.join();
  EXPECT_TRUE(AwaitLines("did not answer an invocation in time", 1));

  const RawPeer full = Greet();
  ASSERT_TRUE(full.Send(StartRequest(1, 1)));
  ASSERT_EQ(full.Receive().type, 3);
  delivering = std::thread([&] { EXPECT_EQ(requests.DeliverAll(4 << 20), 1); });
  ExpectServes(bystander);
  delivering.join();
  EXPECT_TRUE(AwaitLines("did not take a frame in time", 1));
  EXPECT_EQ(requests.results.Get(), (std::vector<int32_t>{kErrorTimedOut, kErrorTimedOut}));
  EXPECT_TRUE(requests.handles.AwaitEqual(0));
  EXPECT_EQ(CountLines("W fenksocket"), 2u);
  ExpectServes(bystander);
}

TEST_F(ServiceTest, DisconnectsAPeerThatBeginsAndDoesNotGoOn) {
  Start(std::chrono::milliseconds(500));
  const RawPeer bystander = Greet();
  const std::string invocation = StartRequest(1, 1).data;
  size_t count = 0;
  for (const std::string& beginning :
       {std::string(), Hello().data.substr(0, 31), Hello().data + "x", Hello().data + invocation.substr(0, 16),
        Hello().data + invocation.substr(0, 63)}) {
    const RawPeer peer = Connect();
    Bytes bytes;
    bytes.data = beginning;
    ASSERT_TRUE(peer.Send(bytes));
    EXPECT_TRUE(peer.AwaitEnd());
    EXPECT_TRUE(AwaitLines("did not send a whole frame in time", ++count));
  }
  ExpectServes(bystander);  // which has said nothing for longer than that
}

TEST_F(ServiceTest, BoundsWhatTheConnectionsOfAUserHaveTogether) {
  options.user = {.connections = 3, .exportedObjects = 4, .importedObjects = 3, .calls = 1, .frameBytes = 50'000};
  Start();
  const RawPeer one = Greet(), other = Greet();
  const auto start = [](const RawPeer& peer, uint64_t serial) {
    EXPECT_TRUE(peer.Send(StartRequest(serial, serial)));
    RawFrame frame = peer.Receive();
    while (frame.type == 4) frame = peer.Receive();  // a callback is given back
    return static_cast<int32_t>(frame.U32(0));
  };
  EXPECT_EQ(start(one, 1), OBJECT_OK);
  std::thread delivering([&] { EXPECT_EQ(requests.DeliverAll(), 1); });
  const RawFrame delivery = one.Receive();
  EXPECT_EQ(start(other, 2), OBJECT_OK);
  EXPECT_EQ(start(other, 3), OBJECT_OK);
  EXPECT_EQ(start(other, 4), kErrorLimit) << "a fourth callback";
  EXPECT_EQ(requests.DeliverAll(), 2);
  EXPECT_EQ(requests.results.Get(), (std::vector{kErrorLimit, kErrorLimit})) << "one delivery waits for its answer";
  ASSERT_TRUE(one.Send(Reply(delivery.serial, 0)));
  delivering.join();
  EXPECT_EQ(start(other, 5), OBJECT_OK) << "callbacks were given back";
  EXPECT_EQ(start(other, 6), kErrorLimit) << "a fifth handle";

  {
    const RawPeer third = Greet();
    EXPECT_TRUE(Connect().AwaitEnd());
    EXPECT_EQ(CountLines("connection refused: of user "), 1u);
    ASSERT_TRUE(one.Send(Header(64 << 10, 2, 7)));
    EXPECT_TRUE(one.AwaitEnd());
    EXPECT_TRUE(AwaitLines("more bytes of long frames than its user may have in work", 1));
  }
  // What the one held is given back with its end, soon after the stream's.
  while (start(other, 7) != OBJECT_OK) std::this_thread::yield();
}

TEST_F(ServiceTest, SendsReleasesOnceAFullSocketIsReadAgain) {
  // More releases than a socket holds, and no thread that waits for it.
  constexpr uint64_t kCallbacks = 1000;
  Start();
  const RawPeer peer = Greet();
  for (uint64_t id = 1; id <= kCallbacks; ++id) {
    ASSERT_TRUE(peer.Send(StartRequest(id, id)));
    ASSERT_EQ(peer.Receive().type, 3);
  }
  std::map<uint64_t, Object> callbacks;
  requests.pending.Update([&](auto& pending) { callbacks.swap(pending); });
  ASSERT_EQ(callbacks.size(), kCallbacks);
  Watched<bool> returned;
  std::thread releasing([&] {
    for (const auto& [id, callback] : callbacks) ObjectRelease(callback);
    returned.Update([](bool& b) { b = true; });
  });
  EXPECT_TRUE(returned.AwaitEqual(true));
  releasing.join();
  std::map<uint64_t, int> released;
  std::size_t frames = 0;
  while (released.size() < kCallbacks) {
    const RawFrame frame = peer.Receive();
    ASSERT_EQ(frame.type, 4);
    ++frames;
    for (std::size_t offset = 0; offset < frame.body.size(); offset += 8) ++released[frame.U64(offset)];
  }
  EXPECT_LT(frames, kCallbacks);  // those that had to wait went together
  for (const auto& [id, times] : released) EXPECT_EQ(times, 1) << id;
  ExpectServes(peer);
}

TEST_F(ServiceTest, DefersWhatAPeerAsksWhileAnInvocationOfItsOwnIsRunning) {
  Start();
  const RawPeer peer = Greet();
  ASSERT_TRUE(peer.Send(Invoke(1, 0, 1, 0x0100, Reference(kMine, 1))));
  const RawFrame call = peer.Receive();
  ASSERT_EQ(call.type, 2);
  Bytes nested = Bytes().U32(32).U16(2).U16(1).U64(11).U64(0).U32(2).U32(0);
  ASSERT_TRUE(peer.Send(Invoke(10, 0, 2, 0) += nested));
  EXPECT_EQ(peer.Receive().serial, 11u);  // made from within: its answer may be what the first one needs
  ASSERT_TRUE(peer.Send(Reply(call.serial, 5)));
  std::vector<uint64_t> serials;
  for (int i = 0; i < 3; ++i) {
    const RawFrame frame = peer.Receive();
    if (frame.type == 3) serials.push_back(frame.serial);
  }
  EXPECT_EQ(serials, (std::vector<uint64_t>{1, 10}));
}

TEST_F(ServiceTest, ServesManyClientsThatAbortWhileResultsAreDelivered) {
  Start();
  std::atomic<bool> stop = false;
  Watched<std::vector<Object>> leftOver;
  std::thread delivering([&] {
    while (!stop) requests.DeliverAll();
  });
  std::vector<std::thread> clients;
  for (int t = 0; t < 8; ++t) {
    clients.emplace_back([&, t] {
      for (int round = 0; round < 5; ++round) {
        std::vector<std::unique_ptr<CountedObject>> callbacks;
        const auto connection = Connection::Create(socket.Connect(), kClientLimits, {nullptr, nullptr});
        const Object root = connection->PeerRoot();
        for (int i = 0; i < 20; ++i) {
          callbacks.push_back(std::make_unique<CountedObject>());
          ObjectArg args[3];
          args[0].buffer = {nullptr, 0};
          args[1].object = callbacks.back()->Get();
          ASSERT_EQ(root.invoke(root.context, 0, args, 0x1101), OBJECT_OK);
          if (i % 3 != 0) {
            CountedObject& callback = *callbacks.back();
            EXPECT_EQ(
                connection->ServeUntil([&] { return callback.references.Get() == 1; }, Clock::now() + kPatience, -1),
                WaitResult::kDone);
            EXPECT_EQ(callback.invocations.Get(), 1);
          }
          if ((i + t) % 4 != 0)
            ObjectRelease(args[2].object);  // others are left to the end of the connection
          else
            leftOver.Update([&](auto& list) { list.push_back(args[2].object); });
        }
        ObjectRelease(root);
        connection->Close();
        for (const auto& callback : callbacks) EXPECT_EQ(callback->references.Get(), 1);
      }
    });
  }
  for (std::thread& client : clients) client.join();
  EXPECT_TRUE(requests.handles.AwaitEqual(0));
  stop = true;
  delivering.join();
  EXPECT_TRUE(requests.pending.Get().empty());
  EXPECT_EQ(CountLines("W fenksocket"), 0u);
  for (const Object& object : leftOver.Get()) ObjectRelease(object);
}

TEST_F(ServiceTest, TurnsConnectionsAwayBeyondTheLimitWithOneLine) {
  options.maxConnections = 2;
  Start();
  RawPeer first = Greet();
  const RawPeer second = Greet();
  for (int i = 0; i < 5; ++i) EXPECT_TRUE(Connect().AwaitEnd());
  EXPECT_EQ(CountLines("W fenksocket: connection refused"), 1u);
  ExpectServes(second);
  first.Close();
  ASSERT_TRUE(AwaitLines("closed by the peer", 1));
  // Its place is free as soon as its thread has said so, right after that line.
  for (;;) {
    const RawPeer again = Connect();
    if (again.Send(Hello()) && again.Receive().type == 1) break;
  }
}

TEST_F(ServiceTest, RestsWhenDescriptorsRunOutAndGoesOnAfterwards) {
  Start();
  const RawPeer bystander = Greet();
  UniqueFd waiting(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  rlimit old;
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &old), 0);
  rlimit none = old;
  none.rlim_cur = static_cast<rlim_t>(UniqueFd(dup(waiting.Get())).Get());  // all below are in use
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  EXPECT_TRUE(socket.Connect(waiting));
  EXPECT_TRUE(AwaitLines("cannot accept", 1));
  ExpectServes(bystander);
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &old), 0);
  const RawPeer peer(std::move(waiting));
  ASSERT_TRUE(peer.Send(Hello()));
  EXPECT_EQ(peer.Receive().type, 1);
  EXPECT_EQ(CountLines("cannot accept"), 1u);
}

TEST_F(ServiceTest, EndsInOrderWhenTheListeningSocketIsShutDown) {
  Start();
  const RawPeer calling = Greet();  // its invocation waits for an answer that it does not give
  ASSERT_TRUE(calling.Send(Invoke(1, 0, 1, 0x0100, Reference(kMine, 1))));
  ASSERT_TRUE(requests.calling.AwaitEqual(1));
  const RawPeer full = Greet();  // a result for it fills its socket
  ASSERT_TRUE(full.Send(StartRequest(1, 1)));
  ASSERT_EQ(full.Receive().type, 3);
  std::thread delivering([&] { EXPECT_EQ(requests.DeliverAll(4 << 20), 1); });
  char byte;
  ASSERT_EQ(recv(full.Fd(), &byte, 1, MSG_PEEK), 1);
  const RawPeer idle = Greet();

  const auto begun = std::chrono::steady_clock::now();
  ASSERT_EQ(shutdown(socket.Fd(), SHUT_RDWR), 0);
  service->Join();
  EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::seconds(2));
  delivering.join();
  EXPECT_EQ(requests.results.Get(), (std::vector<int32_t>{kErrorDisconnected, kErrorDisconnected}));
  EXPECT_EQ(requests.handles.Get(), 0);
  EXPECT_EQ(calling.Receive().type, 2);
  EXPECT_EQ(calling.Receive().U32(0), static_cast<uint32_t>(kErrorDisconnected));  // the invocation has answered
  for (const RawPeer* peer : {&calling, &full, &idle}) EXPECT_TRUE(peer->AwaitEnd());
  EXPECT_EQ(CountLines("W fenksocket"), 0u);
}

TEST_F(ServiceTest, IsNotStartedOnWhatIsNoListeningSocket) {
  const SocketPair pair;
  const UniqueFd unbound(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const UniqueFd datagram(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  const UniqueFd file(open("/dev/null", O_RDONLY | O_CLOEXEC));
  const int descriptors[] = {-1, pair.one.Get(), unbound.Get(), datagram.Get(), file.Get()};
  std::size_t failures = 0;
  for (const int fd : descriptors) {
    EXPECT_EQ(Service::Start(fd, requests.Root(), options), nullptr) << fd;
    EXPECT_EQ(CountLines("E fenksocket"), ++failures);
  }
}

}  // namespace
}  // namespace fenk
