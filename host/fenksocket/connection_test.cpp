#include "host/fenksocket/connection.h"

#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <cstring>
#include <thread>

#include "host/fenksocket/limits.h"
#include "host/fenksocket/test_support.h"

namespace fenk {
namespace {

using namespace fenk::test;

constexpr Limits kTestLimits = {.maxFrameBytes = 8u << 20,
                                .maxExportedObjects = 64,
                                .maxImportedObjects = 64,
                                .maxNestedCalls = 4,
                                .answerDeadline = kPatience};

const Object kNobody = {nullptr, nullptr};

bool Same(const Object& a, const Object& b) { return a.invoke == b.invoke && a.context == b.context; }

// A client that pumps on the test's thread, and a server with a thread of its own.
class Pair {
 public:
  explicit Pair(Object root, Object clientRoot = kNobody, const Limits& serverLimits = kTestLimits,
                const Limits& clientLimits = kTestLimits) {
    SocketPair sockets;
    client = Connection::Create(std::move(sockets.one), clientLimits, clientRoot);
    server = Connection::Create(std::move(sockets.other), serverLimits, root);
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

TEST(Connection, CarriesSlotsOfEveryKind) {
  CountedObject given;
  CountedObject lent([](uint32_t op, ObjectArg* args, uint32_t counts) {
    EXPECT_EQ(counts, ObjectCounts(1, 1, 0, 0));
    EXPECT_EQ(op, 9u);
    std::memcpy(args[1].buffer.ptr, args[0].buffer.ptr, 3);
    args[1].buffer.size = 3;
    return OBJECT_OK;
  });
  CountedObject root([&](uint32_t op, ObjectArg* args, uint32_t counts) {
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
    ObjectRelease(args[6].object);
    EXPECT_TRUE(given.references.AwaitEqual(1));
    // The server gave its reference to what it was lent back; that goes by while the client waits for something.
    EXPECT_EQ(pair.client->ServeUntil([&] { return lent.references.Get() == 1; }, Clock::now() + kPatience, -1),
              WaitResult::kDone);
  }
  EXPECT_EQ(root.references.Get(), 1);
}

TEST(Connection, BringsAnObjectBackAsItself) {
  CountedObject servers;
  CountedObject clients;
  CountedObject root([&](uint32_t op, ObjectArg* args, uint32_t) {
    if (op == 0) {  // gives its own object away
      ObjectRetain(servers.Get());
      args[0].object = servers.Get();
      return OBJECT_OK;
    }
    // Gets it back together with one of the client's, and returns both the other way round.
    EXPECT_TRUE(Same(args[0].object, servers.Get()));
    ObjectRetain(args[0].object);
    ObjectRetain(args[1].object);
    args[2].object = args[1].object;
    args[3].object = args[0].object;
    return OBJECT_OK;
  });
  {
    const Pair pair(root.Get());
    ObjectArg given[1];
    ASSERT_EQ(pair.Call(given, ObjectCounts(0, 0, 0, 1), 0), OBJECT_OK);
    ObjectArg args[4];
    args[0].object = given[0].object;
    args[1].object = clients.Get();
    ASSERT_EQ(pair.Call(args, ObjectCounts(0, 0, 2, 2), 1), OBJECT_OK);
    EXPECT_TRUE(Same(args[2].object, clients.Get()));
    EXPECT_GE(clients.references.Get(), 2);  // one of them came with the output
    ObjectRelease(args[2].object);
    EXPECT_EQ(args[3].object.invoke(args[3].object.context, 0, nullptr, 0), OBJECT_OK);
    ObjectRelease(args[3].object);
    ObjectRelease(given[0].object);
    EXPECT_TRUE(servers.references.AwaitEqual(1));
    EXPECT_EQ(pair.client->ServeUntil([&] { return clients.references.Get() == 1; }, Clock::now() + kPatience, -1),
              WaitResult::kDone);
  }
}

TEST(Connection, PassesResultsOnAndOutputsOnlyWithSuccess) {
  CountedObject given;
  CountedObject root([&](uint32_t op, ObjectArg* args, uint32_t) {
    args[0].object = given.Get();  // without a reference: the operation does not succeed
    return static_cast<int32_t>(op);
  });
  const Pair pair(root.Get());
  for (const int32_t result : {1, 2, 77}) {
    ObjectArg args[1];
    args[0].object = given.Get();
    EXPECT_EQ(pair.Call(args, ObjectCounts(0, 0, 0, 1), static_cast<uint32_t>(result)), result);
    EXPECT_TRUE(Same(args[0].object, kNobody));
  }
  EXPECT_EQ(given.references.Get(), 1);
  EXPECT_EQ(pair.Call(nullptr, 0x10000), OBJECT_ERROR_INVALID);  // counts that no slots can have
  EXPECT_EQ(root.invocations.Get(), 3);
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

TEST(Connection, RefusesInvocationsNestedTooDeep) {
  std::atomic<int> deepest = 0;
  std::atomic<int32_t> innermost = 0;
  // Each end invokes the other's root, until it is refused.
  std::shared_ptr<Connection> ends[2];
  auto bounce = [&](int end) {
    return [&, end](uint32_t op, ObjectArg*, uint32_t) {
      if (deepest < static_cast<int>(op)) deepest = static_cast<int>(op);
      const Object other = ends[end]->PeerRoot();
      const int32_t result = other.invoke(other.context, op + 1, nullptr, 0);
      ObjectRelease(other);
      if (result != OBJECT_OK) innermost = result;
      return OBJECT_OK;
    };
  };
  CountedObject serverRoot(bounce(1));
  CountedObject clientRoot(bounce(0));
  const Pair pair(serverRoot.Get(), clientRoot.Get());
  ends[0] = pair.client;
  ends[1] = pair.server;
  EXPECT_EQ(pair.Call(nullptr, 0, 1), OBJECT_OK);
  EXPECT_EQ(innermost, kErrorLimit);
  EXPECT_EQ(deepest, 8);  // four at each end
  ends[0] = ends[1] = nullptr;
}

TEST(Connection, RefusesObjectsBeyondTheLimitsAndGivesThemBack) {
  std::vector<Object> kept;
  CountedObject given;
  CountedObject root([&](uint32_t op, ObjectArg* args, uint32_t) {
    if (op == 0) {
      ObjectRetain(given.Get());
      args[0].object = given.Get();
    } else {
      ObjectRetain(args[0].object);
      kept.push_back(args[0].object);
    }
    return OBJECT_OK;
  });
  Limits few = kTestLimits;
  few.maxExportedObjects = 3;
  few.maxImportedObjects = 2;
  const Pair pair(root.Get(), kNobody, few);
  ObjectArg args[1];
  std::vector<Object> taken;
  for (int i = 0; i < 5; ++i) {
    const int32_t result = pair.Call(args, ObjectCounts(0, 0, 0, 1), 0);
    EXPECT_EQ(result, i < 3 ? OBJECT_OK : kErrorLimit) << i;
    if (result == OBJECT_OK) taken.push_back(args[0].object);
  }
  EXPECT_EQ(given.references.Get(), 4);
  CountedObject callback;
  for (int i = 0; i < 4; ++i) {
    args[0].object = callback.Get();
    EXPECT_EQ(pair.Call(args, ObjectCounts(0, 0, 1, 0), 1), i < 2 ? OBJECT_OK : kErrorLimit) << i;
  }
  EXPECT_EQ(pair.client->ServeUntil([&] { return callback.references.Get() == 3; }, Clock::now() + kPatience, -1),
            WaitResult::kDone);
  for (const Object& object : kept) ObjectRelease(object);
  for (const Object& object : taken) ObjectRelease(object);
  EXPECT_TRUE(given.references.AwaitEqual(1));
  // What was given back makes room again.
  EXPECT_EQ(pair.Call(args, ObjectCounts(0, 0, 0, 1), 0), OBJECT_OK);
  ObjectRelease(args[0].object);
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
