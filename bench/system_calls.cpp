#include "bench/system_calls.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>

namespace bench {
namespace {

bool IsTraced(const std::filesystem::path& thread) {
  std::ifstream status(thread / "status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.starts_with("TracerPid:")) return std::stoi(line.substr(10)) != 0;
  }
  return false;
}

bool AreAllTraced(pid_t process) {
  const std::filesystem::directory_iterator threads("/proc/" + std::to_string(process) + "/task");
  return std::all_of(begin(threads), end(threads), [](const auto& thread) { return IsTraced(thread.path()); });
}

// Strace on a process, and the file for its summary. Ends with this object.
class Tracer {
 public:
  explicit Tracer(pid_t process) {
    file = (std::filesystem::temp_directory_path() / "kesd-bench-strace-XXXXXX").string();
    const int summary = mkstemp(file.data());
    if (summary < 0) throw std::runtime_error("cannot make a file for strace");
    close(summary);
    id = fork();
    if (id < 0) throw std::runtime_error("cannot fork");
    if (id != 0) return;
    dup2(open("/dev/null", O_WRONLY), STDERR_FILENO);
    const std::string traced = std::to_string(process);
    execlp("strace", "strace", "-f", "-c", "-o", file.c_str(), "-p", traced.c_str(), nullptr);
    _exit(1);
  }
  Tracer(const Tracer&) = delete;
  ~Tracer() {
    Stop();
    unlink(file.c_str());
  }

  bool HasEnded() {
    if (id > 0 && waitpid(id, nullptr, WNOHANG) != 0) id = -1;
    return id < 0;
  }
  // Its summary is then complete.
  void Stop() {
    if (HasEnded()) return;
    kill(id, SIGINT);
    waitpid(id, nullptr, 0);
    id = -1;
  }
  const std::string& File() const { return file; }

 private:
  pid_t id = -1;
  std::string file;
};

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
  Tracer tracer(process);
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (!AreAllTraced(process)) {
    if (tracer.HasEnded() || std::chrono::steady_clock::now() > deadline) {
      throw std::runtime_error("strace is not installed or may not trace");
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  body();
  tracer.Stop();
  return ReadSummary(tracer.File());
}

}  // namespace bench
