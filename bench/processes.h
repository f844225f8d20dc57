// The processes of a measurement: servers and clients, each apart from the program that compares them.
#ifndef KESD_BENCH_PROCESSES_H_
#define KESD_BENCH_PROCESSES_H_

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "bench/contender.h"
#include "host/fenksocket/unique_fd.h"

namespace bench {

inline constexpr std::optional<int> kAnyCpu = std::nullopt;

// What a server has used so far.
struct Usage {
  std::chrono::nanoseconds cpu;
  uint64_t pageFaults;  // all were served without a disk
};

struct Memory {
  uint64_t residentKib;
  uint64_t privateKib;  // of that, what no file backs
};

// Long enough for a server to come to rest after its last request.
void Rest();

// A server process at a socket of its own. Ends with this object.
class Server {
 public:
  // Returns once clients can connect.
  Server(const Contender& contender, const Payload& payload, std::optional<int> cpu);
  Server(const Server&) = delete;
  ~Server();

  const std::string& Path() const { return path; }
  pid_t Id() const { return id; }
  Usage Used() const;
  Memory Holds() const;

 private:
  std::string directory, path;
  pid_t id = -1;
};

struct Measured {
  uint64_t requests;
  double medianUs;  // of a request
};

// A client process with one connection. Ends with this object.
class ClientProcess {
 public:
  ClientProcess(const Contender& contender, const std::string& path, const Payload& payload, std::optional<int> cpu);
  ClientProcess(const ClientProcess&) = delete;
  ~ClientProcess();

  // Makes requests one after the other for so long, or so many of them; Finish waits for the end and tells how it
  // went. Throws std::runtime_error when the client failed.
  void Start(std::chrono::milliseconds duration) const { Send({duration.count(), 0}); }
  void StartRequests(uint64_t count) const { Send({0, count}); }
  Measured Finish() const;

 private:
  struct Command {
    int64_t milliseconds;
    uint64_t requests;
  };
  void Send(const Command& command) const;
  static Measured Run(ClientEnd& client, const Command& command);

  pid_t id = -1;
  fenk::UniqueFd channel;
};

}  // namespace bench

#endif  // KESD_BENCH_PROCESSES_H_
