#include <gtest/gtest.h>
#include <signal.h>

#include <nlohmann/json.hpp>

#include "client/kesctl_process.h"
#include "client/stand_in_daemon.h"
#include "ipc/services.h"

namespace kes {
namespace {

using Bytes = std::vector<uint8_t>;
using testing_process::Outcome;
using testing_process::Process;

constexpr char kPeer[] = "02:00:5e:10:00:01";
const MacAddress kPeerMac{0x02, 0, 0x5E, 0x10, 0, 1};

TestRangingResult Peers() {
  TestRangingResult result;
  result.Add(kPeerMac,
             {.status = wifi::RangingStatus::kSuccess,
              .distanceMm = 12345,
              .distanceStdMm = 678,
              .rttPs = 82361,
              .signalMbm = -5149},
             {{0x02, 0, 0x5E, 0x10, 0, 9}});
  result.Add({0x02, 0, 0x5E, 0x10, 0, 2}, {.status = wifi::RangingStatus::kSuccess, .distanceMm = -4, .rttPs = -27});
  result.Add(kPeerMac, {.status = wifi::RangingStatus::kNoResponse, .distanceMm = 5, .signalMbm = -9000});
  result.Add({0x02, 0, 0x5E, 0x10, 0, 3}, {}).infoCount = 0;
  return result;
}

std::vector<std::string> RangeAt(const StandInDaemon& daemon, std::vector<std::string> more = {}) {
  more.insert(more.begin(), {"--socket", daemon.SocketPath(), "range", kPeer});
  return more;
}

template <typename Record, std::size_t count>
std::array<Record, count> Loaded(const Bytes& image) {
  std::array<Record, count> records{};
  EXPECT_EQ(image.size(), sizeof records);
  std::memcpy(&records, image.data(), std::min(image.size(), sizeof records));
  return records;
}

nlohmann::json Parsed(const std::string& text) { return nlohmann::json::parse(text, nullptr, false); }

TEST(KesctlRange, PrintsATableInTheOrderOfDelivery) {
  StandInDaemon daemon(Answer::kResult, Peers());
  const Outcome outcome = RunKesctl(RangeAt(daemon));
  EXPECT_EQ(outcome.exitCode, 0);
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.out,
            "PEER               STATUS       DISTANCE m  DEVIATION m  RTT ns  dBm\n"
            "02:00:5e:10:00:01  success           12.35         0.68   82.36  -51\n"
            "02:00:5e:10:00:02  success            0.00         0.00   -0.03    -\n"
            "02:00:5e:10:00:01  no response           -            -       -  -90\n"
            "02:00:5e:10:00:03  failed !              -            -       -    -\n"
            "4 peers, 1 of them delivered in part (!)\n");
}

TEST(KesctlRange, PrintsOneJsonObject) {
  StandInDaemon daemon(Answer::kEarlyResult, Peers());
  const Outcome outcome = RunKesctl(RangeAt(daemon, {"--json"}));
  EXPECT_EQ(outcome.exitCode, 0);
  EXPECT_EQ(outcome.err, "");
  ASSERT_EQ(Lines(outcome.out).size(), 1u) << outcome.out;
  const nlohmann::json json = Parsed(outcome.out);
  ASSERT_EQ(json.size(), 2u) << outcome.out;
  EXPECT_EQ(json["scan_status"], 0);
  ASSERT_EQ(json["measurements"].size(), 4u);
  const nlohmann::json success = {{"bssid", kPeer},
                                  {"status", "success"},
                                  {"distance_m", 12.345},
                                  {"distance_std_m", 0.678},
                                  {"rtt_ps", 82361},
                                  {"signal_dbm", -51.49},
                                  {"peers", {kPeer, "02:00:5e:10:00:09"}}};
  EXPECT_EQ(json["measurements"][0], success);
  EXPECT_EQ(json["measurements"][1]["distance_m"], -0.004);
  EXPECT_EQ(json["measurements"][1]["signal_dbm"], nullptr);
  const nlohmann::json silent = {
      {"bssid", kPeer},    {"status", "no-response"}, {"distance_m", nullptr}, {"distance_std_m", nullptr},
      {"rtt_ps", nullptr}, {"signal_dbm", -90.0},     {"peers", {kPeer}}};
  EXPECT_EQ(json["measurements"][2], silent);
  EXPECT_EQ(json["measurements"][3]["incomplete"], true);
}

TEST(KesctlRange, SendsWhatItsOptionsSay) {
  StandInDaemon daemon(Answer::kResult, std::vector(3, ImagesOf(TestRangingResult{})));
  const Outcome oneShot = RunKesctl(RangeAt(daemon, {"02:00:5E:10:00:02@5955", kPeer, "--timeout", "5000"}));
  EXPECT_EQ(oneShot.exitCode, 0) << oneShot.err;
  EXPECT_EQ(oneShot.out, "0 peers\n");
  const Outcome periodic = RunKesctl(RangeAt(daemon, {"--count", "3", "--periodic", "--interval", "500"}));
  EXPECT_EQ(periodic.exitCode, 0) << periodic.err;
  const Outcome byDefault = RunKesctl(RangeAt(daemon, {"--periodic"}));
  for (const Outcome& outcome : {periodic, byDefault}) {
    ASSERT_EQ(Lines(outcome.err).size(), 1u) << outcome.err;
    EXPECT_TRUE(Has(outcome.err, "delivers one result"));
  }

  ASSERT_TRUE(daemon.AwaitRequest(3));
  const std::vector<StandInDaemon::Request> sent = daemon.Requests();
  EXPECT_EQ(sent[0].operation, kStartRangingScan);
  const auto nodes = Loaded<RangingNodeRecord, 3>(sent[0].buffers[0]);
  EXPECT_EQ(MacAddressOf(nodes[1].lo24, nodes[1].hi24), (MacAddress{0x02, 0, 0x5E, 0x10, 0, 2}));
  EXPECT_EQ(MacAddressOf(nodes[2].lo24, nodes[2].hi24), kPeerMac);
  EXPECT_EQ(nodes[0].value1, 0);
  EXPECT_EQ(nodes[1].value1, 5955);
  EXPECT_EQ(sent[0].buffers[1], Bytes({0x88, 0x13, 0, 0, 0, 0, 0, 0}));

  const int32_t rounds[2][2] = {{500, 3}, {1000, 1}};
  for (std::size_t i = 0; i < 2; ++i) {
    EXPECT_EQ(sent[i + 1].operation, kStartPeriodicRangingScan);
    const auto node = Loaded<PeriodicRangingNodeRecord, 1>(sent[i + 1].buffers[0])[0];
    EXPECT_EQ(node.value5, rounds[i][0]);
    EXPECT_EQ(node.value6, rounds[i][1]);
    EXPECT_EQ(sent[i + 1].buffers[1], Bytes(8, 0));
  }
}

TEST(KesctlRange, AsksAgainAndShowsEachResultAsItComes) {
  std::vector<Images> results;
  for (int32_t i = 0; i < 3; ++i) {
    TestRangingResult result;
    result.Add(kPeerMac, {.status = wifi::RangingStatus::kSuccess, .distanceMm = 1000 * i});
    if (i == 1) result.header.scanStatus = 2;  // shown, and the next is asked for all the same
    results.push_back(ImagesOf(result));
  }
  StandInDaemon daemon(Answer::kResult, results);
  const Outcome outcome = RunKesctl(RangeAt(daemon, {"--json", "--repeat", "3"}));
  EXPECT_EQ(outcome.exitCode, 4);
  EXPECT_TRUE(Has(outcome.err, "status 2 (timed out)")) << outcome.err;
  const std::vector<std::string> lines = Lines(outcome.out);
  ASSERT_EQ(lines.size(), 3u) << outcome.out;
  for (std::size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(Parsed(lines[i])["measurements"][0]["distance_m"], static_cast<double>(i));
  }
  EXPECT_TRUE(daemon.AwaitHandleReleased(3));
}

TEST(KesctlRange, AbortsItsRequestWhenItIsInterruptedAndKeepsWhatItShowed) {
  for (const int signal : {SIGINT, SIGTERM}) {
    StandInDaemon daemon(Answer::kResult, Peers());
    Process kesctl = Kesctl(RangeAt(daemon, {"--json", "--repeat", "5"}));
    EXPECT_TRUE(Has(kesctl.ReadLine(), kPeer));  // the first result, while the second is waited for
    ASSERT_TRUE(daemon.AwaitRequest(2));
    kesctl.Signal(signal);
    const Outcome outcome = kesctl.Finish();
    EXPECT_EQ(outcome.exitCode, 128 + signal);
    EXPECT_EQ(outcome.out, "");
    EXPECT_TRUE(Has(outcome.err, "aborted"));
    EXPECT_TRUE(daemon.AwaitHandleReleased(2));
    EXPECT_EQ(daemon.Requests().size(), 2u);
  }
}

TEST(KesctlRange, SaysInItsOwnWordsWhyNothingWasMeasured) {
  for (const auto& [status, said] :
       {std::pair(3u, "(unsupported). The daemon's measurement source cannot range: "), std::pair(6u, "peers")}) {
    TestRangingResult result;
    result.header.scanStatus = status;
    StandInDaemon daemon(Answer::kResult, result);
    const Outcome outcome = RunKesctl(RangeAt(daemon));
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_TRUE(outcome.out.starts_with("scan status " + std::to_string(status) + ": ")) << outcome.out;
    EXPECT_TRUE(Has(outcome.err, said)) << outcome.err;
  }
}

}  // namespace
}  // namespace kes
