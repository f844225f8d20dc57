// Discovery with a radio: what kesctl shows, beside what hostapd was told and what iw reads.
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <memory>
#include <iostream>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
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
  const Json result = Result({"--timeout", "20000"});
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
      {{"--band", "2.4"}, {"Linden open", "Linden WPA2", ""}},
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

TEST_F(Scan, HasTheElementsThatTheKernelHas) {
  const Json result = Result({"--band", "2.4"});
  // Sections of "BSS ADDRESS(on wlan0)", and in each of them "\tSSID: ..." and the others decoded, so elements are
  // compared by the octets that iw prints of those it is told not to decode.
  const Outcome dump = Command("/usr/sbin/iw --debug dev wlan0 scan dump");
  std::cout << dump.err.substr(0,4000) << result.dump() << "\n";
}

}  // namespace
}  // namespace kernel_test
