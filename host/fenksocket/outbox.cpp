#include "host/fenksocket/outbox.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "host/fenksocket/poll_timeout.h"

namespace fenk {

Outbox::Outbox(int socket, std::chrono::milliseconds peerPatience, std::function<void()> unsent)
    : fd(socket), patience(peerPatience), onUnsent(std::move(unsent)) {}

Outbox::~Outbox() { Close(); }

Outbox::Result Outbox::Send(std::span<iovec> frame, std::chrono::steady_clock::time_point deadline) {
  Result result = Result::kSent;
  Deadline batchDeadline = deadline;
  {
    const kesd::MutexLock lock(mutex);
    if (Queue(frame)) return Result::kSent;
    result = TakeTurn(deadline);
    if (result != Result::kSent) return result;
    if (due && *due < deadline) batchDeadline = due;
  }
  result = WriteBatch(batchDeadline);  // what is left of one that the socket took in part
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
    (last == nullptr ? receipts : last->next) = std::move(receipt);
    last = added;
    if (writing) return;
    writing = true;
  }
  EndTurn();
}

bool Outbox::Flush() {
  {
    const kesd::MutexLock lock(mutex);
    if (closed || writing) return true;
    writing = true;
  }
  EndTurn();
  const kesd::MutexLock lock(mutex);
  return closed || writing || !due || std::chrono::steady_clock::now() < *due;
}

bool Outbox::IsWriting() {
  const kesd::MutexLock lock(mutex);
  return writing;
}

void Outbox::Settle(std::chrono::steady_clock::time_point deadline) {
  {
    const kesd::MutexLock lock(mutex);
    if (TakeTurn(deadline) != Result::kSent) return;
  }
  EndTurn();
}

void Outbox::Close() {
  std::unique_ptr<Receipt> dropped;
  {
    const kesd::MutexLock lock(mutex);
    closed = true;
    framesSize = 0;
    last = nullptr;
    dropped = std::move(receipts);
    turn.NotifyAll();
  }
  while (dropped) dropped = std::move(dropped->next);  // one by one: a chain's destructor would recurse
}

Outbox::Result Outbox::TakeTurn(Deadline deadline) {
  bool inTime = true;
  ++waitingThreads;
  while (inTime && writing && !closed) inTime = turn.Wait(mutex, deadline);
  --waitingThreads;
  if (writing && !closed) return Result::kTimedOut;
  if (closed) return Result::kClosed;
  writing = true;
  return Result::kSent;
}

// False when nobody writes or it does not fit.
bool Outbox::Queue(std::span<const iovec> frame) {
  if (!writing || closed) return false;
  std::size_t end = framesSize;
  for (const iovec& part : frame) {
    if (part.iov_len > frames.size() - end) return false;
    std::memcpy(frames.data() + end, part.iov_base, part.iov_len);
    end += part.iov_len;
  }
  framesSize = end;
  return true;
}

// Sends the queue and gives the turn up, with no moment between in which something could be queued for nobody.
void Outbox::EndTurn() {
  const Deadline deadline = onUnsent ? Deadline() : std::chrono::steady_clock::now() + patience;
  Result result = Result::kSent;
  for (bool sentOne = false; result == Result::kSent && NextBatch(sentOne); sentOne = true) {
    result = WriteBatch(deadline);
  }
  if (result == Result::kClosed) Close();
  if (result == Result::kSent) return;
  {
    const kesd::MutexLock lock(mutex);
    writing = false;
    turn.NotifyOne();
    if (closed) return;
    if (!due) due = std::chrono::steady_clock::now() + patience;
  }
  if (onUnsent) onUnsent();
}

// Moves what is queued into `batch`. When there is nothing to send, or a thread waits that can go on with it, false,
// and the turn is given up.
bool Outbox::NextBatch(bool sentOne) {
  const kesd::MutexLock lock(mutex);
  if (!closed && batchBegin != batchEnd) return true;
  due.reset();
  if (sentOne && waitingThreads != 0) {
    writing = false;
    turn.NotifyOne();
    return false;
  }
  std::copy_n(frames.begin(), framesSize, batch.begin());
  std::array<uint64_t, kIdsPerFrame> ids;
  std::size_t count = 0;
  while (receipts && count < kIdsPerFrame) {
    ids[count++] = receipts->id;
    receipts = std::move(receipts->next);
  }
  if (!receipts) last = nullptr;
  batchBegin = 0;
  batchEnd = std::exchange(framesSize, 0);
  if (count != 0) {
    const wire::FrameHeader header{static_cast<uint32_t>(sizeof(header) + count * sizeof(uint64_t)), wire::kRelease, 0,
                                   0};
    std::memcpy(batch.data() + batchEnd, &header, sizeof(header));
    std::memcpy(batch.data() + batchEnd + sizeof(header), ids.data(), count * sizeof(uint64_t));
    batchEnd += header.length;
  }
  if (batchEnd != 0) return true;
  writing = false;
  turn.NotifyOne();
  return false;
}

Outbox::Result Outbox::WriteBatch(Deadline deadline) {
  iovec part{batch.data() + batchBegin, batchEnd - batchBegin};
  return batchBegin == batchEnd ? Result::kSent : Write({&part, 1}, batchBegin, deadline);
}

Outbox::Result Outbox::Write(std::span<iovec> parts, std::size_t& written, Deadline deadline) const {
  while (!parts.empty()) {
    msghdr message{};
    message.msg_iov = parts.data();
    message.msg_iovlen = parts.size();
    constexpr int kFlags = MSG_DONTWAIT | MSG_NOSIGNAL;
    const ssize_t sent = parts.size() == 1 ? send(fd, parts.front().iov_base, parts.front().iov_len, kFlags)
                                           : sendmsg(fd, &message, kFlags);
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
