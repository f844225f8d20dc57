// Ranging through a client that measures the built-in scene.
#include <gtest/gtest.h>

#include <atomic>
#include <initializer_list>
#include <latch>
#include <memory>
#include <numeric>
#include <set>
#include <utility>

#include "host/vexo_client/boot_clock.h"
#include "host/vexo_client/client.h"
#include "host/vexo_client/scene/scene_source.h"
#include "host/vexo_client/source_choice.h"
#include "host/vexo_client/test_support.h"
#include "host/wifi/ranging_parameters.h"

namespace vexo_host {
namespace {

using std::chrono::milliseconds;
using wifi::RangingStatus;
using wifi::ScanStatus;
using zv_loc_fw::VEXOPeriodicRangingScanRequest;
using zv_loc_fw::VEXORangingScanRequest;

constexpr uint64_t kAnswers = 0x0E7C33905A20, kUnknown = 0x123456789ABC;

template <typename Node = zv_loc_fw::VEXONodeInfo>
Node NodeOf(uint64_t address) {
  Node node;
  node.address.setMac(static_cast<int>(address >> 24), static_cast<int>(address & 0xFFFFFF));
  return node;
}

std::vector<uint64_t> AddressesFrom(uint64_t first, uint32_t count) {
  std::vector<uint64_t> addresses(count);
  std::iota(addresses.begin(), addresses.end(), first);
  return addresses;
}

zv_loc_fw::VEXOPeriodicNodeInfo PeriodicNode(uint64_t address, int32_t intervalMs, int32_t rounds) {
  auto node = NodeOf<zv_loc_fw::VEXOPeriodicNodeInfo>(address);
  node.value5 = intervalMs;
  node.value6 = rounds;
  return node;
}

class RangingClient : public testing::Test {
 protected:
  void Make(const char* source) {
    client = Client::Create(listener, [=](Scheduler& scheduler) { return MakeSource(source, scheduler); });
    ASSERT_NE(client, nullptr);
  }

  int32_t Send(uint32_t id, const std::vector<uint64_t>& addresses, long timeoutMs = 3'600'000) {
    zv_loc_fw::vector<zv_loc_fw::VEXONodeInfo> nodes;
    for (const uint64_t address : addresses) nodes.push_back(NodeOf(address));
    return client->Send(VEXORangingScanRequest(id, nodes, timeoutMs));
  }

  int32_t SendPeriodic(uint32_t id, std::initializer_list<std::pair<int32_t, int32_t>> intervalsAndRounds,
                       long timeoutMs = 0) {
    zv_loc_fw::vector<zv_loc_fw::VEXOPeriodicNodeInfo> nodes;
    for (const auto& [interval, rounds] : intervalsAndRounds) nodes.push_back(PeriodicNode(kAnswers, interval, rounds));
    return client->Send(VEXOPeriodicRangingScanRequest(id, nodes, timeoutMs));
  }

  RecordingListener listener;
  std::unique_ptr<Client> client;
};

TEST_F(RangingClient, HasNoMeasurementsWhenTheSourceCannotRange) {
  const struct {
    const char* source;
    ScanStatus status;
  } cases[] = {{"capture:/nonexistent", ScanStatus::kUnsupported}, {"tea leaves", ScanStatus::kUnavailable}};
  size_t reports = 0;
  for (const auto& c : cases) {
    Make(c.source);
    ASSERT_EQ(Send(1, {kAnswers}), 0);
    const std::vector<Report> all = listener.WaitFor(++reports);
    ASSERT_EQ(all.size(), reports);
    EXPECT_EQ(all.back().status, c.status);
    EXPECT_TRUE(all.back().ranged.empty());
  }
}

TEST_F(RangingClient, SaysOfEachNodeThatItWasNotMeasuredWhenTheTimeoutPassesFirst) {
  Make("scene:delay=600000");
  ASSERT_EQ(Send(1, {kAnswers, kUnknown}, 1), 0);
  ASSERT_EQ(listener.WaitFor(1).size(), 1u);
  ASSERT_EQ(SendPeriodic(2, {{100, 2}}, 1), 0);  // each round on its own
  const std::vector<Report> reports = listener.WaitFor(3);
  ASSERT_EQ(reports.size(), 3u);
  for (const Report& report : reports) {
    EXPECT_EQ(report.status, ScanStatus::kTimedOut);
    ASSERT_EQ(report.ranged.size(), report.id == 1 ? 2u : 1u);
    for (const Ranged& ranged : report.ranged) EXPECT_EQ(ranged.values.status, RangingStatus::kNotMeasured);
    EXPECT_EQ(report.ranged[0].bssid, kAnswers);
  }
}

TEST_F(RangingClient, ReportsEveryRoundOfAPeriodicRequest) {
  Make("scene:delay=0");
  const auto begun = std::chrono::steady_clock::now();
  ASSERT_EQ(SendPeriodic(1, {{1, 2}, {5'000, 3}}), 0);  // the shortest interval, the most rounds
  const std::vector<Report> reports = listener.WaitFor(3);
  ASSERT_EQ(reports.size(), 3u);
  EXPECT_GE(std::chrono::steady_clock::now() - begun, 2 * milliseconds(wifi::kMinRangingIntervalMs));
  std::set<int64_t> times;
  for (const Report& report : reports) {
    EXPECT_EQ(report.id, 1u);
    EXPECT_EQ(report.status, ScanStatus::kOk);
    ASSERT_EQ(report.ranged.size(), 2u);
    for (const Ranged& ranged : report.ranged) times.insert(ranged.values.rttPs);
  }
  EXPECT_EQ(times.size(), 6u) << "each measurement has noise of its own";
  ASSERT_EQ(SendPeriodic(2, {{200, -4}}), 0);  // at least one round
  EXPECT_EQ(listener.WaitFor(4).back().id, 2u);
  for (const uint32_t id : {3u, 4u}) {
    ASSERT_EQ(id == 3 ? SendPeriodic(id, {}) : Send(id, {}), 0);
    const Report report = listener.WaitFor(id + 2).back();
    EXPECT_EQ(report.id, id);  // and no further round of the others
    EXPECT_EQ(report.status, ScanStatus::kInvalidRequest);
  }
}

TEST_F(RangingClient, BeginsARoundOnlyWhenTheOneBeforeIsReported) {
  std::latch began(1), proceed(1);
  std::atomic<int> begun = 0;
  listener.onReport = [&](uint32_t id) {
    if (id != 1) return;
    if (++begun == 1) began.count_down();
    proceed.wait();
  };
  Make("scene:delay=0");
  ASSERT_EQ(SendPeriodic(1, {{100, 2}}), 0);
  began.wait();
  ASSERT_EQ(SendPeriodic(2, {{100, 4}}), 0);
  for (const Report& report : listener.WaitFor(4)) EXPECT_EQ(report.id, 2u);  // 300 ms have passed
  EXPECT_EQ(begun, 1);
  proceed.count_down();
  EXPECT_EQ(listener.WaitFor(6).size(), 6u);
  client.reset();  // which refers to the hook
}

TEST_F(RangingClient, TakesAsManyNodesAsTheRecordsCanNumberAndNoMore) {
  Make("scene:aps=20000,delay=0");
  for (const uint32_t count : {1'000u, Client::kMaxRangingNodes}) {
    ASSERT_EQ(Send(count, AddressesFrom(0x021A00000000, count)), 0);
    const Report report = listener.WaitFor(count == 1'000 ? 1 : 2).back();
    ASSERT_EQ(report.id, count);
    EXPECT_EQ(report.status, ScanStatus::kOk);
    ASSERT_EQ(report.ranged.size(), count);
    size_t measured = 0;
    for (uint32_t i = 0; i < count; ++i) {
      ASSERT_EQ(report.ranged[i].bssid, 0x021A00000000 + i);
      measured += report.ranged[i].values.status == RangingStatus::kSuccess;
    }
    EXPECT_GT(measured, count / 50);
  }
  EXPECT_EQ(Send(9, AddressesFrom(0, Client::kMaxRangingNodes + 1)), Client::kTooMany);
}

TEST_F(RangingClient, BoundsTheNodesInFlightAndGivesTheirPlacesBack) {
  Make("scene:delay=600000");
  const std::vector<uint64_t> most = AddressesFrom(0, Client::kMaxRangingNodes);
  ASSERT_EQ(Send(1, {kUnknown}), 0);
  uint32_t accepted = 0;
  while (accepted < 100 && Send(2, most) == 0) ++accepted;
  EXPECT_EQ(accepted, Client::kMaxRangingNodesInFlight / Client::kMaxRangingNodes - 1);
  EXPECT_EQ(Send(3, {kUnknown}), 0) << "the refused one took no places";
}

}  // namespace
}  // namespace vexo_host
