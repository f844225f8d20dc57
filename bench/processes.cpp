#include "bench/processes.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <vector>

namespace bench {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

std::system_error SystemError(const char* what) { return {errno, std::generic_category(), what}; }

void Pin(std::optional<int> cpu) {
  if (!cpu) return;
  cpu_set_t set;
  CPU_ZERO(&set);
  CPU_SET(static_cast<unsigned>(*cpu), &set);
  if (sched_setaffinity(0, sizeof(set), &set) != 0) throw SystemError("sched_setaffinity");
}

// Runs `body` in a process that ends with this one.
template <typename Body>
pid_t Fork(std::optional<int> cpu, const Body& body) {
  std::fflush(nullptr);
  const pid_t parent = getpid();
  const pid_t id = fork();
  if (id < 0) throw SystemError("fork");
  if (id != 0) return id;
  try {
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != parent) _exit(1);
    Pin(cpu);
    body();
    _exit(0);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "%s\n", e.what());
    _exit(1);
  }
}

// False once the process has ended.
bool Runs(pid_t id) { return waitpid(id, nullptr, WNOHANG) == 0; }

// Of a pseudo-file's "Name:   value kB" line.
uint64_t KibOf(const std::string& file, const std::string& name) {
  std::ifstream lines(file);
  std::string line;
  while (std::getline(lines, line)) {
    if (line.starts_with(name + ":")) return std::stoull(line.substr(name.size() + 1));
  }
  throw std::runtime_error("no " + name + " in " + file);
}

void WriteAll(int fd, const void* bytes, std::size_t size) {
  if (send(fd, bytes, size, MSG_NOSIGNAL) != static_cast<ssize_t>(size)) throw SystemError("a client process is gone");
}

bool ReadAll(int fd, void* bytes, std::size_t size) {
  return recv(fd, bytes, size, MSG_WAITALL) == static_cast<ssize_t>(size);
}

}  // namespace

void Rest() { std::this_thread::sleep_for(std::chrono::seconds(2)); }

Server::Server(const Contender& contender, const Payload& payload, std::optional<int> cpu) {
  std::string pattern = (std::filesystem::temp_directory_path() / "kesd-bench-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) throw SystemError("mkdtemp");
  directory = pattern;
  path = directory + "/socket";
  id = Fork(cpu, [&] {
    dup2(open("/dev/null", O_WRONLY), STDERR_FILENO);  // the daemon's log
    contender.serve(path, payload);
  });
  const auto deadline = steady_clock::now() + std::chrono::seconds(30);
  // Not from this process: what a contender's library starts would live on in those that are forked later.
  const auto answers = [&] {
    const pid_t probe = Fork(kAnyCpu, [&] {
      dup2(open("/dev/null", O_WRONLY), STDERR_FILENO);
      contender.connect(path, payload);
    });
    int status = 0;
    return waitpid(probe, &status, 0) == probe && status == 0;
  };
  while (!answers()) {
    if (!Runs(id) || steady_clock::now() > deadline) {
      kill(id, SIGKILL);  // or nobody: it has not been waited for by anyone else
      std::filesystem::remove_all(directory);
      throw std::runtime_error(std::string("the server does not start: ") + contender.name);
    }
    std::this_thread::sleep_for(milliseconds(2));
  }
}

Server::~Server() {
  kill(id, SIGTERM);
  bool runs = Runs(id);
  for (int i = 0; i < 500 && runs; ++i) {
    std::this_thread::sleep_for(milliseconds(10));
    runs = Runs(id);
  }
  if (runs) {
    kill(id, SIGKILL);
    waitpid(id, nullptr, 0);
  }
  std::error_code ignored;
  std::filesystem::remove_all(directory, ignored);
}

Usage Server::Used() const {
  clockid_t clock;
  timespec cpu{};
  if (clock_getcpuclockid(id, &clock) != 0 || clock_gettime(clock, &cpu) != 0) {
    throw std::runtime_error("a server process is gone");
  }
  std::ifstream stat("/proc/" + std::to_string(id) + "/stat");
  std::string fields((std::istreambuf_iterator<char>(stat)), {});
  std::istringstream rest(fields.substr(fields.rfind(')') + 2));
  std::string skipped;
  for (int field = 3; field < 10; ++field) rest >> skipped;
  uint64_t faults = 0;
  rest >> faults;
  return {std::chrono::seconds(cpu.tv_sec) + std::chrono::nanoseconds(cpu.tv_nsec), faults};
}

Memory Server::Holds() const {
  const std::string status = "/proc/" + std::to_string(id) + "/status";
  return {KibOf(status, "VmRSS"), KibOf(status, "RssAnon")};
}

ClientProcess::ClientProcess(const Contender& contender, const std::string& path, const Payload& payload,
                             std::optional<int> cpu) {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) throw SystemError("socketpair");
  channel.Reset(ends[0]);
  const fenk::UniqueFd other(ends[1]);
  id = Fork(cpu, [&] {
    const std::unique_ptr<ClientEnd> client = contender.connect(path, payload);
    Command command{};
    while (ReadAll(other.Get(), &command, sizeof(command))) {
      const Measured measured = Run(*client, command);
      WriteAll(other.Get(), &measured, sizeof(measured));
    }
  });
}

ClientProcess::~ClientProcess() {
  channel.Reset(-1);
  kill(id, SIGTERM);
  waitpid(id, nullptr, 0);
}

void ClientProcess::Send(const Command& command) const { WriteAll(channel.Get(), &command, sizeof(command)); }

Measured ClientProcess::Finish() const {
  Measured measured{};
  if (!ReadAll(channel.Get(), &measured, sizeof(measured))) throw std::runtime_error("a client process failed");
  return measured;
}

Measured ClientProcess::Run(ClientEnd& client, const Command& command) {
  static std::vector<float> microseconds;  // kept: growing it takes time
  microseconds.clear();
  const auto begin = steady_clock::now();
  const auto end = begin + milliseconds(command.milliseconds);
  auto last = begin;
  while (command.requests == 0 ? last < end : microseconds.size() < command.requests) {
    client.Request();
    const auto now = steady_clock::now();
    microseconds.push_back(std::chrono::duration<float, std::micro>(now - last).count());
    last = now;
  }
  const std::size_t requests = microseconds.size();
  const auto middle = microseconds.begin() + static_cast<std::ptrdiff_t>(requests / 2);
  std::nth_element(microseconds.begin(), middle, microseconds.end());
  return {requests, static_cast<double>(*middle)};
}

}  // namespace bench
