#include "host/fenksocket/inbox.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "host/fenksocket/poll_timeout.h"
#include "host/fenksocket/wire.h"

namespace fenk {
namespace {

// Holds any request and most results; an idle connection keeps no more than this.
constexpr std::size_t kChunkBytes = 8192;

// A large frame's memory is kept for the next one this long: fresh pages cost more than the copy into them.
constexpr std::chrono::seconds kKeepLargeChunk{1};

}  // namespace

Inbox::Status Inbox::Next(Frame& frame, std::optional<std::chrono::steady_clock::time_point> deadline, int wakeFd) {
  for (;;) {
    std::size_t needed = sizeof(wire::FrameHeader);
    if (Available() >= needed) {
      wire::FrameHeader header;
      std::memcpy(&header, chunk->memory.get() + begin, sizeof(header));
      if (header.length < sizeof(header) || header.length % wire::kAlignment != 0 ||
          (header.flags & ~(header.type == wire::kInvoke ? wire::kNested : 0)) != 0) {
        wrong = "frame header that is none";
        return Status::kMalformed;
      }
      if (header.length > options.maxFrameBytes) {
        wrong = "frame longer than the limit";
        return Status::kMalformed;
      }
      if (Available() >= header.length) {
        frame = {header.type, {chunk->memory.get() + begin, header.length}, chunk};
        begin += header.length;
        due.reset();
        return Status::kFrame;
      }
      needed = header.length;
    }
    if (HoldsIdleLargeChunk()) {
      const auto idle = std::chrono::steady_clock::now() + kKeepLargeChunk;
      if (!deadline || idle < *deadline) {
        const Status status = AwaitInput(idle, wakeFd);
        if (status == Status::kWoken) return status;
        if (status == Status::kTimedOut) {
          chunk.reset();
          begin = end = 0;
        }
      }
    }
    if (!MakeRoom(needed)) {
      wrong = "more bytes of long frames than its user may have in work";
      return Status::kMalformed;
    }
    if (!due && Available() != 0) due = std::chrono::steady_clock::now() + options.patience;
    const bool rushed = due && (!deadline || *due < *deadline);
    const Status status = Fill(rushed ? due : deadline, wakeFd);
    if (status == Status::kTimedOut && rushed) return Status::kStalled;
    if (status != Status::kFrame) return status;
  }
}

bool Inbox::HoldsIdleLargeChunk() const { return chunk && chunk->capacity > kChunkBytes && Available() == 0; }

// False when the budget does not admit it.
bool Inbox::MakeRoom(std::size_t frameBytes) {
  // Only this thread hands frames out, so nobody can begin to use the chunk meanwhile.
  const bool unused = chunk && chunk.use_count() == 1;
  if (unused && Available() == 0) begin = end = 0;
  if (chunk && end < chunk->capacity && chunk->capacity - begin >= frameBytes) return true;
  if (unused && chunk->capacity >= frameBytes) {
    std::memmove(chunk->memory.get(), chunk->memory.get() + begin, Available());
  } else {
    const std::size_t bytes = std::max(frameBytes, kChunkBytes);
    const std::size_t counted = bytes > kChunkBytes ? bytes : 0;
    auto larger = std::make_shared<Chunk>(bytes, budget, counted);
    if (counted != 0 && !larger->share.IsTaken()) return false;
    if (Available() != 0) std::memcpy(larger->memory.get(), chunk->memory.get() + begin, Available());
    chunk = std::move(larger);
  }
  end = Available();
  begin = 0;
  return true;
}

Inbox::Status Inbox::Fill(std::optional<std::chrono::steady_clock::time_point> deadline, int wakeFd) {
  bool awaited = false;
  for (;;) {
    const bool blocking = wakeFd < 0 && (!deadline || EndsBefore(*deadline));
    if (!blocking && !awaited) {
      const Status status = AwaitInput(deadline, wakeFd);
      if (status != Status::kFrame) return status;
    }
    awaited = false;
    const ssize_t received = recv(fd, chunk->memory.get() + end, chunk->capacity - end, blocking ? 0 : MSG_DONTWAIT);
    if (received > 0) {
      end += static_cast<std::size_t>(received);
      return Status::kFrame;
    }
    if (received == 0) return Status::kEnd;
    if (errno == EINTR) continue;
    if (errno != EAGAIN) return Status::kEnd;
    // The read timeout has passed, or the descriptor was made non-blocking.
    const Status status = AwaitInput(deadline, wakeFd);
    if (status != Status::kFrame) return status;
    awaited = true;
  }
}

// Whether a blocking read returns before `deadline` in any case.
bool Inbox::EndsBefore(std::chrono::steady_clock::time_point deadline) const {
  return options.readTimeout.count() != 0 && deadline - std::chrono::steady_clock::now() > options.readTimeout;
}

Inbox::Status Inbox::AwaitInput(std::optional<std::chrono::steady_clock::time_point> deadline, int wakeFd) const {
  pollfd watched[2] = {{fd, POLLIN, 0}, {wakeFd, POLLIN, 0}};
  for (;;) {
    const int ready = poll(watched, 2, PollTimeout(deadline));
    if (ready < 0 && errno != EINTR) return Status::kEnd;
    if (ready > 0 && watched[1].revents != 0) return Status::kWoken;
    if (ready > 0) return Status::kFrame;
    if (ready == 0 && deadline && std::chrono::steady_clock::now() >= *deadline) return Status::kTimedOut;
  }
}

}  // namespace fenk
