// Ranging with a radio: what kesctl shows of what the mediator answers.
#include <gtest/gtest.h>
#include <linux/netlink.h>
#include <linux/nl80211.h>

#include <algorithm>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "client/client.h"
#include "client/text.h"
#include "tests/daemon.h"
#include "tests/kernel/access_points.h"
#include "tests/kernel/mediator.h"

namespace kernel_test {
namespace {

using testing_process::Daemon;
using testing_process::Process;
using Json = nlohmann::json;
using Answers = std::vector<Mediator::Answer>;

kes::MacAddress PeerAddress(size_t number) { return {2, 0, 0, 0xAB, 0, static_cast<uint8_t>(number)}; }

std::string PeerText(size_t number) { return kesctl::MacText(PeerAddress(number)); }

class Ranging : public testing::Test {
 protected:
  void SetUp() override {
    interface = mediator.AddRadio();
    ASSERT_FALSE(interface.empty());
    SetUp(interface);
  }

  static void SetUp(const std::string& name) { ASSERT_EQ(Command("/bin/ip link set " + name + " up").exitCode, 0); }

  static Process Range(const Daemon& daemon, const std::vector<std::string>& peers, int timeoutMs = 30'000) {
    std::vector<std::string> arguments = {"range", "--json", "--timeout", std::to_string(timeoutMs)};
    arguments.insert(arguments.end(), peers.begin(), peers.end());
    return Process(daemon.Kesctl(arguments));
  }

  // [scan status, a status for each peer]
  static Json Statuses(Process process, Json* whole = nullptr) {
    const testing_process::Outcome outcome = process.Finish();
    const Json result = Json::parse(outcome.out, nullptr, false);
    if (result.is_discarded()) return outcome.out + outcome.err;
    if (whole != nullptr) *whole = result["measurements"];
    Json statuses = {result["scan_status"]};
    for (const Json& measurement : result["measurements"]) statuses.push_back(measurement["status"]);
    return statuses;
  }

  // How many peers it answered; 0 when the kernel refuses that.
  size_t AnswerNext(FtmAnswer answer) {
    const FtmMeasurement measurement = mediator.Next();
    Answers answers;
    for (const FtmPeer& peer : measurement.peers) answers.push_back({peer.address, answer});
    return mediator.Report(measurement, answers) ? answers.size() : 0;
  }

  // How many generic netlink sockets there are, whoever has them.
  static int Sockets() {
    std::ifstream list("/proc/net/netlink");
    int count = 0;
    for (std::string line, pointer, protocol; std::getline(list, line);) {
      std::istringstream(line) >> pointer >> protocol;
      if (protocol == std::to_string(NETLINK_GENERIC)) ++count;
    }
    return count;
  }

  Mediator mediator;
  std::string interface;
};

const FtmAnswer kNear{.rttPs = 33'356, .halfDbm = -100};

TEST_F(Ranging, ReportsEachPeerAsTheKernelDoes) {
  const auto failure = [](uint32_t reason) {
    return FtmAnswer{.status = NL80211_PMSR_STATUS_FAILURE, .reason = reason};
  };
  const struct {
    const char* name;
    std::vector<FtmAnswer> answers;
    const char* status;
    Json values = {nullptr, nullptr, nullptr, nullptr};  // distance, its deviation, round-trip time, signal
  } cases[] = {
      {"a round trip of 6671 ps",
       {{.rttPs = 6'671, .rttVariancePs2 = 40'000, .halfDbm = -131}},
       "success",
       {1.0, 0.03, 6'671, -65.5}},
      {"a negative time", {{.rttPs = -13'343}}, "success", {-2.0, 0.0, -13'343, nullptr}},
      {"a distance", {{.distanceMm = 7'500, .distanceVarianceMm2 = 90'000}}, "success", {7.5, 0.3, 50'035, nullptr}},
      {"both", {{.rttPs = 100, .distanceMm = -30}}, "success", {-0.03, 0.0, 100, nullptr}},
      {"neither", {{}}, "failed"},
      {"more than light makes in a second", {{.rttPs = INT64_MIN}}, "invalid-timestamp"},
      {"two bursts",
       {{.rttPs = 1'000, .burst = 0, .isFinal = false}, {.rttPs = 3'000, .burst = 1}},
       "success",
       {0.3, 0.0, 2'000, nullptr}},
      {"a burst between two that failed",
       {{.status = NL80211_PMSR_STATUS_TIMEOUT, .isFinal = false},
        {.rttPs = 3'000, .burst = 1, .isFinal = false},
        {.status = NL80211_PMSR_STATUS_TIMEOUT, .burst = 2}},
       "success",
       {0.45, 0.0, 3'000, nullptr}},
      {"silent", {}, "no-response"},
      {"refused by the radio", {{.status = NL80211_PMSR_STATUS_REFUSED}}, "failed"},
      {"timeout", {{.status = NL80211_PMSR_STATUS_TIMEOUT}}, "no-response"},
      {"reason 0", {failure(0)}, "failed"},
      {"reason 1", {failure(NL80211_PMSR_FTM_FAILURE_NO_RESPONSE)}, "no-response"},
      {"reason 2", {failure(NL80211_PMSR_FTM_FAILURE_REJECTED)}, "rejected"},
      {"reason 3", {failure(NL80211_PMSR_FTM_FAILURE_WRONG_CHANNEL)}, "wrong-channel"},
      {"reason 4", {failure(NL80211_PMSR_FTM_FAILURE_PEER_NOT_CAPABLE)}, "not-capable"},
      {"reason 5", {failure(NL80211_PMSR_FTM_FAILURE_INVALID_TIMESTAMP)}, "invalid-timestamp"},
      {"reason 6", {failure(NL80211_PMSR_FTM_FAILURE_PEER_BUSY)}, "busy"},
      {"reason 7", {failure(NL80211_PMSR_FTM_FAILURE_BAD_CHANGED_PARAMS)}, "changed-parameters"},
  };
  ASSERT_TRUE(mediator.Register());
  const Daemon daemon("nl80211:" + interface);
  std::vector<std::string> peers;
  for (size_t i = 0; i < std::size(cases); ++i) peers.push_back(PeerText(i) + "@5180");
  Process range = Range(daemon, peers);

  size_t measured = 0;
  while (measured < std::size(cases)) {
    const FtmMeasurement measurement = mediator.Next();
    ASSERT_EQ(measurement.peers.size(), std::min<size_t>(3, std::size(cases) - measured));
    Answers answers;
    for (const FtmPeer& peer : measurement.peers) {
      EXPECT_EQ(peer.address, PeerAddress(measured));
      for (const FtmAnswer& answer : cases[measured].answers) answers.push_back({peer.address, answer});
      ++measured;
    }
    ASSERT_TRUE(mediator.Report(measurement, answers));
  }
  Json results;
  EXPECT_EQ(Statuses(std::move(range), &results)[0], 0);
  ASSERT_EQ(results.size(), std::size(cases));
  for (size_t i = 0; i < std::size(cases); ++i) {
    SCOPED_TRACE(cases[i].name);
    const Json& result = results[i];
    EXPECT_EQ(result["bssid"], PeerText(i));
    EXPECT_EQ(result["status"], cases[i].status);
    EXPECT_EQ(Json({result["distance_m"], result["distance_std_m"], result["rtt_ps"], result["signal_dbm"]}),
              cases[i].values);
  }
}

TEST_F(Ranging, AsksTheRadioForWhatItAndThePeerCanDo) {
  const Daemon daemon("nl80211:" + interface);
  {
    const Hostapd hostapd({kAccessPoints[2], kAccessPoints[3]});
    ASSERT_TRUE(hostapd.Ready());
    const auto scanned = testing_process::Run(daemon.Kesctl({"scan", "--json", "--channel", "36", "--channel", "149"}));
    ASSERT_EQ(Json::parse(scanned.out)["measurements"].size(), 2u) << scanned.out;
  }
  ASSERT_TRUE(mediator.Register());
  using wifi::RangingBandwidth;
  using wifi::RangingPreamble;
  const std::string usual = " bursts 1 period 0 frames 8 retries 3 asap";
  const struct {
    std::string address;
    wifi::RangingParameters parameters;
    std::string asked;
  } cases[] = {
      {AddressOf("wlan3"), {}, "5180 in 5210 width 3 preamble 2" + usual},
      {AddressOf("wlan4"),
       {.burstExponent = 3, .burstPeriod = 7, .framesPerBurst = 31, .retries = 9},
       "5745 in 5775 width 3 preamble 4 bursts 2 period 7 frames 20 retries 9 asap"},
      {AddressOf("wlan4"),
       {.bandwidth = RangingBandwidth::k40MHz, .preamble = RangingPreamble::kVht},
       "5745 in 5755 width 2 preamble 2" + usual},
      {AddressOf("wlan3"), {.preamble = RangingPreamble::kHe}, "5180 in 5210 width 3 preamble 2" + usual},
      {PeerText(0), {.frequencyMhz = 2'437}, "2437 in 2437 width 1 preamble 1" + usual},
      {PeerText(1), {.frequencyMhz = 2'437, .centreFrequencyMhz = 2'427}, "2437 in 2427 width 2 preamble 1" + usual},
      {PeerText(2),
       {.frequencyMhz = 2'437, .preamble = RangingPreamble::kLegacy},
       "2437 in 2437 width 0 preamble 0" + usual},
      {PeerText(3),
       {.frequencyMhz = 5'260, .bandwidth = RangingBandwidth::k160MHz},
       "5260 in 5290 width 3 preamble 2" + usual},
      {PeerText(4),
       {.frequencyMhz = 5'955, .protocol = wifi::RangingProtocol::kNonTriggerBased},
       "5955 in 5955 width 1 preamble 4" + usual + " ntb"},
      {PeerText(5), {}, ""},  // nobody knows its channel
  };
  kes::RangingRequest request;
  request.timeoutMs = 30'000;
  for (const auto& [address, parameters, asked] : cases)
    request.nodes.push_back({*kesctl::ParseMac(address), {}, parameters});
  auto client = daemon.Connect();
  auto scan = client->StartRanging(request);
  ASSERT_TRUE(scan);
  for (size_t i = 0; i + 1 < std::size(cases);) {
    const FtmMeasurement measurement = mediator.Next();
    ASSERT_FALSE(measurement.peers.empty());
    Answers answers;
    for (const FtmPeer& peer : measurement.peers) {
      EXPECT_EQ(peer.asked, cases[i].asked) << cases[i].address;
      answers.push_back({peer.address, kNear});
      ++i;
    }
    ASSERT_TRUE(mediator.Report(measurement, answers));
  }
  const auto result = scan->Wait(testing_process::Soon(), -1);
  ASSERT_TRUE(result);
  ASSERT_EQ(result->measurements.size(), std::size(cases));
  for (size_t i = 0; i < std::size(cases); ++i) {
    EXPECT_EQ(result->measurements[i].ranging.status,
              cases[i].asked.empty() ? wifi::RangingStatus::kUnknownPeer : wifi::RangingStatus::kSuccess)
        << i;
  }
  EXPECT_EQ(result->measurements[1].ranging.burstsAsked, 4);
  EXPECT_EQ(result->measurements[1].values.frequencyMhz, 5'745u);
}

TEST_F(Ranging, MeasuresTheOthersWhereTheKernelRefusesOne) {
  ASSERT_TRUE(mediator.Register());
  Daemon daemon("nl80211:" + interface);
  Process range =
      Range(daemon, {PeerText(0) + "@5180", PeerText(1) + "@2484", PeerText(2) + "@5180", PeerText(3) + "@5180"});
  for (int peer = 0; peer < 3; ++peer) ASSERT_EQ(AnswerNext(kNear), 1u);
  EXPECT_EQ(Statuses(std::move(range)), Json({0, "success", "failed", "success", "success"}));
  const std::string log = daemon.Stop().out;
  EXPECT_NE(log.find("refuses to measure the distance to 3 peers: Invalid argument: "), std::string::npos) << log;
}

TEST_F(Ranging, SaysWhyTheRadioCannotMeasure) {
  const struct {
    std::string interface, preparation;
    int status;
  } cases[] = {
      {interface, "ip link set " + interface + " up", 3},  // without a mediator
      {interface, "ip link set " + interface + " down", 8},
      {"wlan0", "ip link set wlan0 up", 3},
      {"nowhere", "true", 7},
      {"lo", "true", 10},
  };
  for (const auto& [name, preparation, status] : cases) {
    ASSERT_EQ(Command("/bin/" + preparation).exitCode, 0);
    const Daemon daemon("nl80211:" + name);
    EXPECT_EQ(Statuses(Range(daemon, {PeerText(0) + "@5180"})), Json({status})) << name;
  }
}

TEST_F(Ranging, WaitsForItsTurnAndForOthers) {
  ASSERT_TRUE(mediator.Register());
  const Daemon daemon("nl80211:" + interface), other("nl80211:" + interface);
  const std::vector<std::string> peer = {PeerText(0) + "@5180"};
  for (const Daemon* second : {&daemon, &other}) {
    Process first = Range(daemon, peer);
    const FtmMeasurement measurement = mediator.Next();
    EXPECT_EQ(Statuses(Range(*second, peer, 1'000)), Json({2, "not-measured"}));
    Process waiting = Range(*second, peer);
    ASSERT_TRUE(mediator.Report(measurement, {{measurement.peers[0].address, kNear}}));
    EXPECT_EQ(Statuses(std::move(first)), Json({0, "success"}));
    ASSERT_EQ(AnswerNext(kNear), 1u);
    EXPECT_EQ(Statuses(std::move(waiting)), Json({0, "success"}));
  }
}

TEST_F(Ranging, AnswersInTimeWithWhatWasMeasuredAndGivesTheRestUp) {
  ASSERT_TRUE(mediator.Register());
  const Daemon daemon("nl80211:" + interface);
  const int before = Sockets();
  // Twice the same is measured twice, one after the other.
  Process range = Range(daemon, {PeerText(0) + "@5180", PeerText(1) + "@5180", PeerText(0) + "@5180"}, 3'000);
  ASSERT_EQ(AnswerNext(kNear), 2u);
  ASSERT_EQ(mediator.Next().peers.size(), 1u);
  EXPECT_GT(Sockets(), before);
  EXPECT_EQ(Statuses(std::move(range)), Json({2, "success", "success", "not-measured"}));
  EXPECT_EQ(Sockets(), before + 2);  // the radio's own two; that of the measurement is closed
}

TEST_F(Ranging, MeasuresAPeerForNoLongerThanItsOwnTime) {
  ASSERT_TRUE(mediator.Register());
  const Daemon daemon("nl80211:" + interface);
  auto client = daemon.Connect();
  auto scan = client->StartRanging(
      {.nodes = {{PeerAddress(0), {}, {.frequencyMhz = 5'180, .timeoutMs = 300}}}, .timeoutMs = 60'000});
  ASSERT_EQ(mediator.Next().peers.size(), 1u);
  const auto result = scan->Wait(testing_process::Soon(), -1);
  ASSERT_TRUE(result);
  EXPECT_EQ(result->status, wifi::ScanStatus::kOk);
  EXPECT_EQ(result->measurements.at(0).ranging.status, wifi::RangingStatus::kNotMeasured);
}

TEST_F(Ranging, EndsWithTheInterfaceThatItMeasuresWith) {
  ASSERT_TRUE(mediator.Register());
  const Daemon daemon("nl80211:" + interface);
  Process process = Range(daemon, {PeerText(0) + "@5180"}, 50'000);  // longer than anybody waits here
  ASSERT_EQ(mediator.Next().peers.size(), 1u);
  ASSERT_EQ(Command("/bin/ip link set " + interface + " down").exitCode, 0);
  EXPECT_EQ(Statuses(std::move(process)), Json({8}));
}

}  // namespace
}  // namespace kernel_test
