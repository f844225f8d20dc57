// The finished daemon, behind kesd-launch and with the host's libraries.
#ifndef KESD_TESTS_DAEMON_H_
#define KESD_TESTS_DAEMON_H_

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "client/client.h"
#include "tests/process.h"

namespace testing_process {

namespace fs = std::filesystem;

inline constexpr char kBin[] = KESD_BINARY_DIR "/bin/";

// A daemon of its own, on a socket of its own.
class Daemon {
 public:
  // `wrapper`: what kesd-launch starts instead of kesd, which then starts kesd.
  explicit Daemon(const std::string& source, const std::vector<std::string>& environment = {},
                  std::vector<std::string> wrapper = {})
      : process(Command(std::move(wrapper)), Output::kMerged, With(environment, "VEXO_SOURCE=" + source)) {
    while (process.IsRunning() && !Connect()) std::this_thread::yield();
  }

  std::string Socket() const { return directory.path / "kesd.sock"; }

  kes::Result<kes::Client> Connect() const { return kes::Client::Connect(Socket()); }

  std::vector<std::string> Kesctl(std::vector<std::string> more) const {
    more.insert(more.begin(), {kBin + std::string("kesctl"), "--socket", Socket()});
    return more;
  }

  Outcome Stop() {
    process.Signal(SIGTERM);
    return process.Finish();
  }

 private:
  static std::vector<std::string> With(std::vector<std::string> settings, std::string setting) {
    settings.push_back(std::move(setting));
    return settings;
  }
  std::vector<std::string> Command(std::vector<std::string> wrapper) const {
    wrapper.insert(wrapper.begin(), {kBin + std::string("kesd-launch"), "--socket", Socket(), "--"});
    wrapper.push_back(kBin + std::string("kesd"));
    return wrapper;
  }
  TemporaryDirectory directory;

 public:
  Process process;
};

inline fenk::Clock::time_point Soon() { return fenk::Clock::now() + std::chrono::seconds(60); }

inline kes::Result<kes::DiscoveryResult> Scan(kes::Client& client, const kes::DiscoveryRequest& request) {
  auto scan = client.StartDiscovery(request);
  if (!scan) return scan.GetError();
  return scan->Wait(Soon(), -1);
}

}  // namespace testing_process

#endif  // KESD_TESTS_DAEMON_H_
