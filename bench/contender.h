// What the round trip benchmark compares: ways to carry a whole request between two processes.
#ifndef KESD_BENCH_CONTENDER_H_
#define KESD_BENCH_CONTENDER_H_

#include <array>
#include <cstddef>
#include <memory>
#include <span>
#include <string>

namespace bench {

// Bytes of the buffers that a request and its result carry. All contenders carry the same.
struct Payload {
  std::array<std::size_t, 4> request;  // parameters, channels, SSIDs, MAC addresses
  std::array<std::size_t, 4> result;   // header, measurements, infos, bytes
};

// One client's connection. One thread uses it. Everything throws std::runtime_error when the server fails.
class ClientEnd {
 public:
  virtual ~ClientEnd() = default;

  // Six messages: the request goes; its handle comes; the result comes, through the callback, and is answered; the
  // callback is given back; the handle is given back. Returns when the last one has been sent: the bytes of the result.
  virtual std::size_t Request() = 0;
};

struct Contender {
  const char* name;

  // Serves any number of clients at the Unix socket `path`, which does not exist yet, until the process is killed.
  void (*serve)(const std::string& path, const Payload& payload);

  // Throws while the server is not there yet.
  std::unique_ptr<ClientEnd> (*connect)(const std::string& path, const Payload& payload);
};

// The daemon as it is built, measuring what VEXO_SOURCE names. Its result gives the others their payload.
Contender Kesd();
Payload LearnPayload(const std::string& path);

// The same with requests that its cache answers, so that it is no matter how long the source takes.
Contender KesdFromCache();

// Connections to the daemon, each with requests that its source has yet to answer, until the end.
class Load {
 public:
  virtual ~Load() = default;
};
std::unique_ptr<Load> PutLoad(const std::string& path, std::size_t connections, std::size_t requestsEach);

// The daemon's IPC library with a result that lies ready: what a request costs without measurements.
Contender IpcAlone();

// The same messages over a bare socket: answered by the connection's one thread, or with the result handed over to
// one second thread that sends it and waits for its answer; the threads wake one another by condition variables, or by
// the daemon's own events.
Contender PlainFloor();
Contender HandOverFloor();
Contender EventFloor();

// What else could carry them; only those whose libraries were found when the benchmark was built.
std::span<const Contender> Peers();

}  // namespace bench

#endif  // KESD_BENCH_CONTENDER_H_
