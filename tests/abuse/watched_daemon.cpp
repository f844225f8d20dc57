#include "tests/abuse/watched_daemon.h"

#include <gtest/gtest.h>
#include <poll.h>

#include <csignal>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "tests/abuse/abusive_client.h"

namespace abuse {
namespace {

namespace fs = std::filesystem;

std::size_t CountOf(const fs::path& folder) {
  return static_cast<std::size_t>(std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
}

bool Contains(const std::string& line, const char* part) { return line.find(part) != std::string::npos; }

}  // namespace

bool Await(const std::function<bool()>& condition) {
  const auto deadline = testing_process::Soon();
  while (!condition()) {
    if (fenk::Clock::now() > deadline) return false;
    poll(nullptr, 0, 5);
  }
  return true;
}

WatchedDaemon::WatchedDaemon(const std::string& source)
    : daemon(source, {"KES_LOG=kesd=debug,fenksocket=debug"}), reading(&WatchedDaemon::ReadLog, this) {
  auto first = Connect();
  EXPECT_TRUE(first && testing_process::Scan(*first, {.timeoutMs = 1}));
  first = kes::Error{};
  EXPECT_TRUE(Await([&] {
    idle = InUse();
    return idle.connections == 0 && idle.requests == 0;
  }));
}

WatchedDaemon::~WatchedDaemon() {
  daemon.process.Signal(SIGKILL);
  reading.join();
}

void WatchedDaemon::ReadLog() {
  for (std::string line; !(line = daemon.process.ReadLine()).empty();) {
    said.Update([&](Said& now) {
      const std::size_t id = line.find("ID ");
      if (Contains(line, ": pid ")) ++now.connections;
      if (Contains(line, ": closed ") || Contains(line, " disconnected: ")) --now.connections;
      if (Contains(line, "StartScan returning 0")) ++now.started;
      if (Contains(line, "Dispatcher: Aborted ID ")) now.over.insert(std::stoi(line.substr(id + 3)));
      if (Contains(line, "Dispatcher: responseReceived for ID = ")) now.over.insert(std::stoi(line.substr(id + 5)));
      if (Contains(line, " in time")) ++now.cutOff;
      if (Contains(line, "cannot accept: ")) now.starved = true;
      if (!Contains(line, " D ")) now.rest += line + '\n';
    });
  }
  said.Update([](Said& now) { now.ended = true; });
}

testing_process::Process WatchedDaemon::Fork(std::size_t sendMost, std::size_t readMost, int signal) const {
  return testing_process::Process(
      {CLIENT_PROCESS, daemon.Socket(), std::to_string(sendMost), std::to_string(readMost), std::to_string(signal)});
}

std::vector<testing_process::Process> WatchedDaemon::Stall(int clients) const {
  constexpr std::size_t kRead[] = {0, 100'000, kAll};
  std::vector<testing_process::Process> stalled;
  for (int i = 0; i < clients; ++i) stalled.push_back(Fork(Request().data.size(), kRead[i % 3], SIGSTOP));
  for (const testing_process::Process& client : stalled) EXPECT_TRUE(client.AwaitStop());
  return stalled;
}

WatchedDaemon::Use WatchedDaemon::InUse() {
  const fs::path process = "/proc/" + std::to_string(Pid());
  const Said now = said.Get();
  return {CountOf(process / "task"), CountOf(process / "fd"), now.connections,
          now.started - static_cast<int>(now.over.size())};
}

uint64_t WatchedDaemon::ResidentBytes() const {
  std::ifstream status("/proc/" + std::to_string(Pid()) + "/smaps_rollup");
  std::string word;
  uint64_t kilobytes = 0;
  while (status >> word && word != "Rss:") continue;
  status >> kilobytes;
  return kilobytes << 10;
}

std::chrono::nanoseconds WatchedDaemon::ProcessorTime() const {
  clockid_t clock;
  timespec time{};
  if (clock_getcpuclockid(Pid(), &clock) != 0 || clock_gettime(clock, &time) != 0) ADD_FAILURE() << "no clock";
  return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

bool WatchedDaemon::BecomesIdle() {
  Use now{};
  const bool becomes = Await([&] {
    now = InUse();
    return now.threads <= idle.threads && now.descriptors <= idle.descriptors && now.connections == 0 &&
           now.requests == 0;
  });
  if (!becomes) {
    ADD_FAILURE() << now.threads << " threads of " << idle.threads << ", " << now.descriptors << " descriptors of "
                  << idle.descriptors << ", " << now.connections << " connections, " << now.requests << " requests";
  }
  return becomes;
}

rlimit WatchedDaemon::TakeDescriptors() const {
  rlimit old{};
  EXPECT_EQ(prlimit(Pid(), RLIMIT_NOFILE, nullptr, &old), 0);
  const rlimit none{0, old.rlim_max};
  EXPECT_EQ(prlimit(Pid(), RLIMIT_NOFILE, &none, nullptr), 0);
  return old;
}

void WatchedDaemon::ExpectEnds() {
  const auto begun = fenk::Clock::now();
  daemon.process.Signal(SIGTERM);
  rlimit all{};
  if (kSanitized && prlimit(Pid(), RLIMIT_NOFILE, nullptr, &all) == 0) {  // looking for leaks takes descriptors
    all.rlim_cur = all.rlim_max;
    EXPECT_EQ(prlimit(Pid(), RLIMIT_NOFILE, &all, nullptr), 0);
  }
  EXPECT_TRUE(said.Await([](const Said& now) { return now.ended; }));
  EXPECT_LT(fenk::Clock::now() - begun, std::chrono::seconds(kHampered ? 20 : 2));
  EXPECT_EQ(daemon.process.Finish().exitCode, 0) << said.Get().rest;
}

}  // namespace abuse
