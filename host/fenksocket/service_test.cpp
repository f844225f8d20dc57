#include "host/fenksocket/service.h"

#include <fcntl.h>
#include <sys/socket.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "host/fenksocket/service_fixture.h"

namespace fenk::test {

TEST_F(ServiceTest, DisconnectsAPeerThatBreaksTheProtocolAndNobodyElse) {
  Start();
  const RawPeer bystander = Greet();
  ASSERT_TRUE(bystander.Send(StartRequest(1, 1)));  // its handle has the ID 1
  ASSERT_EQ(bystander.Receive().type, 3);
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
      {"length below the header's", Hello() += Header(8, 2, 1)},
      {"length that is not a multiple of 8", Hello() += Header(33, 2, 1)},
      {"length above the limit", Hello() += Header((1 << 20) + 8, 2, 1)},
      {"flags of no meaning", Hello() += Bytes().U32(32).U16(2).U16(2).U64(1)},
      {"nested release", Hello() += Bytes().U32(24).U16(4).U16(1).U64(0).U64(1)},
      {"unknown type", Hello() += Header(16, 5, 0)},
      {"INVOKE without a body", Hello() += Header(16, 2, 1)},
      {"INVOKE of another connection's object", Hello() += Invoke(1, 1, 0, 0)},
      {"INVOKE of a released object", Hello() += StartRequest(1, 1) += Release(1) += Invoke(2, 1, 0, 0)},
      {"retain as an invocation", Hello() += Invoke(1, 0, 0x1FFFE, 0)},
      {"release as an invocation", Hello() += Invoke(1, 0, 0xFFFF, 0)},
      {"no sizes", Hello() += Invoke(1, 0, 0, 0x0001)},
      {"fewer sizes than buffers", Hello() += Invoke(1, 0, 0, 0x0011, Bytes().U64(0))},
      {"buffer larger than the frame", Hello() += Invoke(1, 0, 0, 0x0001, Bytes().U64(1))},
      {"buffer that wraps around", Hello() += Invoke(1, 0, 0, 0x0001, Bytes().U64(~0ull).U64(0))},
      {"buffer without its padding", Hello() += Invoke(1, 0, 0, 0x0002, Bytes().U64(8).U64(1).U64(0))},
      {"two buffers that wrap around together",
       Hello() += Invoke(1, 0, 0, 0x0002, Bytes().U64(8).U64(0xFFFFFFFFFFFFFFF8).U64(0))},
      {"bytes after the last buffer", Hello() += Invoke(1, 0, 0, 0x0001, Bytes().U64(1).U64(0).U64(0))},
      {"bytes without a buffer", Hello() += Invoke(1, 0, 0, 0, Bytes().U64(0))},
      {"object cut in half", Hello() += Invoke(1, 0, 0, 0x0100, Bytes().U64(1))},
      {"object of an unknown kind", Hello() += Invoke(1, 0, 0, 0x0100, Reference(3, 1))},
      {"object with a reserved field", Hello() += Invoke(1, 0, 0, 0x0100, Bytes().U32(1).U32(1).U64(1))},
      {"object without an ID", Hello() += Invoke(1, 0, 0, 0x0100, Reference(kMine, 0))},
      {"null with an ID", Hello() += Invoke(1, 0, 0, 0x0100, Reference(kNoObject, 1))},
      {"another connection's object", Hello() += Invoke(1, 0, 0, 0x0100, Reference(kYours, 1))},
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
  EXPECT_TRUE(requests.handles.AwaitEqual(1));
  EXPECT_EQ(requests.pending.Get().size(), 1u);
}

TEST_F(ServiceTest, RefusesWhatItCannotRunAndServesOn) {
  Start();
  const RawPeer peer = Greet();
  struct Case {
    const char* name;
    Bytes invocation;
    int32_t answer;
  };
  Bytes sizes;  // of nothing
  for (int i = 0; i < 30; ++i) sizes.U64(0);
  const std::string longest((1 << 20) - 40, 'x');
  const Case cases[] = {
      {"the longest frame", Invoke(1, 0, 2, 0x0001, Bytes().U64(longest.size()).Text(longest)), 2000},
      {"the largest output buffer", Invoke(1, 0, 2, 0x0010, Bytes().U64(1 << 20)), 2000},
      {"output buffers that are too large together", Invoke(1, 0, 2, 0x0020, Bytes().U64(1 << 20).U64(1)), kErrorLimit},
      {"as many slots as there can be", Invoke(1, 0, 2, 0xF0FF, sizes), 2000},
      {"counts with a high bit", Invoke(1, 0, 2, 0x10000), OBJECT_ERROR_INVALID},
      {"null for an input object", Invoke(1, 0, 1, 0x0100, Reference(kNoObject, 0)), OBJECT_ERROR_INVALID},
      {"output buffers beyond the frame limit", Invoke(1, 0, 2, 0x0010, Bytes().U64((1 << 20) + 1)), kErrorLimit},
      {"output buffers that wrap around",
       Invoke(1, 0, 2, 0x0020, Bytes().U64(0xFFFFFFFFFFFFFFF9).U64(0xFFFFFFFFFFFFFFFF)), kErrorLimit},
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

Bytes Nested(Bytes invocation) {
  invocation.data[6] = 1;
  return invocation;
}

TEST_F(ServiceTest, DefersWhatAPeerAsksWhileAnInvocationOfItsOwnIsRunning) {
  Start();
  const RawPeer peer = Greet();
  ASSERT_TRUE(peer.Send(Invoke(1, 0, 1, 0x0100, Reference(kMine, 1))));
  const RawFrame call = peer.Receive();
  ASSERT_EQ(call.type, 2);
  Bytes asked;
  for (uint64_t serial = 10; serial <= 74; ++serial) asked += Invoke(serial, 0, 2, 0);
  ASSERT_TRUE(peer.Send(asked += Nested(Invoke(111, 0, 2, 0))));
  const RawFrame refused = peer.Receive();
  EXPECT_EQ(refused.serial, 74u) << "the 65th";
  EXPECT_EQ(static_cast<int32_t>(refused.U32(0)), kErrorLimit);
  EXPECT_EQ(peer.Receive().serial, 111u);  // made from within: its answer may be what the first one needs
  std::vector<RawFrame> calls{call};
  for (uint64_t id = 2; id <= 4; ++id) {
    ASSERT_TRUE(peer.Send(Nested(Invoke(110 + id, 0, 1, 0x0100, Reference(kMine, id)))));
    calls.push_back(peer.Receive());
    ASSERT_EQ(calls.back().type, 2);
  }
  ASSERT_TRUE(peer.Send(Nested(Invoke(115, 0, 2, 0))));
  EXPECT_EQ(static_cast<int32_t>(peer.Receive().U32(0)), kErrorLimit) << "a fifth within four";
  for (uint64_t id = 4; id >= 1; --id) {
    ASSERT_TRUE(peer.Send(Reply(calls[id - 1].serial, 5)));
    EXPECT_EQ(peer.Receive().serial, id == 1 ? 1 : 110 + id);
    EXPECT_EQ(peer.Receive().type, 4);
  }
  for (uint64_t serial = 10; serial <= 73; ++serial) EXPECT_EQ(peer.Receive().serial, serial);
}

TEST_F(ServiceTest, EndsInOrderWhenTheListeningSocketIsShutDown) {
  Start();
  const RawPeer calling = Greet();  // its invocation waits for an answer that it does not give
  ASSERT_TRUE(calling.Send(Invoke(1, 0, 1, 0x0100, Reference(kMine, 1))));
  ASSERT_EQ(calling.Receive().type, 2);
  ASSERT_EQ(shutdown(socket.Fd(), SHUT_RDWR), 0);
  service->Join();
  EXPECT_EQ(requests.results.Get(), std::vector<int32_t>{kErrorDisconnected});
  EXPECT_EQ(calling.Receive().U32(0), static_cast<uint32_t>(kErrorDisconnected));  // the invocation has answered
  EXPECT_TRUE(calling.AwaitEnd());
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

}  // namespace fenk::test
