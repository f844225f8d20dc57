// An end of a connection whose memory runs out, and a peer in the same process, exempt from it, that makes it serve
// invocations in every order.
#include <gtest/gtest.h>
#include <poll.h>

#include <set>
#include <thread>

#include "host/fenksocket/connection.h"
#include "host/fenksocket/limits.h"
#include "host/fenksocket/test_support.h"
#include "tests/failing_memory.h"
#include "tests/faults/fault_sweep.h"

namespace {

using namespace fenk::test;
using faults::Fault;
using faults::Require;

enum : uint16_t { kInvoke = 2, kReply = 3 };

// Sends an invocation that lends its callback; while the callback runs, one that has to wait and a nested one. True
// when each was answered, false when the connection ended first.
bool AskInEveryOrder(const RawPeer& peer) {
  const Bytes slots = Bytes().U64(8) += Reference(kMine, 5);
  if (!peer.Send(Hello() += Invoke(1, 0, 0, ObjectCounts(0, 1, 1, 1), slots))) return false;
  std::set<uint64_t> unanswered = {1};
  while (!unanswered.empty()) {
    const RawFrame frame = peer.Receive();
    if (frame.type == 0) {
      Require(peer.AwaitEnd(), "whoever is not answered is disconnected");
      return false;
    }
    if (frame.type == kInvoke) {
      const Bytes nested = Bytes().U32(32).U16(kInvoke).U16(1).U64(3).U64(0).U32(2).U32(0);
      (void)peer.Send((Invoke(2, 0, 2, 0) += nested) += Reply(frame.serial, OBJECT_OK));
      unanswered.insert({2, 3});
    }
    if (frame.type != kReply) continue;
    const auto result = static_cast<int32_t>(frame.U32(0));
    Require(result == OBJECT_OK || result == fenk::kErrorLimit, "an invocation succeeds or is refused");
    Require(unanswered.erase(frame.serial) == 1, "each invocation is answered once");
  }
  return true;
}

void Serve(const Fault& fault) {
  const scripted::FailingMemory::Exempt exempt;
  CountedObject given;
  CountedObject root([&](uint32_t op, ObjectArg* args, uint32_t) {
    if (op != 0) return int32_t{OBJECT_OK};
    const Object callback = args[1].object;
    const int32_t result = callback.invoke(callback.context, 0, nullptr, 0);
    if (result != OBJECT_OK) return result;  // outputs come with success alone
    ObjectRetain(given.Get());
    args[2].object = given.Get();
    return result;
  });
  SocketPair sockets;
  const RawPeer peer(std::move(sockets.other));
  fenk::Limits limits = fenk::kServerLimits;
  limits.answerDeadline = kPatience;
  auto connection = fenk::Connection::Create(std::move(sockets.one), limits, root.Get());
  {
    const faults::FaultWindow window(fault);
    std::thread serving([&] { connection->ServeUntil([] { return false; }, std::nullopt, -1); });
    const bool answered = AskInEveryOrder(peer);
    Require(answered || fault.failures != 0, "all is answered as long as there is memory");
    if (answered) {
      Require(peer.Send(Invoke(4, 0, 2, 0)), "the connection goes on");
      while (peer.Receive().serial != 4) Require(peer.Fd() >= 0, "there is a connection");
    }
    connection->Close();
    serving.join();
  }
  connection.reset();
  Require(root.references.Get() == 1 && given.references.Get() == 1, "each object is released once");
}

TEST(IpcFaults, WhileInvocationsWaitAndNest) { faults::Run("nested invocations", {.road = Serve}); }

}  // namespace
