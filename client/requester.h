// How kesctl gets results: one request after the other, over one connection.
#ifndef KESD_CLIENT_REQUESTER_H_
#define KESD_CLIENT_REQUESTER_H_

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>

#include "client/client.h"

namespace kesctl {

// Connects when there is something to ask, and anew after a failure.
class Requester {
 public:
  // `timeoutMs`: that of each request, 0 when it is left to the daemon. A result is waited for as long as that and five
  // seconds more, or one minute.
  Requester(std::string socketPath, int64_t timeoutMs);

  const std::string& SocketPath() const { return path; }

  // Connects, unless connected. The client is the requester's.
  kes::Result<kes::Client*> Connect();

  // Starts a scan with `start`, a member of kes::Client, and returns what `wait(scan, deadline)` does. The request is
  // over then, aborted if need be.
  template <typename Scan, typename Request, typename Wait>
  auto Run(kes::Result<Scan> (kes::Client::*start)(const Request&), const Request& request, Wait wait) {
    using Answer = std::invoke_result_t<Wait, Scan&, fenk::Clock::time_point>;
    Answer answer = [&]() -> Answer {
      const kes::Result<kes::Client*> connected = Connect();
      if (!connected) return connected.GetError();
      kes::Result<Scan> scan = ((*connected)->*start)(request);
      if (!scan) return scan.GetError();
      Answer waited = wait(*scan, fenk::Clock::now() + patience);
      scan->Abort();
      return waited;
    }();
    if (!answer) client.reset();
    return answer;
  }

 private:
  const std::string path;
  const std::chrono::milliseconds patience;
  std::optional<kes::Client> client;
};

}  // namespace kesctl

#endif  // KESD_CLIENT_REQUESTER_H_
