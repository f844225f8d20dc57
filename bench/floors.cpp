// The floors: the messages of a request, in the daemon's sizes, over a bare socket.
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <mutex>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <vector>

#include "bench/contender.h"
#include "bench/unix_address.h"
#include "host/event/event.h"
#include "host/fenksocket/unique_fd.h"
#include "host/fenksocket/wire.h"

namespace bench {
namespace {

std::system_error SystemError(const char* what) { return {errno, std::generic_category(), what}; }

// What the daemon's frames come to.
struct MessageSizes {
  explicit MessageSizes(const Payload& payload)
      : request(sizeof(fenk::wire::FrameHeader) + sizeof(fenk::wire::InvokeBody) + payload.request.size() * 8 +
                sizeof(fenk::wire::ObjectReference) + Padded(payload.request)),
        handle(kEmptyReply + sizeof(fenk::wire::ObjectReference)),
        result(sizeof(fenk::wire::FrameHeader) + sizeof(fenk::wire::InvokeBody) + payload.result.size() * 8 +
               Padded(payload.result)) {}

  static std::size_t Padded(const std::array<std::size_t, 4>& buffers) {
    std::size_t sum = 0;
    for (const std::size_t size : buffers) sum += (size + 7) / 8 * 8;
    return sum;
  }

  static constexpr std::size_t kEmptyReply = sizeof(fenk::wire::FrameHeader) + sizeof(fenk::wire::ReplyBody);
  const std::size_t request, handle, result;
  const std::size_t answer = kEmptyReply;
  const std::size_t release = sizeof(fenk::wire::FrameHeader) + 8;
};

// Messages of known sizes, one after the other; reads as much as there is.
class Stream {
 public:
  Stream(int socket, std::size_t longest) : fd(socket), in(2 * longest + 4096), out(longest) {}

  void Send(std::size_t size) {
    for (std::size_t sent = 0; sent < size;) {
      const ssize_t step = send(fd, out.data() + sent, size - sent, MSG_NOSIGNAL);
      if (step < 0) throw SystemError("send");
      sent += static_cast<std::size_t>(step);
    }
  }

  // False when the peer has gone.
  bool Receive(std::size_t size) {
    while (have < size) {
      const ssize_t step = recv(fd, in.data() + have, in.size() - have, 0);
      if (step < 0) throw SystemError("recv");
      if (step == 0) return false;
      have += static_cast<std::size_t>(step);
    }
    have -= size;
    if (have != 0) std::memmove(in.data(), in.data() + size, have);
    return true;
  }

 private:
  const int fd;
  std::vector<char> in, out;
  std::size_t have = 0;
};

class FloorClient final : public ClientEnd {
 public:
  FloorClient(const std::string& path, const Payload& payload)
      : sizes(payload), socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)), stream(socket.Get(), sizes.result) {
    const sockaddr_un address = AddressOf(path);
    if (::connect(socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
      throw SystemError("connect");
    }
  }

  std::size_t Request() override {
    stream.Send(sizes.request);
    if (!stream.Receive(sizes.handle) || !stream.Receive(sizes.result)) throw std::runtime_error("no result");
    stream.Send(sizes.answer);
    if (!stream.Receive(sizes.release)) throw std::runtime_error("callback not given back");
    stream.Send(sizes.release);
    return sizes.result;
  }

 private:
  const MessageSizes sizes;
  const fenk::UniqueFd socket;
  Stream stream;
};

std::unique_ptr<ClientEnd> Connect(const std::string& path, const Payload& payload) {
  return std::make_unique<FloorClient>(path, payload);
}

// Calls `serve` with each connection, on a thread of its own.
template <typename Serve>
void Listen(const std::string& path, const Serve& serve) {
  const fenk::UniqueFd listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const sockaddr_un address = AddressOf(path);
  if (bind(listener.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
      listen(listener.Get(), SOMAXCONN) != 0) {
    throw SystemError("listen");
  }
  for (;;) {
    const int fd = accept4(listener.Get(), nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) throw SystemError("accept");
    std::thread([fd, &serve] {
      const fenk::UniqueFd connection(fd);
      serve(fd);
    }).detach();
  }
}

void ServePlain(const std::string& path, const Payload& payload) {
  const MessageSizes sizes(payload);
  Listen(path, [&sizes](int fd) {
    Stream stream(fd, sizes.result);
    while (stream.Receive(sizes.request)) {
      stream.Send(sizes.handle);
      stream.Send(sizes.result);
      if (!stream.Receive(sizes.answer)) return;
      stream.Send(sizes.release);
      if (!stream.Receive(sizes.release)) return;
    }
  });
}

// How threads usually wait for one another; Event is the daemon's way.
class ConditionVariable {
 public:
  void Set() {
    const std::lock_guard lock(mutex);
    set = true;
    changed.notify_one();
  }
  void Wait() {
    std::unique_lock lock(mutex);
    changed.wait(lock, [this] { return set; });
    set = false;
  }

 private:
  std::mutex mutex;
  std::condition_variable changed;
  bool set = false;
};

// The one thread that sends results.
template <typename Signal>
class Reporter {
 public:
  struct Result {
    explicit Result(Stream& connection) : stream(connection) {}
    Stream& stream;
    Signal answered;
  };

  explicit Reporter(const MessageSizes& messageSizes) : sizes(messageSizes) {
    std::thread([this] { Run(); }).detach();
  }

  void Report(Result& result) {
    {
      const std::lock_guard lock(mutex);
      results.push_back(&result);
    }
    given.Set();
  }

 private:
  void Run() {
    for (;;) {
      Result* const result = Next();
      result->stream.Send(sizes.result);
      result->answered.Wait();
      result->stream.Send(sizes.release);
    }
  }

  Result* Next() {
    for (;; given.Wait()) {
      const std::lock_guard lock(mutex);
      if (results.empty()) continue;
      Result* const result = results.front();
      results.pop_front();
      return result;
    }
  }

  const MessageSizes& sizes;
  std::mutex mutex;
  Signal given;
  std::deque<Result*> results;
};

template <typename Signal>
void ServeHandOver(const std::string& path, const Payload& payload) {
  const MessageSizes sizes(payload);
  Reporter<Signal> reporter(sizes);
  Listen(path, [&](int fd) {
    Stream stream(fd, sizes.result);
    while (stream.Receive(sizes.request)) {
      stream.Send(sizes.handle);
      // The client gives its handle back only after it has got what the reporter sends last.
      typename Reporter<Signal>::Result result{stream};
      reporter.Report(result);
      if (!stream.Receive(sizes.answer)) throw std::runtime_error("a client left in the middle of a request");
      result.answered.Set();
      if (!stream.Receive(sizes.release)) return;
    }
  });
}

}  // namespace

Contender PlainFloor() { return {"plain floor", ServePlain, Connect}; }
Contender HandOverFloor() { return {"hand-over floor", ServeHandOver<ConditionVariable>, Connect}; }
Contender EventFloor() { return {"hand-over floor, by events", ServeHandOver<Event>, Connect}; }

}  // namespace bench
