#include "tests/faults/daemon.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "service/root_object.h"
#include "tests/faults/fault_sweep.h"
#include "tests/log_stand_in.h"

namespace faults {
namespace {

std::mutex runningMutex;
fenk::Service* running = nullptr;

void Run(fenk::Service* service) {
  const std::lock_guard lock(runningMutex);
  running = service;
}

}  // namespace

ListeningSocket::ListeningSocket() : socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  Require(mkdtemp(directory.data()) != nullptr, "there is a temporary directory");
  path = directory + "/socket";
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof(address.sun_path) - 1);
  Require(bind(socket.Get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0, "the socket is bound");
  static char boundTo[sizeof(address.sun_path)];
  std::strcpy(boundTo, path.c_str());
  (void)std::atexit([] {
    unlink(boundTo);
    *std::strrchr(boundTo, '/') = '\0';
    rmdir(boundTo);
  });
}

Daemon::Daemon(const char* source) { setenv("VEXO_SOURCE", source, 1); }

bool Daemon::Start() {
  service = fenk::Service::Start(socket.Fd(), RootObject(), {});
  return service != nullptr;
}

void Daemon::Serve() {
  Run(service.get());
  joining = std::thread([this] { service->Join(); });
}

void Daemon::End() {
  Run(nullptr);
  if (service) service->Stop();
  if (joining.joinable()) joining.join();
}

void EndTheService() {
  const std::lock_guard lock(runningMutex);
  if (running != nullptr) running->Stop();
}

}  // namespace faults

void testing_log::Write(char level, const char* tag, const char* text) {
  std::fprintf(stderr, "%c %s %s%s", level, tag, text, std::strchr(text, '\n') != nullptr ? "" : "\n");
  if (std::strstr(text, "Unexpected request ID") != nullptr || std::strstr(text, "rounds are dropped") != nullptr) {
    faults::lastRound.Set();
  }
}
