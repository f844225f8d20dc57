#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "client/kesctl_process.h"
#include "client/stand_in_daemon.h"

namespace kes {
namespace {

using Bytes = std::vector<uint8_t>;
using testing_process::Outcome;
using testing_process::Output;

constexpr char kInjection[] = "\x1b]0;evil\x07\xe2\x80\xae";

TestResult Neighbourhood() {
  TestResult result;
  result.Add({0x02, 0, 0x5E, 0x10, 0, 1}, "faint", 2412, -8849, {0, 5, 'f', 'a', 'i', 'n', 't', 1, 1, 0x82}, 0x0011);
  result.Add({0x02, 0, 0x5E, 0x10, 0, 2}, kInjection, 5955, wifi::kSignalUnknown, {0, 0, 255, 3, 35, 1, 2}, 0x0001);
  WifiScanMeasurement& hidden = result.Add({0x02, 0, 0x5E, 0x10, 0, 3}, "", 5180, -4000, {48, 2, 1, 0}, 0x0011);
  hidden.ssidValid = hidden.ssidCopied = 0;
  result.Add({0x02, 0, 0x5E, 0x10, 0, 5}, std::string_view("\0\0", 2), 2437, -9000, {0, 0});
  result.Add({0x02, 0, 0x5E, 0x10, 0, 4}, "\xec\x99\x80\xec\x9d\xb4", 2437, -6550, {0, 0}).beaconElementsLength = 9;
  return result;
}

std::vector<std::string> ScanAt(const StandInDaemon& daemon, std::vector<std::string> more = {}) {
  more.insert(more.begin(), {"--socket", daemon.SocketPath(), "scan"});
  return more;
}

TEST(KesctlScan, PrintsATableWithTheStrongestFirst) {
  StandInDaemon daemon(Answer::kResult, Neighbourhood());
  const Outcome outcome = RunKesctl(ScanAt(daemon));
  EXPECT_EQ(outcome.exitCode, 0);
  EXPECT_EQ(outcome.err, "");
  // clang-format off
  EXPECT_EQ(outcome.out,
            "BSSID              SSID                          MHz  CHAN  WIDTH  dBm  SECURITY         PHY  AGE\n"
            "02:00:5e:10:00:03  <hidden>                     5180    36     20  -40  WPA2-Enterprise  a    1.5 s\n"
            "02:00:5e:10:00:04  \xec\x99\x80\xec\x9d\xb4                         2437     6      ?  -66  ?                ?    1.5 s !\n"
            "02:00:5e:10:00:01  faint                        2412     1     20  -88  WEP              b    1.5 s\n"
            "02:00:5e:10:00:05  <hidden>                     2437     6      ?  -90  WEP              ?    1.5 s\n"
            "02:00:5e:10:00:02  \\x1b]0;evil\\x07\\xe2\\x80\\xae  5955     1      ?    -  open             HE   1.5 s\n"
            "5 access points, 1 of them delivered in part (!)\n");
  // clang-format on
}

TEST(KesctlScan, PrintsOneJsonObjectThatHoldsEverything) {
  TestResult result = Neighbourhood();
  result.header.opaque32 = 17;
  StandInDaemon daemon(Answer::kEarlyResult, result);
  const Outcome outcome = RunKesctl(ScanAt(daemon, {"--json"}));
  EXPECT_EQ(outcome.exitCode, 0);
  EXPECT_EQ(outcome.err, "");
  for (const char c : outcome.out) ASSERT_TRUE(c == '\n' || (c >= 0x20 && c < 0x7F)) << outcome.out;
  const nlohmann::json json = nlohmann::json::parse(outcome.out, nullptr, false);
  const nlohmann::json expected = {{"bssid", "02:00:5e:10:00:01"},
                                   {"ssid", "faint"},
                                   {"ssid_hex", "6661696e74"},
                                   {"ssid_valid", true},
                                   {"frequency_mhz", 2412},
                                   {"channel", 1},
                                   {"signal_dbm", -88.49},
                                   {"age_ms", 1500},
                                   {"beacon_interval_tu", 100},
                                   {"capability", 17},
                                   {"security", "WEP"},
                                   {"phy", "b"},
                                   {"elements", {{{"id", 0}, {"hex", "6661696e74"}}, {{"id", 1}, {"hex", "82"}}}}};
  ASSERT_EQ(json.size(), 3u) << outcome.out;
  EXPECT_EQ(json["scan_status"], 0);
  EXPECT_EQ(json["source"], "17");  // of a library that knows more kinds
  ASSERT_EQ(json["measurements"].size(), 5u);
  EXPECT_EQ(json["measurements"][0], expected);
  EXPECT_EQ(json["measurements"][1]["ssid"], kInjection);
  EXPECT_EQ(json["measurements"][1]["signal_dbm"], nullptr);
  EXPECT_EQ(json["measurements"][1]["elements"][1], nlohmann::json({{"id", 255}, {"hex", "230102"}}));
  EXPECT_EQ(json["measurements"][2]["ssid"], nullptr);
  EXPECT_EQ(json["measurements"][2]["ssid_valid"], false);
  EXPECT_EQ(json["measurements"][4]["ssid"], "\xec\x99\x80\xec\x9d\xb4");
  EXPECT_EQ(json["measurements"][4]["incomplete"], true);
  EXPECT_EQ(json["measurements"][3]["ssid"], nullptr);
  EXPECT_EQ(json["measurements"][3]["ssid_hex"], "0000");
}

TEST(KesctlScan, ListsElementsOnRequest) {
  StandInDaemon daemon(Answer::kResult, Neighbourhood());
  const Outcome outcome = RunKesctl(ScanAt(daemon, {"--elements"}));
  EXPECT_EQ(outcome.exitCode, 0);
  EXPECT_TRUE(Has(outcome.out, "\n    SSID (0), 5 octets: 6661696e74\n    Supported Rates")) << outcome.out;
  EXPECT_TRUE(Has(outcome.out, "\n    SSID (0), 0 octets\n    HE Capabilities (255.35), 3 octets: 230102\n"));
}

TEST(KesctlScan, ColoursATerminalAndShowsProgressThereButObeysItsUser) {
  const auto onTerminal = [](const std::vector<std::string>& environment) {
    StandInDaemon daemon(Answer::kResult, Neighbourhood());
    return Kesctl(ScanAt(daemon), Output::kTerminal, environment).Finish().out;
  };
  const std::string coloured = onTerminal({});
  EXPECT_TRUE(Has(coloured, "\033[1mBSSID")) << coloured;
  EXPECT_TRUE(Has(coloured, "\033[32m-40\033[0m"));
  EXPECT_TRUE(Has(coloured, "Scanning"));
  EXPECT_FALSE(Has(coloured, "\033]0;"));
  for (const char* setting : {"NO_COLOR=1", "TERM=dumb"}) {
    const std::string plain = onTerminal({setting});
    EXPECT_TRUE(Has(plain, "BSSID")) << setting;
    EXPECT_FALSE(Has(plain, "\033[1m")) << setting;
    EXPECT_FALSE(Has(plain, "\033[32m")) << setting;
  }
}

TEST(KesctlScan, SendsWhatItsOptionsSay) {
  StandInDaemon daemon(Answer::kResult, TestResult{});
  const Outcome outcome = RunKesctl(
      ScanAt(daemon, {"--mode", "fallback", "--channel", "14", "--channel=2484", "--ssid", "a", "--ssid", "-b",
                      "--bssid", "02:00:5E:00:00:FF", "--passive", "--max-age", "7", "--timeout", "5000"}));
  EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
  EXPECT_EQ(outcome.out, "0 access points\n");
  ASSERT_TRUE(daemon.AwaitRequest());
  const std::vector<Bytes> sent = daemon.RequestBuffers();
  EXPECT_EQ(sent[0],
            Bytes({0x88, 0x13, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 3, 0, 0, 0, 7, 0, 0, 0, 0, 0, 0, 0, 2, 0, 0, 0, 0, 0}));
  EXPECT_EQ(sent[1], Bytes({14, 0, 0, 0, 0xB4, 0x09, 0, 0}));
  ASSERT_EQ(sent[2].size(), 72u);
  EXPECT_EQ(sent[2][40], '-');
  EXPECT_EQ(sent[3], Bytes({0xFF, 0, 0, 0, 0x5E, 0, 2, 0}));
}

TEST(KesctlScan, SendsTheNumbersOfItsWords) {
  const struct {
    const char* mode;
    const char* band;
    uint8_t sentMode, sentBand;
  } cases[] = {{"fresh", "2.4", 0, 0}, {"cache", "5", 2, 1}, {"fallback", "all", 3, 2}};
  for (const auto& c : cases) {
    StandInDaemon daemon(Answer::kResult, TestResult{});
    EXPECT_EQ(RunKesctl(ScanAt(daemon, {"--mode", c.mode, "--band", c.band})).exitCode, 0) << c.mode;
    const Bytes sent = daemon.RequestBuffers().at(0);
    EXPECT_EQ(sent.at(offsetof(DiscoveryScanParams, mode)), c.sentMode);
    EXPECT_EQ(sent.at(offsetof(DiscoveryScanParams, band)), c.sentBand);
  }
}

// With what is said of each on standard error.
const std::pair<std::vector<std::string>, const char*> kUsageCases[] = {
    {{}, "subcommand is required"},
    {{"scam"}, "scam"},
    {{"--socket", "", "scan"}, "--socket: a socket path"},
    {{"scan", "--socket", std::string(108, 'p')}, "--socket: a socket path has 1 to 107 bytes, not 108"},
    {{"scan", "extra"}, "extra"},
    {{"scan", "--mode", "quick"}, "--mode: 'quick'"},
    {{"scan", "--band", "6"}, "--band: '6'"},
    {{"scan", "--channel", "6", "--channel", "178"}, "--channel: '178'"},
    {{"scan", "--channel", "2438"}, "--channel: '2438'"},
    {{"scan", "--channel"}, "--channel"},
    {{"scan", "--channel", "6", "7"}, "7"},
    {{"scan", "--ssid", ""}, "--ssid"},
    {{"scan", "--ssid", std::string(33, 's')}, "--ssid: an SSID has 1 to 32 bytes, not 33"},
    {{"scan", "--bssid", "02:00:5e:10:00"}, "--bssid: '02:00:5e:10:00'"},
    {{"scan", "--timeout", "7x"}, "--timeout: '7x'"},
    {{"scan", "--timeout", "0"}, "--timeout: '0'"},
    {{"scan", "--timeout", "4294967297"}, "--timeout: '4294967297'"},
    {{"scan", "--max-age", "86400001"}, "--max-age: '86400001'"},
    {{"scan", "--pcap", "-"}, "--pcap: '-' is not the name of a file"},
    {{"watch", "--interval", "499"}, "--interval: '499'"},
    {{"watch", "--count", "0"}, "--count: '0'"},
    {{"watch", "--mode", "cache"}, "--mode"},
    {{"range"}, "PEER"},
    {{"range", "02:00:5e:10:00:01", "02:00:5e:10:00:0g"}, "PEER: '02:00:5e:10:00:0g'"},
    {{"range", "02:00:5e:10:00:01@5181"}, "PEER: '5181'"},
    {{"range", "02:00:5e:10:00:01", "--interval", "100"}, "--interval requires --periodic"},
    {{"range", "02:00:5e:10:00:01", "--count", "2"}, "--count requires --periodic"},
    {{"range", "02:00:5e:10:00:01", "--periodic", "--interval", "99"}, "--interval: '99'"},
    {{"range", "02:00:5e:10:00:01", "--periodic", "--interval", "3600001"}, "--interval: '3600001'"},
    {{"range", "02:00:5e:10:00:01", "--periodic", "--count", "0"}, "--count: '0'"},
    {{"range", "02:00:5e:10:00:01", "--periodic", "--count", "1001"}, "--count: '1001'"},
    {{"range", "02:00:5e:10:00:01", "--repeat", "0"}, "--repeat: '0'"},
    {{"range", "02:00:5e:10:00:01", "--repeat", "1000001"}, "--repeat: '1000001'"},
    {{"range", "02:00:5e:10:00:01", "--elements"}, "--elements"},
};

TEST(Kesctl, RefusesAWrongCommandLineAndNamesWhatIsWrong) {
  for (const auto& [arguments, said] : kUsageCases) {
    const Outcome outcome = RunKesctl(arguments);
    SCOPED_TRACE(testing::PrintToString(arguments));
    EXPECT_EQ(outcome.exitCode, 2);
    EXPECT_EQ(outcome.out, "");
    EXPECT_TRUE(Has(outcome.err, said)) << outcome.err;
    EXPECT_TRUE(Has(outcome.err, "--help")) << outcome.err;
  }
}

TEST(Kesctl, HelpsOnStandardOutput) {
  const std::pair<std::vector<std::string>, std::vector<const char*>> cases[] = {
      {{"--help"}, {"Exit codes:", "130", "Examples:", "kesctl scan --band 5", "kesctl range --repeat 10"}},
      {{"scan", "--help"}, {"Exit codes:", "kesctl scan --band 5"}},
      {{"range", "--help"}, {"Exit codes:", "kesctl range --repeat 10", "delivers one result"}},
      {{"--version"}, {"kesctl 0."}},
  };
  for (const auto& [arguments, parts] : cases) {
    const Outcome outcome = RunKesctl(arguments);
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_EQ(outcome.err, "");
    for (const char* part : parts) EXPECT_TRUE(Has(outcome.out, part)) << part;
  }
}

TEST(KesctlScan, ShowsWhatABadScanFoundAndSaysSoInItsExitCode) {
  const struct {
    uint32_t status;
    int exitCode;
    const char* name;
  } cases[] = {{1, 1, "failed"},       {2, 4, "timed out"},       {3, 1, "unsupported"}, {4, 1, "unavailable"},
               {5, 1, "bad response"}, {6, 1, "invalid request"}, {77, 1, "unknown"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    TestResult result = Neighbourhood();
    result.header.scanStatus = c.status;
    StandInDaemon daemon(Answer::kResult, result);
    const Outcome outcome = RunKesctl(ScanAt(daemon));
    EXPECT_EQ(outcome.exitCode, c.exitCode);
    EXPECT_EQ(Lines(outcome.out).front(), "scan status " + std::to_string(c.status) + ": " + c.name);
    EXPECT_TRUE(Lines(outcome.out).back().starts_with("5 access points"));
    EXPECT_TRUE(Has(outcome.err, c.name)) << outcome.err;
  }
}

TEST(KesctlScan, TellsItsFailuresApart) {
  const struct {
    Answer answer;
    std::vector<std::string> options;
    int exitCode;
    const char* said;
  } cases[] = {
      {Answer::kRejected, {}, 1, "kesctl: refused: "},
      {Answer::kNoService, {}, 3, "kesctl: cannot talk to the daemon at "},
      {Answer::kHangUp, {}, 3, "kesctl: lost the daemon at "},
      {Answer::kNothing, {"--timeout", "1"}, 4, "kesctl: timed out: "},
  };
  for (const auto& c : cases) {
    StandInDaemon daemon(c.answer);
    const Outcome outcome = RunKesctl(ScanAt(daemon, c.options));
    EXPECT_EQ(outcome.exitCode, c.exitCode) << c.said;
    EXPECT_EQ(outcome.out, "");
    EXPECT_TRUE(Has(outcome.err, c.said)) << outcome.err;
  }
  const Outcome nobody = RunKesctl({"scan", "--socket", "/nonexistent/socket"});
  EXPECT_EQ(nobody.exitCode, 3);
  EXPECT_TRUE(Has(nobody.err, "no daemon answers at /nonexistent/socket: No such file or directory.")) << nobody.err;
  EXPECT_TRUE(Has(nobody.err, "Is kesd running? Start it")) << nobody.err;
}

TEST(KesctlScan, SaysThatItsOutputWentNowhere) {
  for (const Output output : {Output::kFull, Output::kClosedPipe}) {
    for (const char* subcommand : {"scan", "watch"}) {
      StandInDaemon daemon(Answer::kResult, Neighbourhood());
      const Outcome outcome = Kesctl({subcommand, "--socket", daemon.SocketPath()}, output).Finish();
      EXPECT_EQ(outcome.exitCode, 1);
      EXPECT_TRUE(Has(outcome.err, "cannot write the result")) << outcome.err;
    }
  }
}

}  // namespace
}  // namespace kes
