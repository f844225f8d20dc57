// The finished programs together: kesd behind kesd-launch with the host's libraries, asked through kesctl and libkes.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "client/client.h"
#include "tests/process.h"

namespace {

namespace fs = std::filesystem;
using kes::Client;
using kes::DiscoveryRequest;
using testing_process::Outcome;
using testing_process::Output;
using testing_process::Process;

constexpr char kBin[] = KESD_BINARY_DIR "/bin/";

fenk::Clock::time_point Soon() { return fenk::Clock::now() + std::chrono::seconds(60); }

struct TemporaryDirectory {
  TemporaryDirectory() {
    std::string pattern = (fs::temp_directory_path() / "kesd-test.XXXXXX").string();
    if (mkdtemp(pattern.data()) != nullptr) path = pattern;
  }
  ~TemporaryDirectory() { fs::remove_all(path); }
  fs::path path;
};

// A daemon of its own, on a socket of its own.
class Daemon {
 public:
  explicit Daemon(const std::string& source, const std::vector<std::string>& environment = {})
      : process({kBin + std::string("kesd-launch"), "--socket", Socket(), "--", kBin + std::string("kesd")},
                Output::kMerged, With(environment, "VEXO_SOURCE=" + source)) {
    while (process.IsRunning() && !Connect()) std::this_thread::yield();
  }

  std::string Socket() const { return directory.path / "kesd.sock"; }

  kes::Result<Client> Connect() const { return Client::Connect(Socket()); }

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
  TemporaryDirectory directory;

 public:
  Process process;
};

size_t CountOf(const kes::Result<kes::DiscoveryResult>& result) {
  return result ? result->measurements.size() : ~size_t{0};
}

kes::Result<kes::DiscoveryResult> Scan(Client& client, const DiscoveryRequest& request) {
  auto scan = client.StartDiscovery(request);
  if (!scan) return scan.GetError();
  return scan->Wait(Soon(), -1);
}

TEST(EndToEnd, ServesEachModeOfADiscoveryScan) {
  Daemon daemon("scene:aps=300,delay=0");
  auto client = daemon.Connect();
  ASSERT_TRUE(client) << client.GetError().message;
  DiscoveryRequest request;
  request.mode = wifi::RequestMode::kCacheOnly;
  EXPECT_EQ(CountOf(Scan(*client, request)), 0u) << "nothing was scanned yet";
  request.mode = wifi::RequestMode::kCacheFallback;
  EXPECT_EQ(CountOf(Scan(*client, request)), 300u);
  request.mode = wifi::RequestMode::kCacheOnly;
  EXPECT_EQ(CountOf(Scan(*client, request)), 300u);
  request.mode = wifi::RequestMode::kFresh;
  const auto all = Scan(*client, request);
  ASSERT_EQ(CountOf(all), 300u);

  size_t ofChannel = 0;
  for (const kes::Measurement& measurement : all->measurements) {
    EXPECT_FALSE(measurement.incomplete);
    wifi::ElementReader elements(measurement.elements);
    while (elements.Next()) {
    }
    EXPECT_TRUE(elements.Rest().empty()) << "whole elements only";
    if (measurement.values.frequencyMhz == 2437) ++ofChannel;
  }
  request.channels = {6};
  const auto filtered = Scan(*client, request);
  EXPECT_GT(ofChannel, 0u);
  EXPECT_EQ(CountOf(filtered), ofChannel);
  request.channels = {15};
  const auto invalid = Scan(*client, request);
  ASSERT_TRUE(invalid);
  EXPECT_EQ(invalid->status, wifi::ScanStatus::kInvalidRequest);
  EXPECT_EQ(daemon.Stop().exitCode, 0);
}

TEST(EndToEnd, AClientThatDiesAbortsItsRequestAndNobodyElses) {
  Daemon daemon("scene:delay=600000", {"KES_LOG=kesd=debug"});
  Process doomed(daemon.Kesctl({"scan"}));
  daemon.process.ReadLinesUntil("StartScan returning 0");
  auto client = daemon.Connect();
  ASSERT_TRUE(client) << client.GetError().message;
  auto other = client->StartDiscovery({});
  ASSERT_TRUE(other) << other.GetError().message;

  doomed.Signal(SIGKILL);
  EXPECT_NE(daemon.process.ReadLinesUntil("Aborted ID").back().find("Dispatcher: Aborted ID 1"), std::string::npos);
  DiscoveryRequest cached;
  cached.mode = wifi::RequestMode::kCacheOnly;
  EXPECT_EQ(CountOf(Scan(*client, cached)), 0u);

  daemon.process.Signal(SIGTERM);
  const auto result = other->Wait(Soon(), -1);
  ASSERT_FALSE(result) << "its request was pending when the daemon ended";
  EXPECT_EQ(result.GetError().kind, kes::ErrorKind::kDisconnected);
  const Outcome outcome = daemon.process.Finish();
  EXPECT_EQ(outcome.exitCode, 0);
  EXPECT_NE(outcome.out.find("Aborted ID 2"), std::string::npos) << outcome.out;
}

TEST(EndToEnd, CtrlCAbortsTheRequest) {
  Daemon daemon("scene:delay=600000", {"KES_LOG=kesd=debug"});
  Process scan(daemon.Kesctl({"scan"}));
  daemon.process.ReadLinesUntil("StartScan returning 0");
  scan.Signal(SIGINT);
  EXPECT_EQ(scan.Finish().exitCode, 130);
  EXPECT_NE(daemon.process.ReadLinesUntil("Aborted ID").back().find("Aborted ID 1"), std::string::npos);
  EXPECT_EQ(daemon.Stop().exitCode, 0);
}

TEST(EndToEnd, ASourceThatCannotBeReadIsSaidToTheClient) {
  Daemon daemon("capture:/nonexistent/file.pcap");
  const Outcome outcome = testing_process::Run(daemon.Kesctl({"scan"}));
  EXPECT_EQ(outcome.exitCode, 1);
  EXPECT_FALSE(outcome.err.empty());
  const Outcome ended = daemon.Stop();
  EXPECT_EQ(ended.exitCode, 0);
  EXPECT_NE(ended.out.find("/nonexistent/file.pcap"), std::string::npos) << ended.out;
}

// Each thread is a client with a connection of its own; every third request is aborted at once, some while their result
// is on its way.
TEST(EndToEnd, ManyClientsAtOnceEachGetTheirOwnResults) {
  constexpr int kClients = 8;
  constexpr int kRequests = 60;
  Daemon daemon("scene:aps=40,delay=1");
  std::atomic<int> delivered = 0;
  std::vector<std::thread> clients;
  for (int c = 0; c < kClients; ++c) {
    clients.emplace_back([&] {
      auto client = daemon.Connect();
      ASSERT_TRUE(client) << client.GetError().message;
      for (int i = 0; i < kRequests; ++i) {
        auto scan = client->StartDiscovery({});
        ASSERT_TRUE(scan) << scan.GetError().message;
        if (i % 3 == 0) {
          scan->Abort();
          continue;
        }
        const auto result = scan->Wait(Soon(), -1);
        ASSERT_EQ(CountOf(result), 40u);
        ++delivered;
      }
    });
  }
  for (std::thread& client : clients) client.join();
  EXPECT_EQ(delivered, kClients * kRequests * 2 / 3);
  EXPECT_EQ(daemon.Stop().exitCode, 0);
}

// One row of a capture's list: the BSSID, and the SSID in hex or "empty" or "absent".
using Row = std::pair<std::string, std::string>;

std::set<Row> RowsOfList(const fs::path& path) {
  std::set<Row> rows;
  std::ifstream list(path);
  std::string line;
  std::getline(list, line);
  while (std::getline(list, line)) {
    std::istringstream fields(line);
    Row row;
    if (fields >> row.first >> row.second) rows.insert(row);
  }
  return rows;
}

std::set<Row> RowsOfScan(const std::string& json) {
  std::set<Row> rows;
  const auto parsed = nlohmann::json::parse(json, nullptr, false);
  if (!parsed.is_object()) return rows;
  for (const auto& measurement : parsed["measurements"]) {
    const std::string ssid = measurement["ssid_hex"];
    rows.insert({measurement["bssid"], !measurement["ssid_valid"] ? "absent" : ssid.empty() ? "empty" : ssid});
  }
  return rows;
}

TEST(EndToEnd, ListsTheAccessPointsOfRealCaptures) {
  const char* folder = std::getenv("KESD_CAPTURES");
  if (folder == nullptr || !fs::is_directory(folder)) GTEST_SKIP() << "KESD_CAPTURES names no folder of captures";
  int captures = 0;
  for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
    if (entry.path().extension() != ".tsv") continue;
    ++captures;
    const fs::path capture = fs::path(entry.path()).replace_extension();
    SCOPED_TRACE(capture.filename());
    Daemon daemon("capture:" + capture.string());
    const Outcome outcome = testing_process::Run(daemon.Kesctl({"scan", "--json"}));
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    EXPECT_EQ(RowsOfScan(outcome.out), RowsOfList(entry.path()));
    EXPECT_EQ(daemon.Stop().exitCode, 0);
  }
  EXPECT_GT(captures, 0);
}

}  // namespace
