// The serving end of a connection against any bytes from its client, with a root object that takes, keeps, makes and
// returns objects, and invokes the client's from within invocations and from other threads. In the end every object
// has been released, every limit has all back, and what was sent was frames.
#include <sys/socket.h>

#include <atomic>
#include <list>
#include <mutex>
#include <optional>
#include <span>
#include <string_view>
#include <thread>

#include "fuzz/wire_stream.h"
#include "host/fenksocket/connection.h"
#include "host/fenksocket/wire.h"
#include "tests/failing_memory.h"

namespace {

using fuzz::Input;
using fuzz::Require;
using scripted::FailingMemory;

constexpr fenk::Limits kLimits{65'536, 24, 12, 4, std::chrono::seconds(2)};
constexpr std::chrono::milliseconds kSoon{3};
constexpr fenk::UserLimits kUser{4, 20, 10, 3, 100'000};

// The serving side. Whichever of its threads reads also serves.
class Server {
 public:
  // `how`: whether releases wait for the client; whether it reads at all.
  Server(fenk::UniqueFd socket, fenk::UniqueFd clientsEnd, unsigned how)
      : client(std::move(clientsEnd)), clientReads(how < 12) {
    std::function<void()> unsent;
    if (how % 2 != 0) unsent = [] {};  // it is flushed after each frame anyway
    fenk::Limits limits = kLimits;
    if (!clientReads) {
      limits.answerDeadline = kSoon;
      const int least = 1;
      setsockopt(socket.Get(), SOL_SOCKET, SO_SNDBUF, &least, sizeof(least));
    }
    connection = fenk::Connection::Create(std::move(socket), limits, {Invoke, this}, std::move(unsent), user);
  }

  // Serves until the connection ends. The bytes that it gets are there already, so nothing waits long. Of the serving
  // thread's allocations one fails.
  std::string Run(int failing) {
    const auto done = [this] {
      connection->Flush();
      return Drain();
    };
    fenk::WaitResult result;
    {
      const scripted::FailingMemory memory(failing, 1);
      result = connection->ServeUntil(std::ref(done), fenk::Clock::now() + std::chrono::seconds(30), -1);
    }
    Require(result == fenk::WaitResult::kDisconnected, "the connection ends with its stream");
    Require(connection->End().kind != fenk::EndKind::kOpen, "an end has a reason");
    while (std::optional<std::thread> thread = NextThread()) thread->join();
    connection->Close();
    Drain();
    for (const Object& object : kept) {  // stand-ins outlive the connection
      Require(object.invoke == nullptr || object.invoke == Invoke || object.invoke == InvokeNode ||
                  Call(object) != OBJECT_OK,
              "nobody is there any more");
      ObjectRelease(object);
    }
    connection.reset();
    for (const std::atomic<int>& references : nodes) Require(references == 0, "every object is released");
    const auto isBack = [](fenk::Budget& budget, uint64_t all) { return budget.Take(all) && !budget.Take(1); };
    Require(isBack(user->exportedObjects, kUser.exportedObjects) &&
                isBack(user->importedObjects, kUser.importedObjects) && isBack(user->calls, kUser.calls) &&
                isBack(user->frameBytes, kUser.frameBytes),
            "all limits have all back");
    return std::move(sent);
  }

 private:
  // An object that is nothing but counted, and stays to be counted when it is released.
  static int32_t InvokeNode(void* context, uint32_t op, ObjectArg*, uint32_t) {
    auto& references = *static_cast<std::atomic<int>*>(context);
    Require(references > 0, "an object that is used has not been released");
    if (ObjectOperation(op) == OBJECT_OP_RETAIN) ++references;
    if (ObjectOperation(op) == OBJECT_OP_RELEASE) --references;
    return OBJECT_OK;
  }

  Object MakeNode() {
    const FailingMemory::Exempt exempt;
    const std::lock_guard lock(mutex);
    return {InvokeNode, &nodes.emplace_back(1)};
  }

  // Never true: a condition to serve until.
  bool Drain() {
    const FailingMemory::Exempt exempt;
    const std::lock_guard lock(mutex);
    char bytes[16384];
    for (ssize_t n; clientReads && (n = recv(client.Get(), bytes, sizeof(bytes), MSG_DONTWAIT)) > 0;) {
      sent.append(bytes, static_cast<std::size_t>(n));
    }
    return false;
  }

  std::optional<std::thread> NextThread() {
    const std::lock_guard lock(mutex);
    if (threads.empty()) return std::nullopt;
    std::thread next = std::move(threads.back());
    threads.pop_back();
    return next;
  }

  // Invokes a callback with every kind of slot.
  int32_t Call(const Object& object) {
    char bytes[64] = {};
    const Object lent = MakeNode();
    ObjectArg args[] = {{.buffer = {bytes, 40}}, {.buffer = {bytes, 64}}, {.object = lent}, {.object = object}, {}, {}};
    const int32_t result = object.invoke(object.context, 0, args, ObjectCounts(1, 1, 2, 2));
    for (const ObjectArg& arg : {args[4], args[5]}) {
      if (result == OBJECT_OK && arg.object.invoke != nullptr) ObjectRelease(arg.object);
    }
    ObjectRelease(lent);
    return result;
  }

  void Keep(const Object& object) {
    ObjectRetain(object);
    const FailingMemory::Exempt exempt;
    const std::lock_guard lock(mutex);
    kept.push_back(object);
  }

  void ReleaseKept() {
    std::vector<Object> dropped;
    {
      const std::lock_guard lock(mutex);
      dropped.swap(kept);
    }
    for (const Object& object : dropped) ObjectRelease(object);
  }

  // As a result is delivered: by another thread, with a reference of its own.
  void Deliver() {
    const FailingMemory::Exempt exempt;
    const std::lock_guard lock(mutex);
    if (kept.empty() || started == 4 || kept.back().invoke == Invoke) return;
    ++started;
    threads.emplace_back([this, object = kept.back()] {
      (void)Call(object);
      ObjectRelease(object);
    });
    kept.pop_back();
  }

  static int32_t Invoke(void* context, uint32_t op, ObjectArg* args, uint32_t counts) {
    Server& self = *static_cast<Server*>(context);
    if (ObjectOperation(op) >= OBJECT_OP_RETAIN) return OBJECT_OK;
    self.Drain();
    return self.Serve(op, args, counts);
  }

  int32_t Serve(uint32_t op, ObjectArg* args, uint32_t counts) {
    using fenk::wire::InputBuffers, fenk::wire::InputObjects, fenk::wire::OutputBuffers, fenk::wire::OutputObjects;
    const std::span outputs(args + InputBuffers(counts), OutputBuffers(counts));
    const std::span objects(outputs.data() + outputs.size(), InputObjects(counts));
    const std::span made(objects.data() + objects.size(), OutputObjects(counts));
    for (uint32_t i = 0; i < InputBuffers(counts); ++i) {
      const FailingMemory::Exempt exempt;
      std::vector<uint8_t> copy(args[i].buffer.size);  // so that each octet is read
      if (!copy.empty()) std::memcpy(copy.data(), args[i].buffer.ptr, copy.size());
    }
    for (ObjectArg& arg : outputs) {
      if (arg.buffer.size != 0) std::memset(arg.buffer.ptr, 1, arg.buffer.size /= 2);
    }
    switch (ObjectOperation(op) % 10) {
      case 0:
        for (ObjectArg& arg : made) arg.object = MakeNode();
        break;
      case 1:
        for (ObjectArg& arg : objects) Keep(arg.object);
        break;
      case 2:
        for (const ObjectArg& arg : objects) {
          if (arg.object.invoke != Invoke) (void)Call(arg.object);
        }
        break;
      case 3:
        for (std::size_t i = 0; i < made.size() && i < objects.size(); ++i) {
          ObjectRetain(made[i].object = objects[i].object);
        }
        break;
      case 4:
        ReleaseKept();
        break;
      case 5:
        Deliver();
        break;
      case 6:
        return OBJECT_ERROR;
      case 7:
        connection->Drain();
        break;
      case 8:
        connection->Close();
        break;
      default:
        if (made.size() > 1) made[1].object = connection->PeerRoot();
    }
    return OBJECT_OK;
  }

  std::shared_ptr<fenk::UserBudget> user = std::make_shared<fenk::UserBudget>(kUser);
  const fenk::UniqueFd client;
  const bool clientReads;
  std::shared_ptr<fenk::Connection> connection;
  std::mutex mutex;
  std::list<std::atomic<int>> nodes;
  std::vector<Object> kept;
  std::vector<std::thread> threads;
  int started = 0;
  std::string sent;
};

// `longest`: what the client takes.
void CheckFrames(std::string_view sent, std::size_t longest) {
  using namespace fenk::wire;
  for (bool first = true;; first = false) {
    FrameHeader header;
    if (sent.size() < sizeof(header)) return;  // it may end within a frame
    std::memcpy(&header, sent.data(), sizeof(header));
    Require(header.length >= sizeof(header) && header.length % 8 == 0 && (first || header.length <= longest),
            "a frame's length");
    if (sent.size() < header.length) return;
    const std::span frame(reinterpret_cast<const std::byte*>(sent.data()), header.length);
    HelloBody hello;
    Invocation invocation;
    Reply reply;
    FrameReader release(frame);
    const char* wrong = header.type == kHello    ? Decode(frame, hello)
                        : header.type == kInvoke ? Decode(frame, invocation)
                        : header.type == kReply  ? Decode(frame, reply)
                                                 : DecodeRelease(release);
    Require(wrong == nullptr && header.type <= kRelease && first == (header.type == kHello), "a frame's form");
    sent.remove_prefix(header.length);
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  Input input(data, size);
  const uint8_t how = input.Take<uint8_t>();
  const uint8_t failing = input.Take<uint8_t>();
  fuzz::WireStream stream(input, 0x2010);
  if (how % 16 < 14) stream.stream = fenk::test::Hello().data;
  const bool takesLittle = how % 16 == 12 || how % 16 == 13;
  if (takesLittle) stream.stream.replace(24, 4, {0, 0x10, 0, 0});
  const std::string bytes = stream.Take();

  const int descriptor = fuzz::NextDescriptor();
  {
    fenk::test::SocketPair sockets;
    (void)send(sockets.other.Get(), bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);  // what fits
    shutdown(sockets.other.Get(), SHUT_WR);
    Server server(std::move(sockets.one), std::move(sockets.other), how / 16);
    CheckFrames(server.Run(failing < 128 ? failing : 1 << 20), takesLittle ? 4096 : 2 * kLimits.maxFrameBytes);
  }
  Require(fuzz::NextDescriptor() == descriptor, "every descriptor is closed");
  return 0;
}
