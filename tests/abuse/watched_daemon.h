// The finished daemon, and what it has in use.
#ifndef KESD_TESTS_ABUSE_WATCHED_DAEMON_H_
#define KESD_TESTS_ABUSE_WATCHED_DAEMON_H_

#include <sys/resource.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "host/fenksocket/test_support.h"
#include "host/fenksocket/unique_fd.h"
#include "tests/daemon.h"

namespace abuse {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kSanitized = true;
#elif defined(__has_feature)
inline constexpr bool kSanitized = __has_feature(address_sanitizer) || __has_feature(thread_sanitizer);
#else
inline constexpr bool kSanitized = false;
#endif
#ifdef KESD_EMULATOR
inline constexpr bool kEmulated = true;
#else
inline constexpr bool kEmulated = false;
#endif
// Slow, and keeps what was freed: a sanitizer to look for its use, and QEMU 7.2 280 KiB of each thread for good.
inline constexpr bool kHampered = kSanitized || kEmulated;

class WatchedDaemon {
 public:
  // What its log has told.
  struct Said {
    int connections = 0;
    int started = 0;
    std::set<int> over;    // IDs of requests that were delivered or aborted
    int cutOff = 0;        // peers, for being late
    bool starved = false;  // it could not accept
    bool ended = false;
    std::string rest;  // other lines than for debugging
  };
  fenk::test::Watched<Said> said;

  // It has answered a first scan, for which it makes threads that stay.
  explicit WatchedDaemon(const std::string& source);
  ~WatchedDaemon();

  kes::Result<kes::Client> Connect() const { return daemon.Connect(); }
  fenk::test::RawPeer ConnectRaw() const { return fenk::test::RawPeer(fenk::test::ConnectTo(daemon.Socket())); }
  // A client in a process of its own, see client_process.cpp.
  testing_process::Process Fork(std::size_t sendMost, std::size_t readMost, int signal) const;
  // Such clients that have stopped before, within and after results that no socket holds, in turn.
  std::vector<testing_process::Process> Stall(int clients) const;
  pid_t Pid() const { return daemon.process.Pid(); }

  uint64_t ResidentBytes() const;
  std::chrono::nanoseconds ProcessorTime() const;
  // False when it never has as little in use again as after its first scan.
  [[nodiscard]] bool BecomesIdle();

  // It can have no more than it has. What it could have before.
  rlimit TakeDescriptors() const;

  // Ends it by SIGTERM, and expects that that is in time and in order.
  void ExpectEnds();

 private:
  struct Use {
    std::size_t threads;
    std::size_t descriptors;
    int connections;
    int requests;  // pending
  };
  void ReadLog();
  Use InUse();

  testing_process::Daemon daemon;
  std::thread reading;
  Use idle;
};

// Waits for what nothing signals. False when it does not come to hold.
[[nodiscard]] bool Await(const std::function<bool()>& condition);

}  // namespace abuse

#endif  // KESD_TESTS_ABUSE_WATCHED_DAEMON_H_
