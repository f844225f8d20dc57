// What stands behind a Connection: one end's state, kept alive by the connection and by every stand-in made on it.
#ifndef KESD_HOST_FENKSOCKET_SESSION_H_
#define KESD_HOST_FENKSOCKET_SESSION_H_

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <span>
#include <thread>
#include <vector>

#include "host/event/event.h"
#include "host/fenksocket/budget.h"
#include "host/fenksocket/connection.h"
#include "host/fenksocket/inbox.h"
#include "host/fenksocket/object_table.h"
#include "host/fenksocket/outbox.h"
#include "host/fenksocket/wire.h"
#include "ipc/object.h"
#include "support/mutex.h"

namespace fenk {

// The baton: at most one thread reads the socket. Whoever waits for something (a call for its reply, Serve for its
// condition) and finds no reader becomes it, serves what arrives, and hands the baton to another waiter when its own
// wait is over. It keeps the baton while it runs an invocation; if that calls the peer, it goes on reading within it,
// and runs within it only what the peer marked as nested: the rest is deferred until the running invocation is over.
class Session : public std::enable_shared_from_this<Session> {
 public:
  Session(UniqueFd connectedSocket, const Limits& peerLimits, Object servedRoot, std::function<void()> onUnsent,
          std::shared_ptr<UserBudget> userBudget);

  // Sends the HELLO. The first thing to be done.
  void Begin();

  Object PeerRoot();
  WaitResult Serve(const std::function<bool()>& done, std::optional<Clock::time_point> deadline, int wakeFd)
      KESD_EXCLUDES(mutex);
  // Calls of the peer fail from now on, and nothing more is served; the end comes as soon as no invocation runs.
  void Drain() KESD_EXCLUDES(mutex);
  // The first call decides how the connection ended.
  void End(EndKind kind, const char* what) KESD_EXCLUDES(mutex);
  ConnectionEnd HowEnded() KESD_EXCLUDES(mutex);
  void Flush() KESD_EXCLUDES(mutex);

 private:
  // For a thread that waits for something. While another one reads, it sleeps until it is signalled. Belongs to the
  // session and is used again, so that a signal that comes late wakes at worst somebody else for nothing.
  struct Waiter {
    Event event;
    UniqueFd eventFd;         // is set as well, for one that also waits for a descriptor
    bool everyFrame = false;  // is to be signalled after each frame served
    Waiter* next = nullptr;   // in `waiting` or `spareWaiters`
  };

  // A waiter for the length of a wait. Throws std::bad_alloc.
  class WaiterLease {
   public:
    explicit WaiterLease(Session& owner);
    WaiterLease(const WaiterLease&) = delete;
    ~WaiterLease();
    Waiter& Get() const { return waiter; }

   private:
    Session& session;
    Waiter& waiter;
  };

  // An invocation of the peer's object. Lies on its caller's stack; whoever takes it out of `calls` completes it.
  struct Call {
    uint64_t serial;
    uint32_t counts;
    ObjectArg* args;
    int32_t result = kErrorDisconnected;
    std::atomic<bool> done = false;  // set under the lock
    Waiter& waiter;
  };

  // A stand-in's context.
  struct StandIn {
    std::atomic<uint32_t> references = 1;
    std::shared_ptr<Session> session;
    std::unique_ptr<Receipt> receipt;  // null for the peer's root, which is not counted
    uint64_t Id() const { return receipt ? receipt->id : wire::kRootId; }
  };

  // The objects that one frame brought; lets go in the end of what nobody took.
  struct ReceivedObjects {
    ~ReceivedObjects();
    std::array<Object, wire::kMaxSlots> objects;
    std::array<bool, wire::kMaxSlots> standIn{};                             // with a reference to be released
    std::array<std::shared_ptr<const LocalReference>, wire::kMaxSlots> own;  // came back: kept alive meanwhile
    bool refused = false;                                                    // the limit on imports was hit
  };

  // An invocation from the peer, ready to run.
  struct Incoming {
    Frame frame;
    wire::Invocation invocation;
    Object target;
    std::shared_ptr<const LocalReference> own;  // keeps the target alive
    ReceivedObjects inputs;
    std::unique_ptr<std::byte[]> outputs;  // memory for the output buffers
    int32_t refusal = OBJECT_OK;           // anything else is the answer
  };

  // The objects that one frame sends. Unless they were sent, they are withdrawn in the end.
  struct SentObjects {
    explicit SentObjects(Session& owner) : session(owner) {}
    ~SentObjects();
    // Takes over one reference of `object`, which may be null; false at the limit.
    bool Add(const Object& object, wire::ObjectReference& reference);
    Session& session;
    std::array<uint64_t, wire::kMaxSlots> ids;
    std::size_t idCount = 0;
    std::array<Object, wire::kMaxSlots> standIns;  // the peer's own: released here once the frame is sent
    std::size_t standInCount = 0;
    bool sent = false;
  };

  // session_wait.cpp: the end, and the baton.
  bool Draining() KESD_EXCLUDES(mutex) {
    const kesd::MutexLock lock(mutex);
    return draining;
  }
  Waiter& TakeWaiter() KESD_EXCLUDES(mutex);
  void FailCalls() KESD_REQUIRES(mutex);
  WaitResult Wait(const std::function<bool()>& done, std::optional<Clock::time_point> deadline, int wakeFd,
                  Waiter& waiter) KESD_EXCLUDES(mutex);
  bool TakeBaton(const Waiter& waiter) KESD_EXCLUDES(mutex);
  WaitResult ReadAndServe(std::optional<Clock::time_point> deadline, int wakeFd) KESD_EXCLUDES(mutex);
  WaitResult OpenEvent(Waiter& waiter) KESD_EXCLUDES(mutex);
  WaitResult AwaitSignal(Waiter& waiter, std::optional<Clock::time_point> deadline, int wakeFd) KESD_EXCLUDES(mutex);
  static void Signal(Waiter& waiter);

  // session_call.cpp: this end invokes the peer's objects.
  static int32_t InvokeStandIn(void* context, uint32_t op, ObjectArg* args, uint32_t counts);
  int32_t CallPeer(uint64_t target, uint32_t op, ObjectArg* args, uint32_t counts) KESD_EXCLUDES(mutex);
  bool IsNested() KESD_EXCLUDES(mutex);
  bool SendCall(wire::FrameBuilder& frame, Call& call, Clock::time_point deadline) KESD_EXCLUDES(mutex);
  bool TakeCall(const Call& call) KESD_REQUIRES(mutex);
  void Fail(Call& call, int32_t result) KESD_EXCLUDES(mutex);
  const char* ServeReply(const Frame& frame) KESD_EXCLUDES(mutex);
  const char* TakeOutputs(const wire::Reply& reply, Call& call);

  // session_objects.cpp: references, as they come and go.
  Object MakeStandIn(std::unique_ptr<Receipt> receipt);
  Object Import(uint64_t id);
  bool TakeImport();
  void GiveImport();
  bool IsOwnStandIn(const Object& object) const;
  const char* Receive(std::span<const wire::ObjectReference> references, ReceivedObjects& received);

  // session_serve.cpp: the peer invokes this end's objects.
  void ServeFrame(const Frame& frame) KESD_EXCLUDES(mutex);
  const char* ServeHello(const Frame& frame);
  const char* ServeRelease(const Frame& frame);
  const char* ServeInvocation(const Frame& frame) KESD_EXCLUDES(mutex);
  const char* Prepare(Incoming& incoming);
  bool ServeDeferred() KESD_EXCLUDES(mutex);
  void Answer(Incoming& incoming) KESD_EXCLUDES(mutex);
  int32_t Run(Incoming& incoming);
  bool ReplyWithOutputs(const wire::Invocation& invocation, const ObjectArg* outputBuffers,
                        const ObjectArg* outputObjects);
  void Reply(const wire::Invocation& invocation, int32_t result);
  bool SendReply(wire::FrameBuilder& frame);

  const UniqueFd socket;
  const Limits limits;
  const Object root;
  const std::shared_ptr<UserBudget> user;
  Outbox outbox;
  Inbox inbox;           // the reader's own
  bool greeted = false;  // the reader's own: the peer's HELLO has come
  ObjectTable exports;
  Budget imports;
  std::atomic<uint64_t> lastSerial = 0;
  std::atomic<uint32_t> peerMaxFrameBytes;  // no limit is known until the peer's HELLO has come

  // These change under the lock only, and are read without it where a change that is just being made need not be seen.
  std::atomic<bool> over = false;   // draining or ended
  std::atomic<uint32_t> depth = 0;  // invocations that run, each within the one before
  std::atomic<std::size_t> deferredCount = 0;

  kesd::Mutex mutex;
  std::optional<std::thread::id> reader KESD_GUARDED_BY(mutex);
  std::list<Waiter> waiters KESD_GUARDED_BY(mutex);  // as many as ever waited at once
  Waiter* spareWaiters KESD_GUARDED_BY(mutex) = nullptr;
  Waiter* waiting KESD_GUARDED_BY(mutex) = nullptr;
  uint32_t frameWatchers KESD_GUARDED_BY(mutex) = 0;  // of them, but for the reader, those for every frame
  std::vector<Call*> calls KESD_GUARDED_BY(mutex);
  std::list<Incoming> deferred KESD_GUARDED_BY(mutex);  // until no invocation runs
  bool draining KESD_GUARDED_BY(mutex) = false;
  ConnectionEnd end KESD_GUARDED_BY(mutex) = {EndKind::kOpen, ""};
};

}  // namespace fenk

#endif  // KESD_HOST_FENKSOCKET_SESSION_H_
