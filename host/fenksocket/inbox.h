// Frames out of a stream socket.
#ifndef KESD_HOST_FENKSOCKET_INBOX_H_
#define KESD_HOST_FENKSOCKET_INBOX_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>

#include "host/fenksocket/budget.h"

namespace fenk {

// Memory that frames lie in; a frame in use keeps its own.
struct Chunk {
  Chunk(std::size_t bytes, Budget& budget, std::size_t bytesOfBudget)
      : share(budget, bytesOfBudget), memory(std::make_unique_for_overwrite<std::byte[]>(bytes)), capacity(bytes) {}
  const BudgetShare share;
  const std::unique_ptr<std::byte[]> memory;
  const std::size_t capacity;
};

struct Frame {
  uint16_t type;
  std::span<const std::byte> bytes;  // with the header; 8-byte aligned
  std::shared_ptr<const Chunk> chunk;
};

// Reads as much as there is at once, a large frame straight into memory of its own size. One thread at a time; frames
// handed out stay as they are while others are read. Throws std::bad_alloc, and can then be called again.
class Inbox {
 public:
  enum class Status {
    kFrame,
    kTimedOut,
    kWoken,      // the wake descriptor became readable
    kEnd,        // the peer, or this end, has shut the stream down
    kStalled,    // the peer did not send the rest of a frame, or its first one, in time
    kMalformed,  // Wrong() says how
  };

  struct Options {
    uint32_t maxFrameBytes;
    std::chrono::milliseconds readTimeout;  // how long a read of the socket blocks at most (SO_RCVTIMEO); 0 is for ever
    std::chrono::milliseconds patience;     // with the rest of a frame, and from now on with the first one
  };
  // Memory for long frames is taken of `frameBytes`.
  Inbox(int socket, const Options& someOptions, Budget& frameBytes)
      : fd(socket),
        options(someOptions),
        budget(frameBytes),
        due(std::chrono::steady_clock::now() + someOptions.patience) {}

  // A negative `wakeFd` is none.
  Status Next(Frame& frame, std::optional<std::chrono::steady_clock::time_point> deadline, int wakeFd);
  const char* Wrong() const { return wrong; }

 private:
  std::size_t Available() const { return end - begin; }
  bool HoldsIdleLargeChunk() const;
  bool MakeRoom(std::size_t frameBytes);
  Status Fill(std::optional<std::chrono::steady_clock::time_point> deadline, int wakeFd);
  bool EndsBefore(std::chrono::steady_clock::time_point deadline) const;
  Status AwaitInput(std::optional<std::chrono::steady_clock::time_point> deadline, int wakeFd) const;

  const int fd;
  const Options options;
  Budget& budget;
  std::optional<std::chrono::steady_clock::time_point> due;  // of the frame that has begun
  const char* wrong = nullptr;
  std::shared_ptr<Chunk> chunk;
  std::size_t begin = 0;  // in `chunk`: what was received and not handed out lies from here
  std::size_t end = 0;    // to here
};

}  // namespace fenk

#endif  // KESD_HOST_FENKSOCKET_INBOX_H_
