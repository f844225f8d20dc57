// kesd in the test's own process: its objects, the IPC library's service on a socket, and the location client library.
#ifndef KESD_TESTS_FAULTS_DAEMON_H_
#define KESD_TESTS_FAULTS_DAEMON_H_

#include <memory>
#include <string>
#include <thread>

#include "client/client.h"
#include "host/event/event.h"
#include "host/fenksocket/service.h"
#include "host/fenksocket/unique_fd.h"

namespace faults {

// Set when the library has ended a periodic request: no handler waits for its last round, or no memory was left for it.
inline Event lastRound;

// One in a process. Its file goes when the process exits, in whatever way, which needs no memory.
class ListeningSocket {
 public:
  ListeningSocket();
  int Fd() const { return socket.Get(); }
  const std::string& Path() const { return path; }

 private:
  std::string directory = "/tmp/kesd-faults-XXXXXX";
  std::string path;
  const fenk::UniqueFd socket;
};

// A thread joins the service, as main does.
class Daemon {
 public:
  explicit Daemon(const char* source);
  ~Daemon() { End(); }

  bool Start();
  void Serve();
  void End();
  kes::Result<kes::Client> Connect() const { return kes::Client::Connect(socket.Path()); }

 private:
  const ListeningSocket socket;
  std::unique_ptr<fenk::Service> service;
  std::thread joining;
};

// Asks the service to end that a Daemon serves, if there is one. Any thread.
void EndTheService();

}  // namespace faults

#endif  // KESD_TESTS_FAULTS_DAEMON_H_
