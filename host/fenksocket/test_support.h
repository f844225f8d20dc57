// What the tests of this folder share: objects that count, a log that remembers, and a peer that speaks in bytes.
#ifndef KESD_HOST_FENKSOCKET_TEST_SUPPORT_H_
#define KESD_HOST_FENKSOCKET_TEST_SUPPORT_H_

#include <sys/socket.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "host/fenksocket/connection.h"
#include "host/fenksocket/unique_fd.h"
#include "ipc/object.h"

namespace fenk::test {

// Nothing that is waited for takes this long unless it never comes.
inline constexpr std::chrono::seconds kPatience{20};

// A value that threads change and wait for.
template <typename T>
class Watched {
 public:
  explicit Watched(T initial = T()) : value(std::move(initial)) {}
  T Get() {
    const std::lock_guard lock(mutex);
    return value;
  }
  template <typename Change>
  void Update(const Change& change) {
    const std::lock_guard lock(mutex);
    change(value);
    changed.notify_all();
  }
  // False when it does not come to hold.
  template <typename Predicate>
  [[nodiscard]] bool Await(const Predicate& predicate) {
    std::unique_lock lock(mutex);
    return changed.wait_until(lock, std::chrono::steady_clock::now() + kPatience, [&] { return predicate(value); });
  }
  [[nodiscard]] bool AwaitEqual(const T& expected) {
    return Await([&](const T& current) { return current == expected; });
  }

 private:
  std::mutex mutex;
  std::condition_variable changed;
  T value;
};

// An object whose references are counted but do not own it; the test holds the first one.
class CountedObject {
 public:
  using Method = std::function<int32_t(uint32_t op, ObjectArg* args, uint32_t counts)>;
  explicit CountedObject(Method invokedMethod = nullptr) : method(std::move(invokedMethod)) {}
  Object Get() { return {Invoke, this}; }

  Watched<int> references{1};
  Watched<int> invocations{0};

 private:
  static int32_t Invoke(void* context, uint32_t op, ObjectArg* args, uint32_t counts);
  const Method method;
};

// Bytes, written as docs/wire-protocol.md has them and without the library's help.
class Bytes {
 public:
  Bytes& U16(uint16_t v) { return Little(v, 2); }
  Bytes& U32(uint32_t v) { return Little(v, 4); }
  Bytes& U64(uint64_t v) { return Little(v, 8); }
  Bytes& Text(const std::string& text);  // padded
  Bytes& operator+=(const Bytes& other);
  std::string data;

 private:
  Bytes& Little(uint64_t v, int size);
};

enum : uint32_t { kNoObject = 0, kMine = 1, kYours = 2 };
Bytes Header(uint32_t length, uint16_t type, uint64_t serial);
Bytes Hello();
// `rest`: what follows the counts.
Bytes Invoke(uint64_t serial, uint64_t target, uint32_t op, uint32_t counts, const Bytes& rest = {});
Bytes Reply(uint64_t serial, int32_t result, uint32_t counts = 0, const Bytes& rest = {});
Bytes Release(uint64_t id);
Bytes Reference(uint32_t kind, uint64_t id);

struct RawFrame {
  uint16_t type;
  uint64_t serial;
  std::string body;  // after the header
  uint32_t U32(std::size_t offset) const;
  uint64_t U64(std::size_t offset) const;
};

// A peer of a connection that does what it likes.
class RawPeer {
 public:
  explicit RawPeer(UniqueFd connected) : socket(std::move(connected)) {}
  bool Send(const Bytes& bytes) const;
  // The next frame; type 0 when the stream ended or nothing came.
  RawFrame Receive() const;
  // False when the stream ends before, or no more comes.
  bool Read(char* bytes, std::size_t size) const;
  // True when the stream ends, whatever comes before.
  bool AwaitEnd() const;
  int Fd() const { return socket.Get(); }
  void Close() { socket.Reset(-1); }

 private:
  UniqueFd socket;
};

struct SocketPair {
  SocketPair();
  UniqueFd one;
  UniqueFd other;
};

// Not open when it cannot be connected; errno tells why.
UniqueFd ConnectTo(const std::string& path);
// A socket that is bound, and does not listen.
UniqueFd BindTo(const std::string& path, int type = SOCK_STREAM);

// A listening socket in a directory of its own; both go in the end.
class ListeningSocket {
 public:
  ListeningSocket();
  ~ListeningSocket();
  UniqueFd Connect() const { return ConnectTo(path); }
  int Fd() const { return socket.Get(); }
  const std::string& Path() const { return path; }

 private:
  std::string directory;
  std::string path;
  UniqueFd socket;
};

// Lines that the code under test has logged, each begun by its level: "D", "I", "W" or "E".
std::size_t CountLines(const std::string& part);
[[nodiscard]] bool AwaitLines(const std::string& part, std::size_t count);
void ForgetLines();

}  // namespace fenk::test

#endif  // KESD_HOST_FENKSOCKET_TEST_SUPPORT_H_
