#include "host/fenksocket/connection.h"

#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <cstring>
#include <thread>

#include "host/fenksocket/test_support.h"

namespace fenk {
namespace {

using namespace fenk::test;

constexpr Limits kTestLimits = {8u << 20, 64, 64, 4, kPatience};

const Object kNobody = {nullptr, nullptr};

bool Same(const Object& a, const Object& b) { return a.invoke == b.invoke && a.context == b.context; }

// A client that pumps on the test's thread, and a server with a thread of its own.
class Pair {
 public:
  explicit Pair(Object root) {
    SocketPair sockets;
    client = Connection::Create(std::move(sockets.one), kTestLimits, kNobody);
    server = Connection::Create(std::move(sockets.other), kTestLimits, root);
    serving = std::thread([this] { server->ServeUntil([] { return false; }, std::nullopt, -1); });
    peerRoot = client->PeerRoot();
  }
  ~Pair() {
    ObjectRelease(peerRoot);
    client->Close();
    serving.join();
  }
  int32_t Call(ObjectArg* args, uint32_t counts, uint32_t op = 0) const {
    return peerRoot.invoke(peerRoot.context, op, args, counts);
  }

  std::shared_ptr<Connection> client;
  std::shared_ptr<Connection> server;
  std::thread serving;
  Object peerRoot;
};

TEST(Connection, CarriesSlotsOfEveryKindAndBringsObjectsBackAsThemselves) {
  CountedObject given;
  CountedObject lent([](uint32_t op, ObjectArg* args, uint32_t counts) {
    EXPECT_EQ(counts, ObjectCounts(1, 1, 0, 0));
    EXPECT_EQ(op, 9u);
    std::memcpy(args[1].buffer.ptr, args[0].buffer.ptr, 3);
    args[1].buffer.size = 3;
    return OBJECT_OK;
  });
  CountedObject root([&](uint32_t op, ObjectArg* args, uint32_t counts) {
    if (op == 77) {  // does not succeed, so that nobody takes this
      args[0].object = given.Get();
      return 77;
    }
    if (op == 1) {  // gets its own object together with one of the client's, and returns both the other way round
      EXPECT_TRUE(Same(args[0].object, given.Get()));
      ObjectRetain(args[3].object = args[0].object);
      ObjectRetain(args[2].object = args[1].object);
      return OBJECT_OK;
    }
    EXPECT_EQ(op, 0x12345u);
    EXPECT_EQ(counts, ObjectCounts(3, 2, 1, 2));
    EXPECT_EQ(std::string(static_cast<char*>(args[0].buffer.ptr), args[0].buffer.size), "seven77");
    EXPECT_EQ(args[1].buffer.ptr, nullptr);
    EXPECT_EQ(args[1].buffer.size, 0u);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(args[2].buffer.ptr) % 8, 0u);
    EXPECT_EQ(args[3].buffer.size, 16u);
    EXPECT_EQ(args[4].buffer.ptr, nullptr);
    // The other way, while the first invocation runs.
    char answer[8] = {};
    ObjectArg inner[2];
    inner[0].buffer = {args[0].buffer.ptr, args[0].buffer.size};
    inner[1].buffer = {answer, sizeof(answer)};
    EXPECT_EQ(args[5].object.invoke(args[5].object.context, 9, inner, ObjectCounts(1, 1, 0, 0)), OBJECT_OK);
    EXPECT_EQ(inner[1].buffer.size, 3u);
    std::memcpy(args[3].buffer.ptr, answer, 3);
    args[3].buffer.size = 3;
    ObjectRetain(given.Get());
    args[6].object = given.Get();
    return OBJECT_OK;
  });
  {
    const Pair pair(root.Get());
    char first[] = "seven77";
    uint64_t third = 3;
    char output[16] = {};
    ObjectArg args[8];
    args[0].buffer = {first, 7};
    args[1].buffer = {nullptr, 0};
    args[2].buffer = {&third, 8};
    args[3].buffer = {output, sizeof(output)};
    args[4].buffer = {nullptr, 0};
    args[5].object = lent.Get();
    args[7].object = {nullptr, &third};
    ASSERT_EQ(pair.Call(args, ObjectCounts(3, 2, 1, 2), 0x12345), OBJECT_OK);
    EXPECT_EQ(args[3].buffer.size, 3u);
    EXPECT_STREQ(output, "sev");
    ASSERT_NE(args[6].object.invoke, nullptr);
    EXPECT_TRUE(Same(args[7].object, kNobody));

    ObjectArg back[4];
    back[0].object = args[6].object;
    back[1].object = lent.Get();
    ASSERT_EQ(pair.Call(back, ObjectCounts(0, 0, 2, 2), 1), OBJECT_OK);
    EXPECT_TRUE(Same(back[2].object, lent.Get()));
    EXPECT_GE(lent.references.Get(), 2);  // one of them came with the output
    EXPECT_EQ(back[3].object.invoke(back[3].object.context, 0, nullptr, 0), OBJECT_OK);
    EXPECT_EQ(given.invocations.Get(), 1);
    for (const Object& object : {args[6].object, back[2].object, back[3].object}) ObjectRelease(object);
    EXPECT_TRUE(given.references.AwaitEqual(1));

    EXPECT_EQ(pair.Call(args, ObjectCounts(0, 0, 0, 1), 77), 77);
    EXPECT_TRUE(Same(args[0].object, kNobody));
    EXPECT_EQ(pair.Call(nullptr, 0x10000), OBJECT_ERROR_INVALID);  // counts that no slots can have
    EXPECT_EQ(root.invocations.Get(), 3);
    // The server gave its reference to what it was lent back; that goes by while the client waits for something.
    EXPECT_EQ(pair.client->ServeUntil([&] { return lent.references.Get() == 1; }, Clock::now() + kPatience, -1),
              WaitResult::kDone);
  }
  EXPECT_EQ(root.references.Get(), 1);
}

TEST(Connection, ServesManyThreadsAtOnce) {
  CountedObject root([](uint32_t op, ObjectArg* args, uint32_t) {
    if (op == 0) return args[0].object.invoke(args[0].object.context, 1, nullptr, 0);
    return static_cast<int32_t>(op);
  });
  const Pair pair(root.Get());
  std::vector<std::thread> threads;
  for (uint32_t t = 1; t <= 6; ++t) {
    threads.emplace_back([&pair, t] {
      CountedObject callback([t](uint32_t, ObjectArg*, uint32_t) { return static_cast<int32_t>(t); });
      for (int i = 0; i < 100; ++i) {
        ObjectArg args[1];
        args[0].object = callback.Get();
        EXPECT_EQ(pair.Call(args, ObjectCounts(0, 0, 1, 0)), static_cast<int32_t>(t));
        EXPECT_EQ(pair.Call(nullptr, 0, 1000 + t), static_cast<int32_t>(1000 + t));
      }
      EXPECT_EQ(pair.client->ServeUntil([&] { return callback.references.Get() == 1; }, Clock::now() + kPatience, -1),
                WaitResult::kDone);
    });
  }
  for (std::thread& thread : threads) thread.join();
}

TEST(Connection, WaitsForADeadlineAWakeUpOrAnotherThread) {
  CountedObject root;
  const Pair pair(root.Get());
  UniqueFd wake(eventfd(0, 0));
  EXPECT_EQ(pair.client->ServeUntil([] { return false; }, Clock::now(), wake.Get()), WaitResult::kTimedOut);
  // One thread reads, the other waits for the same connection; both are woken by their own descriptors.
  std::thread waiting[2];
  UniqueFd wakes[2] = {UniqueFd(eventfd(0, 0)), UniqueFd(eventfd(0, 0))};
  for (int i = 0; i < 2; ++i) {
    waiting[i] = std::thread([&, i] {
      EXPECT_EQ(pair.client->ServeUntil([] { return false; }, std::nullopt, wakes[i].Get()), WaitResult::kWoken);
    });
  }
  for (const int i : {1, 0}) {
    EXPECT_EQ(pair.Call(nullptr, 0), OBJECT_OK);  // somebody reads the answer for this thread
    eventfd_write(wakes[i].Get(), 1);
    waiting[i].join();
  }
}

}  // namespace
}  // namespace fenk
