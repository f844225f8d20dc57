// Frames out of a stream socket.
#ifndef KESD_HOST_FENKSOCKET_INBOX_H_
#define KESD_HOST_FENKSOCKET_INBOX_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>

namespace fenk {

// Memory that frames lie in; a frame in use keeps its own.
struct Chunk {
  explicit Chunk(std::size_t bytes) : memory(std::make_unique_for_overwrite<std::byte[]>(bytes)), capacity(bytes) {}
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
    kMalformed,  // Wrong() says how
  };

  // `socketReadTimeout`: how long a read of the socket blocks at most (SO_RCVTIMEO); 0 is for ever.
  Inbox(int socket, uint32_t maximumFrameBytes, std::chrono::milliseconds socketReadTimeout)
      : fd(socket), maxFrameBytes(maximumFrameBytes), readTimeout(socketReadTimeout) {}

  // A negative `wakeFd` is none.
  Status Next(Frame& frame, std::optional<std::chrono::steady_clock::time_point> deadline, int wakeFd);
  const char* Wrong() const { return wrong; }

 private:
  std::size_t Available() const { return end - begin; }
  bool HoldsIdleLargeChunk() const;
  void MakeRoom(std::size_t frameBytes);
  Status Fill(std::optional<std::chrono::steady_clock::time_point> deadline, int wakeFd);
  bool EndsBefore(std::chrono::steady_clock::time_point deadline) const;
  Status AwaitInput(std::optional<std::chrono::steady_clock::time_point> deadline, int wakeFd) const;

  const int fd;
  const uint32_t maxFrameBytes;
  const std::chrono::milliseconds readTimeout;
  const char* wrong = nullptr;
  std::shared_ptr<Chunk> chunk;
  std::size_t begin = 0;  // in `chunk`: what was received and not handed out lies from here
  std::size_t end = 0;    // to here
};

}  // namespace fenk

#endif  // KESD_HOST_FENKSOCKET_INBOX_H_
