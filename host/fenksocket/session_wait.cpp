// How a session begins and ends, and how its threads take turns at reading.
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <cerrno>
#include <chrono>
#include <limits>
#include <new>
#include <utility>

#include "host/fenksocket/poll_timeout.h"
#include "host/fenksocket/session.h"

namespace fenk {
namespace {

// Has the kernel end a blocking read in time for whoever waits for an answer, who need not ask before each read whether
// there is something then: half the deadline, so that an answer's wait begins with such a read. What it now is.
std::chrono::milliseconds BoundReads(int socket, std::chrono::milliseconds answerDeadline) {
  const std::chrono::milliseconds half = answerDeadline / 2;
  const timeval timeout{half.count() / 1000, half.count() % 1000 * 1000};
  const bool bounded = setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof(timeout)) == 0;
  return bounded ? half : std::chrono::milliseconds(0);
}

}  // namespace

Session::Session(UniqueFd connectedSocket, const Limits& peerLimits, Object servedRoot, std::function<void()> onUnsent,
                 std::shared_ptr<UserBudget> userBudget)
    : socket(std::move(connectedSocket)),
      limits(peerLimits),
      root(servedRoot),
      user(std::move(userBudget)),
      outbox(socket.Get(), peerLimits.answerDeadline, std::move(onUnsent)),
      inbox(socket.Get(),
            {.maxFrameBytes = peerLimits.maxFrameBytes,
             .readTimeout = BoundReads(socket.Get(), peerLimits.answerDeadline),
             .patience = peerLimits.answerDeadline},
            user->frameBytes),
      exports(peerLimits.maxExportedObjects, user->exportedObjects),
      imports(peerLimits.maxImportedObjects),
      peerMaxFrameBytes(std::numeric_limits<uint32_t>::max()) {
  spareWaiters = &waiters.emplace_back();  // so that the first to serve needs no memory
}

void Session::Begin() {
  wire::FrameBuilder hello(wire::kHello, 0);
  hello.Put(wire::HelloBody{wire::kMagic, wire::kVersion, 0, limits.maxFrameBytes, 0});
  if (!hello.Finish(wire::kSmallestMaxFrameBytes) ||
      outbox.Send(hello.Parts(), Clock::now()) != Outbox::Result::kSent) {
    End(EndKind::kClosedByPeer, "closed by the peer");
  }
}

Session::WaiterLease::WaiterLease(Session& owner) : session(owner), waiter(owner.TakeWaiter()) {}

Session::WaiterLease::~WaiterLease() {
  const kesd::MutexLock lock(session.mutex);
  waiter.eventFd.Reset(-1);
  waiter.next = session.spareWaiters;
  session.spareWaiters = &waiter;
}

Session::Waiter& Session::TakeWaiter() {
  const kesd::MutexLock lock(mutex);
  if (spareWaiters == nullptr) return waiters.emplace_back();
  Waiter& waiter = *spareWaiters;
  spareWaiters = waiter.next;
  waiter.everyFrame = false;
  return waiter;
}

WaitResult Session::Serve(const std::function<bool()>& done, std::optional<Clock::time_point> deadline, int wakeFd) {
  const WaiterLease lease(*this);
  lease.Get().everyFrame = true;
  return Wait(done, deadline, wakeFd, lease.Get());
}

void Session::Drain() {
  {
    const kesd::MutexLock lock(mutex);
    if (over) return;
    over = draining = true;
    FailCalls();
    if (depth != 0) {
      shutdown(socket.Get(), SHUT_RD);  // an invocation may be reading for a reply
      return;
    }
  }
  // A reply may be queued behind what is being sent; whoever drains closes what does not come to its end.
  if (!outbox.IsWriting()) End(EndKind::kClosedHere, "closed here");
}

void Session::End(EndKind kind, const char* what) {
  decltype(deferred) dropped;  // a list, which needs no memory as long as it is empty
  {
    const kesd::MutexLock lock(mutex);
    if (end.kind != EndKind::kOpen) return;
    end = {kind, what};
    over = true;
    dropped.swap(deferred);
    deferredCount = 0;
    FailCalls();
    for (Waiter* waiter = waiting; waiter != nullptr; waiter = waiter->next) Signal(*waiter);
  }
  shutdown(socket.Get(), SHUT_RDWR);
  outbox.Close();
  exports.Close();
}

void Session::Flush() {
  if (!outbox.Flush()) End(EndKind::kDeadline, "did not take a frame in time");
}

ConnectionEnd Session::HowEnded() {
  const kesd::MutexLock lock(mutex);
  return end;
}

void Session::FailCalls() {
  for (Call* call : calls) {
    Waiter& waiter = call->waiter;
    call->done = true;  // from here on it is its caller's alone
    Signal(waiter);
  }
  calls.clear();
}

WaitResult Session::Wait(const std::function<bool()>& done, std::optional<Clock::time_point> deadline, int wakeFd,
                         Waiter& waiter) {
  bool reading = false;
  {
    const kesd::MutexLock lock(mutex);
    if (reader == std::this_thread::get_id()) {
      reading = true;
    } else {
      waiter.next = waiting;
      waiting = &waiter;
      if (waiter.everyFrame) ++frameWatchers;
    }
  }
  const bool nested = reading;
  WaitResult result;
  for (;;) {
    if (!reading) reading = TakeBaton(waiter);
    result = WaitResult::kDone;
    if (done()) break;
    result = WaitResult::kDisconnected;
    if (over) break;
    result = reading ? ReadAndServe(deadline, wakeFd) : AwaitSignal(waiter, deadline, wakeFd);
    if (result == WaitResult::kTimedOut || result == WaitResult::kWoken) break;
  }
  if (nested) return result;
  const kesd::MutexLock lock(mutex);
  if (reading) {
    reader.reset();
  } else if (waiter.everyFrame) {
    --frameWatchers;
  }
  Waiter** link = &waiting;
  while (*link != &waiter) link = &(*link)->next;
  *link = waiter.next;
  if (!reader && waiting != nullptr) Signal(*waiting);
  return result;
}

// True when this thread has become the reader.
bool Session::TakeBaton(const Waiter& waiter) {
  const kesd::MutexLock lock(mutex);
  if (reader) return false;
  reader = std::this_thread::get_id();
  if (waiter.everyFrame) --frameWatchers;
  return true;
}

// One frame, or one deferred invocation. kDone when there may be more.
WaitResult Session::ReadAndServe(std::optional<Clock::time_point> deadline, int wakeFd) {
  try {
    if (ServeDeferred()) return WaitResult::kDone;
    Frame frame;
    switch (inbox.Next(frame, deadline, wakeFd)) {
      case Inbox::Status::kFrame:
        ServeFrame(frame);
        return WaitResult::kDone;
      case Inbox::Status::kTimedOut:
        return WaitResult::kTimedOut;
      case Inbox::Status::kWoken:
        return WaitResult::kWoken;
      case Inbox::Status::kStalled:
        End(EndKind::kDeadline, "did not send a whole frame in time");
        break;
      case Inbox::Status::kMalformed:
        End(EndKind::kViolation, inbox.Wrong());
        break;
      case Inbox::Status::kEnd: {
        // While draining, the last reply is still to be sent.
        if (!Draining()) End(EndKind::kClosedByPeer, "closed by the peer");
        break;
      }
    }
  } catch (const std::bad_alloc&) {
    End(EndKind::kFailure, "out of memory");
  }
  return WaitResult::kDisconnected;
}

// kDone when it was signalled.
WaitResult Session::AwaitSignal(Waiter& waiter, std::optional<Clock::time_point> deadline, int wakeFd) {
  if (wakeFd < 0) return waiter.event.Wait(deadline) ? WaitResult::kDone : WaitResult::kTimedOut;
  if (!waiter.eventFd.IsOpen()) return OpenEvent(waiter);
  pollfd watched[2] = {{wakeFd, POLLIN, 0}, {waiter.eventFd.Get(), POLLIN, 0}};
  const int ready = poll(watched, 2, PollTimeout(deadline));
  if (ready > 0 && watched[0].revents != 0) return WaitResult::kWoken;
  if (ready == 0 && deadline && Clock::now() >= *deadline) return WaitResult::kTimedOut;
  eventfd_t count;
  (void)eventfd_read(waiter.eventFd.Get(), &count);  // nothing to read after an interruption
  return WaitResult::kDone;
}

// What was signalled before is yet to be looked at.
WaitResult Session::OpenEvent(Waiter& waiter) {
  {
    const kesd::MutexLock lock(mutex);
    waiter.eventFd.Reset(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  }
  if (!waiter.eventFd.IsOpen()) End(EndKind::kFailure, "out of descriptors");
  return WaitResult::kDone;
}

// Under the lock: the descriptor is the waiting thread's.
void Session::Signal(Waiter& waiter) {
  waiter.event.Set();
  if (waiter.eventFd.IsOpen()) (void)eventfd_write(waiter.eventFd.Get(), 1);  // fails only when it is set already
}

}  // namespace fenk
