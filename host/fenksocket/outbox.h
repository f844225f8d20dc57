// Frames into a stream socket.
#ifndef KESD_HOST_FENKSOCKET_OUTBOX_H_
#define KESD_HOST_FENKSOCKET_OUTBOX_H_

#include <sys/uio.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>

#include "host/fenksocket/wire.h"
#include "support/mutex.h"

namespace fenk {

// A reference to one of the peer's objects, to be given back. Made when the reference arrives, so that giving it back
// needs no memory.
struct Receipt {
  explicit Receipt(uint64_t objectId) : id(objectId) {}
  const uint64_t id;
  std::unique_ptr<Receipt> next;
};

// Writes whole frames, one thread at a time; any thread may call any method.
class Outbox {
 public:
  enum class Result { kSent, kTimedOut, kClosed };

  // `unsent` is called, with no lock held, when something queued or the rest of it had to stay because the socket is
  // full and no thread is left that waits for it: Flush is then due once the socket is writable, and from time to time
  // until it is. Without `unsent`, whoever sends the queue waits for the peer, up to `peerPatience`.
  Outbox(int socket, std::chrono::milliseconds peerPatience, std::function<void()> unsent);
  ~Outbox();

  // Sends one frame, or nothing when its turn does not come in time. A short one is queued for the thread that writes
  // just now, if there is one: waiting for it would cost two changes of thread. After kTimedOut the stream may have
  // ended within the frame: the connection is of no more use.
  Result Send(std::span<iovec> frame, std::chrono::steady_clock::time_point deadline) KESD_EXCLUDES(mutex);

  // Sends the receipt now, or queues it for whoever writes next.
  void GiveBack(std::unique_ptr<Receipt> receipt) KESD_EXCLUDES(mutex);

  // Sends what is queued, as far as the socket takes it. False when it has not taken what is next in time.
  [[nodiscard]] bool Flush() KESD_EXCLUDES(mutex);

  // Whether a thread is sending.
  bool IsWriting() KESD_EXCLUDES(mutex);

  // Waits for the thread that is sending, and sends what is queued.
  void Settle(std::chrono::steady_clock::time_point deadline) KESD_EXCLUDES(mutex);

  // Nothing is sent from now on; threads that wait here return. The socket must have been shut down.
  void Close() KESD_EXCLUDES(mutex);

 private:
  using Deadline = std::optional<std::chrono::steady_clock::time_point>;  // none: does not wait

  // The turn: one thread at a time writes, and whoever has it sends what others queued before giving it up.
  Result TakeTurn(Deadline deadline) KESD_REQUIRES(mutex);
  bool Queue(std::span<const iovec> frame) KESD_REQUIRES(mutex);
  void EndTurn() KESD_EXCLUDES(mutex);
  // These are the turn's.
  bool NextBatch(bool sentOne) KESD_EXCLUDES(mutex);
  Result WriteBatch(Deadline deadline);
  Result Write(std::span<iovec> parts, std::size_t& written, Deadline deadline) const;

  static constexpr std::size_t kQueueBytes = 512;  // a few replies and small invocations
  static constexpr std::size_t kIdsPerFrame = 64;
  static constexpr std::size_t kLongestRelease = sizeof(wire::FrameHeader) + kIdsPerFrame * sizeof(uint64_t);

  const int fd;
  const std::chrono::milliseconds patience;
  const std::function<void()> onUnsent;

  kesd::Mutex mutex;
  kesd::Condition turn;
  bool writing KESD_GUARDED_BY(mutex) = false;         // a thread has the turn
  uint32_t waitingThreads KESD_GUARDED_BY(mutex) = 0;  // for the turn
  bool closed KESD_GUARDED_BY(mutex) = false;
  // The queue: frames, and the receipts that go behind them.
  std::array<std::byte, kQueueBytes> frames KESD_GUARDED_BY(mutex);
  std::size_t framesSize KESD_GUARDED_BY(mutex) = 0;
  std::unique_ptr<Receipt> receipts KESD_GUARDED_BY(mutex);
  Receipt* last KESD_GUARDED_BY(mutex) = nullptr;
  Deadline due KESD_GUARDED_BY(mutex);  // of a batch that had to stay

  // The turn's own.
  std::array<std::byte, kQueueBytes + kLongestRelease> batch;
  std::size_t batchBegin = 0;  // of `batch`, the bytes from here
  std::size_t batchEnd = 0;    // to here are not sent yet
};

}  // namespace fenk

#endif  // KESD_HOST_FENKSOCKET_OUTBOX_H_
