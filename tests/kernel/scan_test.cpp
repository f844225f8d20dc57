// Discovery with a radio: what kesctl shows, beside what hostapd was told and what iw reads.
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/daemon.h"
#include "tests/kernel/access_points.h"

namespace kernel_test {
namespace {

using testing_process::Daemon;
using testing_process::Outcome;
using testing_process::Output;
using testing_process::Process;
using Json = nlohmann::json;
using Names = std::set<std::string>;

class Scan : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    hostapd = std::make_unique<Hostapd>(kAccessPoints);
    ASSERT_TRUE(hostapd->Ready());
    ASSERT_EQ(Command("/bin/ip link set wlan0 up").exitCode, 0);
  }
  static void TearDownTestSuite() { hostapd.reset(); }

  static Json Parsed(const Outcome& outcome) {
    const Json json = Json::parse(outcome.out, nullptr, false);
    EXPECT_FALSE(json.is_discarded()) << outcome.out << outcome.err;
    return json;
  }

  Json Result(std::vector<std::string> options) const {
    options.insert(options.begin(), {"scan", "--json"});
    return Parsed(testing_process::Run(daemon.Kesctl(options)));
  }

  // The SSIDs found, hidden ones as "".
  static Names Found(const Json& result) {
    Names found;
    for (const Json& measurement : result["measurements"])
      found.insert(measurement["ssid"].is_null() ? "" : measurement["ssid"].get<std::string>());
    EXPECT_EQ(found.size(), result["measurements"].size()) << "one of them twice: " << result;
    return found;
  }

  static int Status(const Json& result) { return result["scan_status"].get<int>(); }

  static std::unique_ptr<Hostapd> hostapd;
  Daemon daemon{"nl80211:wlan0"};
};

std::unique_ptr<Hostapd> Scan::hostapd;

TEST_F(Scan, FindsExactlyTheAccessPointsAsTheyAreConfigured) {
  const Json result = Result({"--passive", "--timeout", "20000"});  // a hidden one answers no wildcard
  EXPECT_EQ(Status(result), 0);
  ASSERT_EQ(result["measurements"].size(), kAccessPoints.size()) << result;
  for (const AccessPoint& accessPoint : kAccessPoints) {
    SCOPED_TRACE(accessPoint.ssid);
    const Json* found = nullptr;
    for (const Json& measurement : result["measurements"]) {
      std::string bssid = measurement["bssid"];
      if (bssid == AddressOf(accessPoint.interface)) found = &measurement;
    }
    if (found == nullptr) {
      ADD_FAILURE() << "not found";
      continue;
    }
    EXPECT_EQ((*found)["ssid"], accessPoint.hidden ? Json() : Json(accessPoint.ssid));
    EXPECT_EQ((*found)["frequency_mhz"], accessPoint.frequencyMhz);
    EXPECT_EQ((*found)["security"], accessPoint.security);
    EXPECT_EQ((*found)["phy"], accessPoint.phy);
    EXPECT_EQ((*found)["beacon_interval_tu"], 100);
    EXPECT_LT((*found)["signal_dbm"], 0);
    EXPECT_LT((*found)["age_ms"], 20'000);
  }
}

TEST_F(Scan, FiltersBySsidBandChannelAndAddress) {
  const std::string address = AddressOf("wlan2");
  const struct {
    std::vector<std::string> options;
    Names expected;
  } cases[] = {
      {{"--band", "2.4", "--passive"}, {"Linden open", "Linden WPA2", ""}},
      {{"--band", "5"}, {"Linden WPA3", "Linden OWE"}},
      {{"--channel", "36", "--channel", "1"}, {"Linden WPA3", "Linden open"}},
      {{"--ssid", "Linden WPA2", "--band", "2.4"}, {"Linden WPA2"}},
      {{"--ssid", "Linden hidden", "--band", "2.4"}, {"Linden hidden"}},
      {{"--ssid", "nobody", "--band", "2.4"}, {}},
      {{"--bssid", address, "--band", "2.4"}, {"Linden WPA2"}},
      {{"--passive", "--channel", "6"}, {"Linden WPA2"}},
      // More names than the radio probes for at once.
      {{"--channel", "11", "--ssid", "a", "--ssid", "b", "--ssid", "c", "--ssid", "d", "--ssid", "e", "--ssid",
        "Linden hidden"},
       {"Linden hidden"}},
  };
  for (const auto& [options, expected] : cases) {
    const Json result = Result(options);
    EXPECT_EQ(Status(result), 0) << Json(options);
    EXPECT_EQ(Found(result), expected) << Json(options);
  }
}

TEST_F(Scan, AnswersFromTheCacheWithoutTheRadio) {
  EXPECT_EQ(Found(Result({"--mode", "cache"})), Names{});
  EXPECT_EQ(Found(Result({"--mode", "fallback", "--channel", "1"})), Names{"Linden open"});
  ASSERT_EQ(Command("/bin/ip link set wlan0 down").exitCode, 0);
  EXPECT_EQ(Found(Result({"--mode", "fallback", "--channel", "1"})), Names{"Linden open"});
  EXPECT_EQ(Found(Result({"--mode", "cache"})), Names{"Linden open"});
  ASSERT_EQ(Command("/bin/ip link set wlan0 up").exitCode, 0);
}

// The octets of all messages that iw received, as libnl shows them.
std::string ReceivedOctets(const std::string& shown) {
  std::string octets;
  std::istringstream lines(shown);
  for (std::string line; std::getline(lines, line);) {
    if (line.find("[PAYLOAD]") != std::string::npos) octets += '|';  // no match across messages
    if (line.rfind("    ", 0) != 0) continue;
    std::istringstream row(line.substr(0, 4 + 16 * 3));
    for (std::string octet; row >> octet;) {
      if (octet.size() == 2) octets += octet;
    }
  }
  return octets;
}

std::string HexOctet(size_t value) {
  constexpr char kDigits[] = "0123456789abcdef";
  return {kDigits[value >> 4 & 15], kDigits[value & 15]};
}

TEST_F(Scan, HasTheElementsThatTheKernelHasOctetForOctet) {
  const Json result = Result({"--timeout", "20000"});
  const std::string received = ReceivedOctets(Command("/usr/sbin/iw --debug dev wlan0 scan dump").err);
  ASSERT_GE(result["measurements"].size(), 4U);
  for (const Json& measurement : result["measurements"]) {
    std::string elements;
    for (const Json& element : measurement["elements"]) {
      const std::string payload = element["hex"];
      elements += HexOctet(element["id"].get<size_t>()) + HexOctet(payload.size() / 2) + payload;
    }
    // As the attribute NL80211_BSS_INFORMATION_ELEMENTS (6) of the same length.
    const size_t length = 4 + elements.size() / 2;
    const std::string attribute = HexOctet(length) + HexOctet(length >> 8) + "0600" + elements;
    EXPECT_NE(received.find(attribute), std::string::npos) << measurement;
  }
}

// What iw hears of the radio's scans.
class Events {
 public:
  Events() {
    while (process.IsRunning() && !Listens()) std::this_thread::yield();
  }
  // The next line that tells of a scan: it started, finished or was aborted.
  std::string Next() {
    do latest = process.ReadLine();
    while (!latest.empty() && latest.find("scan ") == std::string::npos);
    for (const char* what : {"scan started", "scan finished", "scan aborted"}) {
      if (latest.find(what) != std::string::npos) return what;
    }
    return latest;
  }
  // The whole of what Next gave: an end has the frequencies too.
  const std::string& Line() const { return latest; }
  void ExpectScan() {
    EXPECT_EQ(Next(), "scan started");
    EXPECT_EQ(Next(), "scan finished");
  }

 private:
  // Whether it has joined groups with the socket whose port libnl made of its process ID.
  bool Listens() const {
    constexpr unsigned kGeneric = 16, kProcessBits = 0x3FFFFF;
    std::ifstream sockets("/proc/net/netlink");
    std::string line, address, groups;
    while (std::getline(sockets, line)) {
      unsigned family = 0, port = 0;
      std::istringstream fields(line);
      if (!(fields >> address >> family >> port >> groups)) continue;
      const bool its = family == kGeneric && (port & kProcessBits) == static_cast<unsigned>(process.Pid());
      if (its && groups.find_first_not_of('0') != std::string::npos) return true;
    }
    return false;
  }

  Process process{{"/usr/sbin/iw", "event"}, Output::kMerged};
  std::string latest;
};

TEST_F(Scan, OneScanServesRequestsThatItCovers) {
  Events events;
  Process wide(daemon.Kesctl({"scan", "--json", "--band", "5"}));
  EXPECT_EQ(events.Next(), "scan started");
  EXPECT_EQ(Found(Result({"--channel", "36"})), Names{"Linden WPA3"});
  EXPECT_EQ(Found(Parsed(wide.Finish())), (Names{"Linden WPA3", "Linden OWE"}));
  EXPECT_EQ(events.Next(), "scan finished");
  EXPECT_NE(events.Line().find(" 5180 5200 "), std::string::npos) << events.Line();

  // Two that wait for a longer one make one scan together, and that is the next.
  Process running(daemon.Kesctl({"scan", "--json", "--passive", "--band", "5"}));
  EXPECT_EQ(events.Next(), "scan started");
  Process second(daemon.Kesctl({"scan", "--json", "--channel", "1"}));
  Process third(daemon.Kesctl({"scan", "--json", "--channel", "6"}));
  EXPECT_EQ(Found(Parsed(second.Finish())), Names{"Linden open"});
  EXPECT_EQ(Found(Parsed(third.Finish())), Names{"Linden WPA2"});
  EXPECT_EQ(Found(Parsed(running.Finish())), (Names{"Linden WPA3", "Linden OWE"}));
  EXPECT_EQ(events.Next(), "scan finished");
  EXPECT_NE(events.Line().find(" 5180 5200 "), std::string::npos) << events.Line();
  events.ExpectScan();
  EXPECT_NE(events.Line().find(" 2412 2437,"), std::string::npos) << events.Line();
}

TEST_F(Scan, WaitsForTheEndOfSomebodyElsesScan) {
  Events events;
  Process others({"/usr/sbin/iw", "dev", "wlan0", "scan", "freq", "5180", "5260", "5280", "passive"});
  EXPECT_EQ(events.Next(), "scan started");
  const Json result = Result({"--channel", "1"});
  EXPECT_EQ(Status(result), 0);
  EXPECT_EQ(Found(result), Names{"Linden open"});
  EXPECT_EQ(events.Next(), "scan finished");
  events.ExpectScan();
}

TEST_F(Scan, EndsItsScanWithTheDaemonAndGoesOnAfterAnAbort) {
  Events events;
  Process request(daemon.Kesctl({"scan", "--passive", "--band", "5"}));
  EXPECT_EQ(events.Next(), "scan started");
  request.Signal(SIGINT);
  EXPECT_EQ(request.Finish().exitCode, 130);
  EXPECT_EQ(Found(Result({"--passive", "--channel", "6"})), Names{"Linden WPA2"});
  EXPECT_EQ(events.Next(), "scan finished");
  events.ExpectScan();

  // Somebody else aborts: it begins anew.
  Process disturbed(daemon.Kesctl({"scan", "--json", "--passive", "--band", "5"}));
  EXPECT_EQ(events.Next(), "scan started");
  EXPECT_EQ(Command("/usr/sbin/iw dev wlan0 scan abort").exitCode, 0);
  EXPECT_EQ(events.Next(), "scan aborted");
  events.ExpectScan();
  EXPECT_EQ(Found(Parsed(disturbed.Finish())), (Names{"Linden WPA3", "Linden OWE"}));

  Process unfinished(daemon.Kesctl({"scan", "--passive", "--band", "5"}));
  EXPECT_EQ(events.Next(), "scan started");
  EXPECT_EQ(daemon.Stop().exitCode, 0);
  EXPECT_EQ(events.Next(), "scan aborted");
  EXPECT_EQ(unfinished.Finish().exitCode, 3);
}

TEST_F(Scan, NoLongerHasAnAccessPointThatWentAway) {
  const AccessPoint guest = {"wlan6", "Linden guest", 2412, "hw_mode=g\nchannel=1\n", "open", "g"};
  auto access = std::make_unique<Hostapd>(std::vector{guest});
  ASSERT_TRUE(access->Ready());
  EXPECT_EQ(Found(Result({"--channel", "1"})), (Names{"Linden open", "Linden guest"}));
  access.reset();
  EXPECT_EQ(Found(Result({"--channel", "1"})), Names{"Linden open"});
}

TEST_F(Scan, SaysWhyTheRadioCannotServeAndServesAgain) {
  const auto expect = [&](int status, const char* what) {
    SCOPED_TRACE(what);
    const Outcome outcome = testing_process::Run(daemon.Kesctl({"scan", "--channel", "1", "--timeout", "5000"}));
    EXPECT_EQ(outcome.exitCode, status == 0 ? 0 : 1) << outcome.err;
    if (status == 0) return;
    EXPECT_NE(outcome.err.find("status " + std::to_string(status)), std::string::npos) << outcome.err;
  };
  ASSERT_EQ(Command("/bin/ip link set wlan0 down").exitCode, 0);
  expect(8, "down");
  ASSERT_EQ(Command("/usr/sbin/rfkill block wifi").exitCode, 0);
  expect(9, "blocked");
  ASSERT_EQ(Command("/usr/sbin/rfkill unblock wifi").exitCode, 0);
  ASSERT_EQ(Command("/usr/sbin/iw dev wlan0 del").exitCode, 0);
  expect(7, "gone");
  ASSERT_EQ(Command("/usr/sbin/iw phy phy0 interface add wlan0 type monitor").exitCode, 0);
  ASSERT_EQ(Command("/bin/ip link set wlan0 up").exitCode, 0);
  expect(10, "a monitor");
  ASSERT_EQ(Command("/usr/sbin/iw dev wlan0 del").exitCode, 0);
  ASSERT_EQ(Command("/usr/sbin/iw phy phy0 interface add wlan0 type managed").exitCode, 0);
  ASSERT_EQ(Command("/bin/ip link set wlan0 up").exitCode, 0);
  expect(0, "there again");

  // In the middle of a scan.
  Events events;
  Process request(daemon.Kesctl({"scan", "--passive", "--band", "5"}));
  EXPECT_EQ(events.Next(), "scan started");
  ASSERT_EQ(Command("/bin/ip link set wlan0 down").exitCode, 0);
  EXPECT_NE(request.Finish().err.find("status 8"), std::string::npos);
  ASSERT_EQ(Command("/bin/ip link set wlan0 up").exitCode, 0);
  expect(0, "up again");
}

TEST(ScanWithout, ARadioOrTheRightToUseItIsRefused) {
  EXPECT_NE(testing_process::Run(Daemon("nl80211:lo").Kesctl({"scan"})).err.find("status 10"), std::string::npos);
  const Daemon unprivileged("nl80211:wlan0", {},
                            {"/usr/bin/setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"});
  EXPECT_NE(testing_process::Run(unprivileged.Kesctl({"scan"})).err.find("status 11"), std::string::npos);
  EXPECT_EQ(testing_process::Run(unprivileged.Kesctl({"scan", "--mode", "cache"})).exitCode, 0);
  // The one capability is enough.
  const Daemon enabled(
      "nl80211:wlan0", {},
      {"/usr/bin/setpriv", "--reuid=65534", "--regid=65534", "--clear-groups", "--bounding-set=-all,+net_admin",
       "--inh-caps=-all,+net_admin", "--ambient-caps=-all,+net_admin"});
  const Outcome outcome = testing_process::Run(enabled.Kesctl({"scan", "--channel", "1"}));
  EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
}

}  // namespace
}  // namespace kernel_test
