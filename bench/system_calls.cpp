#include "bench/system_calls.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>

namespace bench {
namespace {

// Whether strace has attached to every thread of the process.
bool IsTraced(pid_t process) {
  std::ifstream status("/proc/" + std::to_string(process) + "/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.starts_with("TracerPid:")) return std::stoi(line.substr(10)) != 0;
  }
  return false;
}

// The lines of its summary: share, seconds, microseconds a call, calls, perhaps errors, name.
SystemCalls ReadSummary(const std::string& file) {
  SystemCalls calls{};
  std::ifstream lines(file);
  std::string line;
  while (std::getline(lines, line)) {
    std::istringstream fields(line);
    std::string share, seconds, each, name, word;
    uint64_t count = 0;
    if (!(fields >> share >> seconds >> each >> count)) continue;
    while (fields >> word) name = word;
    if (name == "total") continue;
    (name == "futex" ? calls.futex : calls.others) += count;
  }
  return calls;
}

}  // namespace

SystemCalls CountSystemCalls(pid_t process, const std::function<void()>& body) {
  char file[] = "/tmp/kesd-bench-strace-XXXXXX";
  const int summary = mkstemp(file);
  if (summary < 0) throw std::runtime_error("cannot make a file for strace");
  close(summary);
  const pid_t tracer = fork();
  if (tracer == 0) {
    dup2(open("/dev/null", O_WRONLY), STDERR_FILENO);
    const std::string id = std::to_string(process);
    execlp("strace", "strace", "-f", "-c", "-o", file, "-p", id.c_str(), nullptr);
    _exit(1);
  }
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (!IsTraced(process)) {
    if (waitpid(tracer, nullptr, WNOHANG) != 0 || std::chrono::steady_clock::now() > deadline) {
      unlink(file);
      throw std::runtime_error("strace is not installed or may not trace");
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  body();
  kill(tracer, SIGINT);
  waitpid(tracer, nullptr, 0);
  const SystemCalls calls = ReadSummary(file);
  unlink(file);
  return calls;
}

}  // namespace bench
