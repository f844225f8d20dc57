// The finished programs together: kesd behind kesd-launch with the host's libraries, asked through kesctl and libkes.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "client/client.h"
#include "tests/daemon.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using kes::Client;
using testing_process::Daemon;
using testing_process::Outcome;
using testing_process::Scan;
using testing_process::Soon;

TEST(EndToEnd, RefusesAChannelThatThereIsNot) {
  const Daemon daemon("scene:delay=0");
  auto client = daemon.Connect();
  ASSERT_TRUE(client) << client.GetError().message;
  const auto result = Scan(*client, {.channels = {15}});
  ASSERT_TRUE(result) << result.GetError().message;
  EXPECT_EQ(result->status, wifi::ScanStatus::kInvalidRequest);
}

TEST(EndToEnd, RangesOnceAndPeriodically) {
  Daemon daemon("scene:delay=0");
  auto client = daemon.Connect();
  ASSERT_TRUE(client) << client.GetError().message;
  constexpr kes::MacAddress kNear{0x02, 0xA0, 0xC9, 0x11, 0x45, 0x05}, kUnknown{0x02, 0, 0, 0, 0, 0x77};
  kes::RangingRequest request{
      .nodes = {{kNear}, {{0x02, 0x40, 0xF4, 0x03, 0x12, 0x99}}, {kUnknown}, {kNear, kUnknown}}};
  for (const bool periodic : {false, true}) {
    if (periodic) request.periodic.emplace(kes::PeriodicRanging{.intervalMs = 100, .rounds = 3});
    auto scan = client->StartRanging(request);
    ASSERT_TRUE(scan) << scan.GetError().message;
    const auto result = scan->Wait(Soon(), -1);
    ASSERT_TRUE(result) << result.GetError().message;
    EXPECT_EQ(result->status, wifi::ScanStatus::kOk);
    ASSERT_EQ(result->measurements.size(), 4u);
    const kes::RangingMeasurement &near = result->measurements[0], &again = result->measurements[3];
    EXPECT_EQ(near.ranging.status, wifi::RangingStatus::kSuccess);
    EXPECT_GT(near.ranging.distanceMm, 0);
    EXPECT_EQ(near.ranging.burstsAsked, 2);
    EXPECT_EQ(near.values.frequencyMhz, 5180u);
    EXPECT_FALSE(near.incomplete);
    EXPECT_EQ(again.bssid, kNear);
    EXPECT_EQ(again.peers, (std::vector{kNear, kUnknown}));
    EXPECT_NE(again.ranging.rttPs, near.ranging.rttPs);
    EXPECT_EQ(result->measurements[1].ranging.status, wifi::RangingStatus::kNotCapable);
    EXPECT_EQ(result->measurements[2].ranging.status, wifi::RangingStatus::kUnknownPeer);
  }
  EXPECT_EQ(daemon.Stop().exitCode, 0);
}

// Each thread is a client with a connection of its own that scans and ranges in turn; every third request is aborted at
// once, some while their result is on its way.
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
        const auto await = [&](auto scan, size_t expected) {
          ASSERT_TRUE(scan) << scan.GetError().message;
          if (i % 3 == 0) return scan->Abort();
          const auto result = scan->Wait(Soon(), -1);
          ASSERT_TRUE(result) << result.GetError().message;
          ASSERT_EQ(result->measurements.size(), expected);
          ++delivered;
        };
        if (i % 2 == 0) {
          await(client->StartDiscovery({}), 40);
        } else {
          kes::RangingRequest request;
          request.nodes.resize(5);
          await(client->StartRanging(request), 5);
        }
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
  if (!parsed.is_object() || parsed["source"] != "capture") return rows;
  for (const auto& measurement : parsed["measurements"]) {
    const std::string ssid = measurement["ssid_hex"];
    rows.insert({measurement["bssid"], !measurement["ssid_valid"] ? "absent" : ssid.empty() ? "empty" : ssid});
  }
  return rows;
}

// What a result says of the air, but for when; the signal in whole dBm, as captures have it.
using Heard = std::tuple<kes::MacAddress, bool, std::vector<uint8_t>, uint32_t, double, uint64_t, uint16_t, uint16_t,
                         std::vector<uint8_t>>;

std::multiset<Heard> HeardIn(const Daemon& daemon, const kes::DiscoveryRequest& request) {
  std::multiset<Heard> all;
  auto client = daemon.Connect();
  if (!client) return all;
  const auto result = Scan(*client, request);
  if (!result) return all;
  for (const kes::Measurement& m : result->measurements) {
    all.emplace(m.bssid, m.ssidValid, m.ssid, m.values.frequencyMhz, std::round(m.values.signalMbm / 100.0),
                m.values.timestampUs, m.values.beaconIntervalTu, m.values.capability, m.elements);
  }
  return all;
}

// Scans with kesctl, which also writes the capture `written`. A daemon that measures it hears the same.
Outcome ScanAndReadBack(const Daemon& daemon, const std::string& written, const std::string& ssid = "") {
  std::vector<std::string> command = daemon.Kesctl({"scan", "--json", "--pcap", written});
  kes::DiscoveryRequest cached;  // the same scan's result, with its time stamps
  cached.mode = wifi::RequestMode::kCacheOnly;
  if (!ssid.empty()) {
    command.insert(command.end(), {"--ssid", ssid});
    cached.ssids.emplace_back(ssid.begin(), ssid.end());
  }
  Outcome outcome = testing_process::Run(command);
  Daemon again("capture:" + written);
  EXPECT_EQ(HeardIn(again, {}), HeardIn(daemon, cached));
  EXPECT_EQ(again.Stop().exitCode, 0);
  return outcome;
}

TEST(EndToEnd, WritesWhatTheSceneSendsAsACapture) {
  const testing_process::TemporaryDirectory directory;
  const std::string written = directory.path / "written.pcap";
  const auto begin = std::chrono::system_clock::now();
  Daemon daemon("scene:aps=300,delay=0");
  for (const auto& [ssid, frame] : {std::pair("", 0x80), std::pair("backoffice", 0x50)}) {  // beacon, probe response
    EXPECT_EQ(ScanAndReadBack(daemon, written, ssid).exitCode, 0);
    std::ifstream file(written, std::ios::binary);
    uint32_t second = 0;
    ASSERT_TRUE(file.seekg(24).read(reinterpret_cast<char*>(&second), sizeof second));
    const std::chrono::system_clock::time_point taken{std::chrono::seconds(second)};
    EXPECT_GT(taken, begin - 2s);
    EXPECT_LE(taken, std::chrono::system_clock::now());
    EXPECT_EQ(file.seekg(24 + 16 + 13).get(), frame);
  }
  EXPECT_EQ(daemon.Stop().exitCode, 0);
}

TEST(EndToEnd, ListsTheAccessPointsOfRealCaptures) {
  const testing_process::TemporaryDirectory directory;
  // The project's own, of the access points in tests/kernel, and others where there are some.
  const char* more = std::getenv("KESD_CAPTURES");
  std::vector<fs::directory_entry> entries(fs::directory_iterator(KESD_SOURCE_DIR "/tests/captures"), {});
  if (more != nullptr && fs::is_directory(more)) entries.insert(entries.end(), fs::directory_iterator(more), {});
  int captures = 0;
  for (const fs::directory_entry& entry : entries) {
    if (entry.path().extension() != ".tsv") continue;
    ++captures;
    const fs::path capture = fs::path(entry.path()).replace_extension();
    SCOPED_TRACE(capture.filename());
    Daemon daemon("capture:" + capture.string());
    const Outcome outcome = ScanAndReadBack(daemon, directory.path / "written.pcap");
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    EXPECT_EQ(RowsOfScan(outcome.out), RowsOfList(entry.path()));
    EXPECT_EQ(daemon.Stop().exitCode, 0);
  }
  EXPECT_GT(captures, 0);
}

}  // namespace
