#include <gtest/gtest.h>
#include <signal.h>

#include <nlohmann/json.hpp>

#include "client/client.h"
#include "client/kesctl_process.h"
#include "client/stand_in_daemon.h"

namespace kes {
namespace {

using testing_process::Outcome;
using testing_process::Output;
using testing_process::Process;

constexpr char kEnter[] = "\033[?1049h\033[?25l";
constexpr char kLeave[] = "\033[?25h\033[?1049l";
constexpr char kBars[] = "▇▇";

Images OneNamed(std::string_view ssid, uint32_t status = 0) {
  TestResult result;
  result.header.scanStatus = status;
  result.Add({2, 0, 0, 0, 0, 1}, ssid, 2412, -5000, {0, 0});
  return ImagesOf(result);
}

std::vector<std::string> WatchAt(const StandInDaemon& daemon, const std::vector<std::string>& more) {
  std::vector<std::string> arguments{"--socket", daemon.SocketPath(), "watch", "--interval", "500"};
  arguments.insert(arguments.end(), more.begin(), more.end());
  return arguments;
}

TEST(KesctlWatch, WritesAJsonObjectAScanIntoAPipeAtItsPace) {
  StandInDaemon daemon(Answer::kResult, std::vector(3, OneNamed("a")));
  Process kesctl = Kesctl(WatchAt(daemon, {"--channel", "11"}));
  for (int i = 0; i < 3; ++i) {  // each comes while it goes on
    const nlohmann::json json = nlohmann::json::parse(kesctl.ReadLine(), nullptr, false);
    ASSERT_TRUE(json.is_object());
    EXPECT_EQ(json["measurements"][0]["ssid"], "a");
  }
  ASSERT_TRUE(daemon.AwaitRequest(4));
  kesctl.Signal(SIGINT);
  const Outcome outcome = kesctl.Finish();
  EXPECT_EQ(outcome.exitCode, 130);
  EXPECT_EQ(outcome.out + outcome.err, "");
  EXPECT_TRUE(daemon.AwaitHandleReleased(4));
  const std::vector<StandInDaemon::Request> requests = daemon.Requests();
  EXPECT_EQ(requests[3].buffers[1], (std::vector<uint8_t>{11, 0, 0, 0}));
  EXPECT_GT(requests[3].at - requests[0].at, std::chrono::milliseconds(3 * 500 - 100));
}

TEST(KesctlWatch, EndsAfterItsCountAndSurvivesALostDaemonAndBadScans) {
  StandInDaemon daemon(Answer::kResult, {OneNamed("a"), {}, OneNamed("b", 2), OneNamed("c", 8), OneNamed("d")});
  const Outcome outcome = RunKesctl(WatchAt(daemon, {"--count", "4"}));
  EXPECT_EQ(outcome.exitCode, 4);
  const std::vector<std::string> said = Lines(outcome.err);
  ASSERT_EQ(said.size(), 3u) << outcome.err;
  EXPECT_TRUE(Has(said[0], "lost the daemon") && Has(said[0], "trying again"));
  EXPECT_TRUE(Has(said[1], "status 2 (timed out)") && Has(said[2], "status 8"));
  const std::vector<std::string> lines = Lines(outcome.out);
  ASSERT_EQ(lines.size(), 4u);
  for (std::size_t i = 0; i < 4; ++i) EXPECT_TRUE(Has(lines[i], "\"ssid\":\"" + std::string(1, "abcd"[i])));
}

TEST(KesctlWatch, DrivesNoTerminalThatDoesNotWantIt) {
  const auto with = [](const char* setting) {
    StandInDaemon daemon(Answer::kResult, std::vector(2, OneNamed("a")));
    return Kesctl(WatchAt(daemon, {"--count", "2"}), Output::kTerminal, {setting}).Finish().out;
  };
  const std::string dumb = with("TERM=dumb"), colourless = with("NO_COLOR=1");
  EXPECT_FALSE(Has(dumb, "\033")) << dumb;
  EXPECT_EQ(Lines(dumb).size(), 8u) << dumb;  // two tables
  EXPECT_TRUE(Has(colourless, kEnter)) << colourless;
  EXPECT_FALSE(Has(colourless, "\033[1m") || Has(colourless, "\033[32m")) << colourless;
}

// kesctl on a terminal, as the job of a shell that compares the terminal's modes before and after.
Process OnTerminal(const std::vector<std::string>& arguments, const std::string& afterwards = "") {
  constexpr char kScript[] = R"sh(before=$(stty -g)
compare() { echo "code $?"; if test "$(stty -g)" = "$before"; then echo same; else stty -a; fi; }
sh -c 'echo "pid $$"; exec "$0" "$@"' "$0" "$@"
compare
)sh";
  std::vector<std::string> command{"/bin/sh", "-m", "-c", kScript + afterwards};
  const std::vector<std::string> kesctl = testing_process::Emulated({KESD_BINARY_DIR "/bin/kesctl"});
  command.insert(command.end(), kesctl.begin(), kesctl.end());
  command.insert(command.end(), arguments.begin(), arguments.end());
  return Process(command, Output::kTerminal, {"TERM=xterm", "LC_ALL=C.UTF-8", "NO_COLOR"});
}

TEST(KesctlWatch, LeavesTheTerminalAsItWasOnEveryWayOut) {
  const std::vector<Images> two(2, OneNamed("a"));
  const struct {
    const char* name;
    std::vector<Images> results;
    const char* typed;
    int signal;
    int exitCode;
    const char* after = "02:00:00:00:00:01";  // what is on the screen in the end, as it was found
  } ways[] = {
      {"q", two, "q", 0, 0},
      {"Ctrl-C", two, "\x03", 0, 130},
      {"Ctrl-backslash", two, "\x1c", 0, 131},
      {"SIGTERM", two, "", SIGTERM, 143},
      {"SIGHUP", two, "", SIGHUP, 129},
      {"held by Ctrl-S", two, "\x13q", 0, 0},
      {"the count", std::vector(3, OneNamed("a")), "", 0, 0},
      {"no daemon from the start", {{}}, "", 0, 3, "lost the daemon"},
  };
  for (const auto& way : ways) {
    SCOPED_TRACE(way.name);
    StandInDaemon daemon(Answer::kResult, way.results);
    Process shell = OnTerminal(WatchAt(daemon, {"--count", "3"}));
    (void)shell.ReadUntil("pid ");
    const pid_t kesctl = std::stoi(shell.ReadLine());
    if (way.exitCode != 3) {
      const std::string screen = shell.ReadUntil(kBars);
      EXPECT_TRUE(Has(screen, kEnter)) << screen;
      EXPECT_FALSE(Has(screen, "\n")) << screen;  // nothing that could scroll
    }
    shell.Type(way.typed);
    if (way.signal != 0) kill(kesctl, way.signal);
    const std::string out = shell.Finish().out;
    const std::size_t left = out.find(kLeave);
    ASSERT_NE(left, std::string::npos) << out;
    const std::string after = out.substr(left);
    EXPECT_EQ(out.find("\033[?1049", left + sizeof kLeave), std::string::npos) << out;
    EXPECT_TRUE(Has(after, way.after)) << after;
    EXPECT_TRUE(Has(after, "code " + std::to_string(way.exitCode) + "\r\nsame")) << after;
  }
}

// Which the first signal cannot end while it waits for the answer. The second one kills it, and the shell says so.
TEST(KesctlWatch, LeavesTheTerminalAsItWasWhenADaemonHoldsIt) {
  StandInDaemon daemon(Answer::kNothing);
  const Result<Client> first = Client::Connect(daemon.SocketPath());  // the only one that is served
  ASSERT_TRUE(first);
  Process shell = OnTerminal(WatchAt(daemon, {}));
  (void)shell.ReadUntil("pid ");
  const pid_t kesctl = std::stoi(shell.ReadLine());
  (void)shell.ReadUntil("Ctrl-C ends");
  kill(kesctl, SIGTERM);
  kill(kesctl, SIGHUP);
  const std::string out = shell.Finish().out;
  EXPECT_TRUE(Has(out, kLeave) && Has(out, "\r\nsame")) << out;
  EXPECT_TRUE(Has(out, "Terminated") || Has(out, "Hangup")) << out;
}

TEST(KesctlWatch, EndsWhereNobodyTakesWhatItDraws) {
  TestResult crowd;
  for (uint8_t i = 0; i < 250; ++i) crowd.Add({2, 0, 0, 0, 1, i}, std::string(32, 'x'), 5180, -4000, {0, 0});
  StandInDaemon daemon(Answer::kResult, std::vector(9, ImagesOf(crowd)));
  Process kesctl = Kesctl(WatchAt(daemon, {}), Output::kTerminal);
  kesctl.Resize(300, 250);
  ASSERT_TRUE(kesctl.AwaitFullTerminal());
  kesctl.Signal(SIGTERM);
  EXPECT_TRUE(kesctl.AwaitHangUp());
  EXPECT_EQ(kesctl.Finish().exitCode, 128 + SIGTERM);
}

TEST(KesctlWatch, EndsWhenItIsEndedWhileItIsStopped) {
  StandInDaemon daemon(Answer::kResult, std::vector(2, OneNamed("a")));
  Process shell = OnTerminal(
      WatchAt(daemon, {}),
      "kill %1; kill -CONT %1; code=148; while test $code = 148; do wait %1; code=$?; done; (exit $code); compare");
  (void)shell.ReadUntil(kBars);
  shell.Type("\x1a");
  (void)shell.ReadUntil("same");
  const std::string out = shell.Finish().out;
  EXPECT_TRUE(Has(out, "code 143\r\nsame")) << out;
  EXPECT_FALSE(Has(out, "\033")) << out;
}

TEST(KesctlWatch, StopsComesBackAndTakesANewSize) {
  StandInDaemon daemon(Answer::kResult, std::vector(2, OneNamed("a")));
  Process shell = OnTerminal(WatchAt(daemon, {}), "fg; compare");
  EXPECT_FALSE(Has(shell.ReadUntil(kBars), "SECURITY"));
  shell.Resize(10, 200);
  EXPECT_TRUE(Has(shell.ReadUntil("SECURITY"), "SECURITY"));
  shell.Type("\x1a");
  const std::string stopped = shell.ReadUntil("same");
  EXPECT_TRUE(Has(stopped, kLeave) && Has(stopped, "code 148")) << stopped;
  EXPECT_TRUE(Has(shell.ReadUntil(kBars), kEnter));
  shell.Type("q");
  const std::string out = shell.Finish().out;
  EXPECT_TRUE(Has(out, kLeave) && Has(out, "code 0\r\nsame")) << out;
}

}  // namespace
}  // namespace kes
