#include "tests/faults/daemon.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "platform/log.h"
#include "service/root_object.h"
#include "tests/faults/fault_sweep.h"

namespace faults {
namespace {

std::mutex runningMutex;
fenk::Service* running = nullptr;

void Run(fenk::Service* service) {
  const std::lock_guard lock(runningMutex);
  running = service;
}

void Log(char level, const char* tag, const char* format, va_list arguments) {
  char text[512];
  std::vsnprintf(text, sizeof(text), format, arguments);
  std::fprintf(stderr, "%c %s %s%s", level, tag, text, std::strchr(text, '\n') != nullptr ? "" : "\n");
  if (std::strstr(text, "Unexpected request ID") != nullptr || std::strstr(text, "rounds are dropped") != nullptr) {
    lastRound.Set();
  }
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

namespace zv_loc_fw {

#define KESD_FAULTS_LOG(function, level)                    \
  void function(const char* tag, const char* format, ...) { \
    va_list arguments;                                      \
    va_start(arguments, format);                            \
    faults::Log(level, tag, format, arguments);             \
    va_end(arguments);                                      \
  }
KESD_FAULTS_LOG(log_debug, 'D')
KESD_FAULTS_LOG(log_info, 'I')
KESD_FAULTS_LOG(log_warning, 'W')
KESD_FAULTS_LOG(log_error, 'E')
#undef KESD_FAULTS_LOG

}  // namespace zv_loc_fw
