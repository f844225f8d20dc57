#include "host/fenksocket/outbox.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "host/fenksocket/poll_timeout.h"

namespace fenk {

Outbox::Outbox(int socket, std::chrono::milliseconds releasePatience, std::function<void()> unsent)
    : fd(socket), patience(releasePatience), onUnsent(std::move(unsent)) {}

Outbox::~Outbox() { Close(); }

Outbox::Result Outbox::Send(std::span<iovec> frame, std::chrono::steady_clock::time_point deadline) {
  Result result = TakeTurn(deadline);
  if (result != Result::kSent) return result;
  result = WriteRelease(deadline);  // what is left of one that the socket took in part
  std::size_t written = 0;
  if (result == Result::kSent) result = Write(frame, written, deadline);
  if (result != Result::kSent) Close();  // the stream may have ended within a frame
  EndTurn();
  return result;
}

void Outbox::GiveBack(std::unique_ptr<Receipt> receipt) {
  {
    const kesd::MutexLock lock(mutex);
    if (closed) return;
    Receipt* const added = receipt.get();
    (last == nullptr ? queue : last->next) = std::move(receipt);
    last = added;
    if (writing) return;
    writing = true;
  }
  EndTurn();
}

void Outbox::Flush() {
  {
    const kesd::MutexLock lock(mutex);
    if (closed || writing) return;
    writing = true;
  }
  EndTurn();
}

void Outbox::Close() {
  std::unique_ptr<Receipt> dropped;
  {
    const kesd::MutexLock lock(mutex);
    closed = true;
    last = nullptr;
    dropped = std::move(queue);
    turn.NotifyAll();
  }
  while (dropped) dropped = std::move(dropped->next);  // one by one: a chain's destructor would recurse
}

Outbox::Result Outbox::TakeTurn(Deadline deadline) {
  const kesd::MutexLock lock(mutex);
  while (writing && !closed) {
    if (!turn.Wait(mutex, deadline) && writing && !closed) return Result::kTimedOut;
  }
  if (closed) return Result::kClosed;
  writing = true;
  return Result::kSent;
}

// Sends the queue and gives the turn up, with no moment between in which a receipt could be queued for nobody.
void Outbox::EndTurn() {
  const Deadline deadline = onUnsent ? Deadline() : std::chrono::steady_clock::now() + patience;
  Result result = Result::kSent;
  while (result == Result::kSent && NextRelease()) result = WriteRelease(deadline);
  if (result == Result::kClosed) Close();
  if (result == Result::kSent) return;
  {
    const kesd::MutexLock lock(mutex);
    writing = false;
    turn.NotifyOne();
    if (closed) return;
  }
  if (onUnsent) onUnsent();
}

// Moves queued receipts into `release`. When there is nothing to send, false, and the turn is given up.
bool Outbox::NextRelease() {
  const kesd::MutexLock lock(mutex);
  if (!closed && releaseBegin != releaseEnd) return true;
  std::size_t count = 0;
  while (queue && count < kIdsPerFrame) {
    release.ids[count++] = queue->id;
    queue = std::move(queue->next);
  }
  if (!queue) last = nullptr;
  releaseBegin = 0;
  releaseEnd = count == 0 ? 0 : sizeof(release.header) + count * sizeof(uint64_t);
  release.header = {static_cast<uint32_t>(releaseEnd), wire::kRelease, 0, 0};
  if (count != 0) return true;
  writing = false;
  turn.NotifyOne();
  return false;
}

Outbox::Result Outbox::WriteRelease(Deadline deadline) {
  iovec part{reinterpret_cast<std::byte*>(&release) + releaseBegin, releaseEnd - releaseBegin};
  return releaseBegin == releaseEnd ? Result::kSent : Write({&part, 1}, releaseBegin, deadline);
}

Outbox::Result Outbox::Write(std::span<iovec> parts, std::size_t& written, Deadline deadline) const {
  while (!parts.empty()) {
    msghdr message{};
    message.msg_iov = parts.data();
    message.msg_iovlen = parts.size();
    const ssize_t sent = sendmsg(fd, &message, MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent < 0 && errno == EINTR) continue;
    if (sent < 0 && errno != EAGAIN && errno != ENOBUFS && errno != ENOMEM) return Result::kClosed;
    if (sent < 0) {
      if (!deadline) return Result::kTimedOut;
      pollfd socket{fd, POLLOUT, 0};
      // Short of memory the socket is writable all the same.
      const int ready = errno == EAGAIN ? poll(&socket, 1, PollTimeout(deadline)) : poll(nullptr, 0, 10);
      if (ready <= 0 && std::chrono::steady_clock::now() >= *deadline) return Result::kTimedOut;
      continue;
    }
    std::size_t left = static_cast<std::size_t>(sent);
    written += left;
    while (!parts.empty() && left >= parts.front().iov_len) {
      left -= parts.front().iov_len;
      parts = parts.subspan(1);
    }
    if (left != 0) {
      parts.front().iov_base = static_cast<std::byte*>(parts.front().iov_base) + left;
      parts.front().iov_len -= left;
    }
  }
  return Result::kSent;
}

}  // namespace fenk
