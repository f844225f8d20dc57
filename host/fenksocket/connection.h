// One end of a connection between two processes that invoke each other's objects. The daemon's IPC library and
// the client library use the same code; docs/wire-protocol.md has the format.
#ifndef KESD_HOST_FENKSOCKET_CONNECTION_H_
#define KESD_HOST_FENKSOCKET_CONNECTION_H_

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include "host/fenksocket/budget.h"
#include "host/fenksocket/unique_fd.h"
#include "ipc/object.h"

namespace fenk {

class Session;

using Clock = std::chrono::steady_clock;

// What an invocation of a peer's object answers when it never got an answer: the connection ended, the peer
// did not answer in time, a limit was hit, or memory ran out. Results of the objects themselves are 0 and up.
inline constexpr int32_t kErrorDisconnected = -1;
inline constexpr int32_t kErrorTimedOut = -2;
inline constexpr int32_t kErrorLimit = -3;

// What one end admits. A peer that exceeds a limit is disconnected, or its invocation refused where the format can
// say so; docs/wire-protocol.md states which.
struct Limits {
  uint32_t maxFrameBytes;       // length of one frame from the peer
  uint32_t maxExportedObjects;  // references to this end's objects that the peer may hold
  uint32_t maxImportedObjects;  // references to the peer's objects that this end accepts
  uint32_t maxNestedCalls;      // invocations within invocations
  // For the peer to take a frame, to answer an invocation, to send the rest of a frame, and to say HELLO.
  std::chrono::milliseconds answerDeadline;
};

enum class WaitResult {
  kDone,          // the condition holds
  kTimedOut,      // the deadline passed first
  kWoken,         // the wake descriptor became readable first
  kDisconnected,  // the connection ended first
};

enum class EndKind {
  kOpen,          // it has not ended
  kClosedHere,    // by Close or Drain
  kClosedByPeer,  // orderly or not
  kViolation,     // the peer broke the protocol or exceeded a limit
  kDeadline,      // the peer did not take a frame, did not answer or did not send in time
  kFailure        // this end ran out of memory
};

struct ConnectionEnd {
  EndKind kind;
  const char* what;  // for a log line; empty while open. Static.
};

// Any thread may call any method, several at once. A stand-in for a peer's object is an `Object` like any other; it
// keeps its connection's state alive, so it may be invoked and released at any time, also after the end. Retaining and
// releasing it are local. Invoking it clears the output objects first, and writes outputs only with OBJECT_OK.
class Connection : public std::enable_shared_from_this<Connection> {
 public:
  // Takes over a connected Unix stream socket. `root` is what the peer finds as this end's root object; it is
  // not counted. An end that serves nothing passes {nullptr, nullptr}.
  // A last release must tell the peer, and the socket may be full. With `unsent` it never waits: `unsent` is called
  // (on any thread, no lock held) when something had to stay, and whoever made the connection calls Flush once the
  // socket is writable, and from time to time until then. Without it, the release waits for the peer, for the answer
  // deadline at most.
  // `user`: what it shares with the user's other connections; null is without such limits.
  // Null when memory ran out.
  static std::shared_ptr<Connection> Create(UniqueFd socket, const Limits& limits, Object root,
                                            std::function<void()> unsent = nullptr,
                                            std::shared_ptr<UserBudget> user = nullptr);

  // A stand-in for the peer's root object, with one reference that belongs to the caller. {nullptr, nullptr} when
  // memory ran out.
  Object PeerRoot();

  // Reads frames and serves them on the calling thread (or lets the thread that already does so do it) until `done`
  // holds, the deadline passes, `wakeFd` is readable or the connection ends. `done` is called with no lock held
  // after each frame that this end has served; it may be called on any thread that serves. A negative `wakeFd` is none.
  // Throws std::bad_alloc, but not on the first thread that waits.
  WaitResult ServeUntil(const std::function<bool()>& done, std::optional<Clock::time_point> deadline, int wakeFd);

  // Ends the connection: every invocation that waits on it fails, and everything the peer held is released, once.
  // Does not wait for other threads.
  void Close();

  // Ends the connection as soon as no invocation from the peer runs: those in progress finish and are answered, but
  // what they or other threads ask of the peer fails at once. Does not wait.
  void Drain();

  // How it ended, if it has.
  ConnectionEnd End() const;

  // Sends what `unsent` announced, as far as the socket takes it. Never waits. Ends the connection of a peer that has
  // not taken it by the answer deadline.
  void Flush();

  // Closes the connection; what the peer gave lives on and answers kErrorDisconnected.
  ~Connection();

 private:
  explicit Connection(std::shared_ptr<Session> session);
  const std::shared_ptr<Session> session;
};

}  // namespace fenk

#endif  // KESD_HOST_FENKSOCKET_CONNECTION_H_
