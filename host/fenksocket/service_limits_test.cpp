// What peers may have of a service, and how long they may take.
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "host/fenksocket/service_fixture.h"

namespace fenk::test {

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

  const RawPeer asking = Greet();
  while (asking.Send(Invoke(1, 0, 2, 0))) {  // and never reads a reply
  }
  EXPECT_TRUE(AwaitLines("did not take a reply in time", 1));
  EXPECT_EQ(CountLines("W fenksocket"), 3u);
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

// How a request's start is answered. In between callbacks may be given back.
int32_t StartAndHear(const RawPeer& peer, uint64_t id) {
  EXPECT_TRUE(peer.Send(StartRequest(id, id)));
  RawFrame frame = peer.Receive();
  while (frame.type == 4) frame = peer.Receive();
  return static_cast<int32_t>(frame.U32(0));
}

TEST_F(ServiceTest, BoundsWhatAConnectionHas) {
  options.limits.maxExportedObjects = 3;
  options.limits.maxImportedObjects = 2;
  options.user.calls = 0;  // deliveries fail, and give the callbacks back
  Start();
  const RawPeer peer = Greet();
  EXPECT_EQ(StartAndHear(peer, 1), OBJECT_OK);
  EXPECT_EQ(StartAndHear(peer, 2), OBJECT_OK);
  ASSERT_TRUE(peer.Send(StartRequest(3, 3)));
  EXPECT_EQ(peer.Receive().U64(0), 3u) << "a third callback, which is given back";
  EXPECT_EQ(static_cast<int32_t>(peer.Receive().U32(0)), kErrorLimit);
  EXPECT_EQ(requests.DeliverAll(), 2);
  EXPECT_EQ(StartAndHear(peer, 4), OBJECT_OK);
  EXPECT_EQ(StartAndHear(peer, 5), kErrorLimit) << "a fourth handle";
  ASSERT_TRUE(peer.Send(Release(2)));
  EXPECT_EQ(StartAndHear(peer, 6), OBJECT_OK);
}

TEST_F(ServiceTest, BoundsWhatTheConnectionsOfAUserHaveTogether) {
  options.user = {.connections = 3, .exportedObjects = 4, .importedObjects = 3, .calls = 1, .frameBytes = 50'000};
  Start();
  const RawPeer one = Greet(), other = Greet();
  EXPECT_EQ(StartAndHear(one, 1), OBJECT_OK);
  std::thread delivering([&] { EXPECT_EQ(requests.DeliverAll(), 1); });
  const RawFrame delivery = one.Receive();
  EXPECT_EQ(StartAndHear(other, 2), OBJECT_OK);
  EXPECT_EQ(StartAndHear(other, 3), OBJECT_OK);
  EXPECT_EQ(StartAndHear(other, 4), kErrorLimit) << "a fourth callback";
  EXPECT_EQ(requests.DeliverAll(), 2);
  EXPECT_EQ(requests.results.Get(), (std::vector{kErrorLimit, kErrorLimit})) << "one delivery waits for its answer";
  ASSERT_TRUE(one.Send(Reply(delivery.serial, 0)));
  delivering.join();
  EXPECT_EQ(StartAndHear(other, 5), OBJECT_OK) << "callbacks were given back";
  EXPECT_EQ(StartAndHear(other, 6), kErrorLimit) << "a fifth handle";

  {
    const RawPeer third = Greet();
    EXPECT_TRUE(Connect().AwaitEnd());
    EXPECT_EQ(CountLines("connection refused: of user "), 1u);
    ASSERT_TRUE(one.Send(Header(64 << 10, 2, 7)));
    EXPECT_TRUE(one.AwaitEnd());
    EXPECT_TRUE(AwaitLines("more bytes of long frames than its user may have in work", 1));
  }
  // What the one held is given back with its end, soon after the stream's.
  while (StartAndHear(other, 7) != OBJECT_OK) std::this_thread::yield();
}

// Starts requests and gives their callbacks back: more releases than a socket holds, and no thread that waits for it.
constexpr uint64_t kCallbacks = 1000;
void FillWithReleases(const RawPeer& peer, Requests& requests) {
  uint64_t handle = 0;
  for (uint64_t id = 1; id <= kCallbacks + 1; ++id) {
    ASSERT_TRUE(peer.Send(StartRequest(id, id)));
    const RawFrame reply = peer.Receive();
    ASSERT_EQ(reply.type, 3);
    handle = reply.U64(16);
  }
  // Once it has served this, the connection's thread is done with its replies and takes no releases along with them.
  ASSERT_TRUE(peer.Send(Release(handle)));
  ASSERT_TRUE(requests.handles.AwaitEqual(kCallbacks));
  ASSERT_EQ(peer.Receive().type, 4);
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
}

TEST_F(ServiceTest, SendsReleasesOnceAFullSocketIsReadAgain) {
  Start();
  const RawPeer peer = Greet();
  FillWithReleases(peer, requests);
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

TEST_F(ServiceTest, DisconnectsAPeerThatLeavesUnreadWhatNoThreadWaitsToSend) {
  Start(std::chrono::milliseconds(500));
  const RawPeer bystander = Greet();
  const RawPeer full = Greet();
  FillWithReleases(full, requests);
  EXPECT_TRUE(AwaitLines("did not take a frame in time", 1));
  EXPECT_TRUE(requests.handles.AwaitEqual(0));
  ExpectServes(bystander);
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

}  // namespace fenk::test
