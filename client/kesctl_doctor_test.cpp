#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <nlohmann/json.hpp>
#include <regex>
#include <thread>

#include "client/kesctl_process.h"
#include "client/stand_in_daemon.h"
#include "tests/daemon.h"

namespace kes {
namespace {

namespace fs = std::filesystem;
using testing_process::Daemon;
using testing_process::Outcome;
using testing_process::Process;
using testing_process::TemporaryDirectory;

// What a run is to find: the checks in their order, the exit code, and what is to be read where it failed.
struct Diagnosis {
  const char* name;
  const char* states;  // a letter a check: ok, failed, skipped
  int exitCode;
  std::vector<const char*> said;
};

void ExpectDiagnosis(const Outcome& outcome, const Diagnosis& expected) {
  SCOPED_TRACE(expected.name);
  EXPECT_EQ(outcome.exitCode, expected.exitCode) << outcome.err;
  EXPECT_EQ(outcome.err, "");
  const nlohmann::json json = nlohmann::json::parse(outcome.out, nullptr, false);
  ASSERT_TRUE(json.is_object()) << outcome.out;
  EXPECT_EQ(json["ok"], expected.exitCode == 0);
  EXPECT_EQ(json["exit_code"], expected.exitCode);
  std::string states;
  for (const nlohmann::json& check : json["checks"]) {
    states += check["state"].get<std::string>()[0];
    EXPECT_EQ(check.contains("advice"), check["state"] == "failed");
  }
  EXPECT_EQ(states, expected.states) << outcome.out;
  for (const char* said : expected.said) EXPECT_TRUE(Has(outcome.out, said)) << outcome.out;
}

Outcome Examine(const std::string& socket) { return RunKesctl({"doctor", "--json", "--socket", socket}); }

TEST(KesctlDoctor, TellsWhatStandsBetweenItAndADaemon) {
  const TemporaryDirectory directory;
  const std::string path = directory.path;
  std::ofstream(path + "/file") << "text";
  const fenk::UniqueFd deaf = fenk::test::BindTo(path + "/deaf");
  const fenk::UniqueFd silent = fenk::test::BindTo(path + "/silent");
  const fenk::UniqueFd other = fenk::test::BindTo(path + "/other");
  for (const fenk::UniqueFd* listening : {&silent, &other}) ASSERT_EQ(listen(listening->Get(), 8), 0);
  std::thread web([&] {
    for (;;) {
      const fenk::UniqueFd accepted(accept(other.Get(), nullptr, nullptr));
      if (!accepted.IsOpen()) return;
      (void)!send(accepted.Get(), "HTTP/1.0 400 Bad Request\r\n\r\n", 28, MSG_NOSIGNAL);
    }
  });
  const StandInDaemon newer(Answer::kNoService);
  std::string own;  // the name of this process, which is an emulator's where one runs it
  std::getline(std::ifstream("/proc/self/comm"), own);
  own = '(' + own + ") of ";
  ExpectDiagnosis(Examine(path + "/none/s"),
                  {"no folder", "fssssss", 3, {"the folder ", "/none: No such", "--socket PATH"}});
  ExpectDiagnosis(Examine(path + "/none"), {"no socket", "fssssss", 3, {"/none: No such file", "--socket PATH"}});
  ExpectDiagnosis(Examine(path + "/file"), {"a file", "fssssss", 3, {"is not a socket"}});
  ExpectDiagnosis(Examine(path + "/deaf"), {"a socket left over", "oofssss", 3, {"nobody listens", "--socket PATH"}});
  ExpectDiagnosis(Examine(path + "/silent"), {"no answer", "ooofsss", 4, {own.c_str(), "busy or hangs"}});
  ExpectDiagnosis(Examine(path + "/other"), {"something else", "ooofsss", 3, {"Is it kesd"}});
  ExpectDiagnosis(Examine(newer.SocketPath()), {"no such service", "ooofsss", 3, {"does not offer", "same version"}});
  shutdown(other.Get(), SHUT_RDWR);
  web.join();
}

TEST(KesctlDoctor, TellsWhichGroupOpensASocket) {
  if (geteuid() != 0) GTEST_SKIP() << "takes root, to be somebody else";
  if (testing_process::Emulated({KESD_BINARY_DIR "/bin/kesctl"}).size() != 1) GTEST_SKIP() << "takes no emulator";
  constexpr uid_t kSomebody = 54321;
  constexpr gid_t kGroup = 1;  // "daemon" of every Debian
  const TemporaryDirectory directory;
  const std::string inner = directory.path / "inner", socket = inner + "/s";
  fs::create_directory(inner);
  const fenk::UniqueFd deaf = fenk::test::BindTo(socket);
  const std::string kesctl = directory.path / "kesctl";  // where somebody else can run it
  fs::copy_file(KESD_BINARY_DIR "/bin/kesctl", kesctl);
  fs::permissions(directory.path, fs::perms{0755});
  fs::permissions(kesctl, fs::perms{0755});
  const struct {
    const char* kept;  // which of the two has `mode`, owner and group
    unsigned mode;
    uid_t owner;
    gid_t group;
    Diagnosis diagnosis;
  } cases[] = {
      {"s", 0660, 0, kGroup, {"group", "ofsssss", 3, {"54321 (groups ", "sudo usermod -aG daemon 54321, then log in"}}},
      {"s", 0660, 0, 0, {"group of root", "ofsssss", 3, {"may not use ", "Run kesctl as root, or ", "--group GROUP"}}},
      {"s", 0600, 0, kGroup, {"no group", "ofsssss", 3, {"Run kesctl as root, or ", "--group GROUP"}}},
      {"s", 0060, kSomebody, 0, {"owner", "ofsssss", 3, {"chmod u+w "}}},
      {"", 0750, 0, kGroup, {"folder", "sfsssss", 3, {"may not enter ", "sudo usermod -aG daemon 54321"}}},
      {"", 0700, 0, 0, {"closed folder", "sfsssss", 3, {"Run kesctl as root, or have others let in: chmod o+x "}}},
      {"s", 0666, 0, 0, {"everybody", "oofssss", 3, {"nobody listens"}}},
  };
  const std::string id = std::to_string(kSomebody);
  const auto asSomebody = [&](const std::string& path) {
    return testing_process::Run({"/usr/bin/setpriv", "--reuid", id, "--regid", id, "--clear-groups", kesctl, "doctor",
                                 "--json", "--socket", path});
  };
  for (const auto& c : cases) {
    fs::permissions(inner, fs::perms{0755});
    ASSERT_EQ(chown(inner.c_str(), 0, 0), 0);
    const std::string kept = *c.kept == '\0' ? inner : inner + '/' + c.kept;
    ASSERT_EQ(chown(kept.c_str(), c.owner, c.group), 0);
    fs::permissions(kept, fs::perms{c.mode});
    ExpectDiagnosis(asSomebody(socket), c.diagnosis);
  }
  fs::permissions(inner, fs::perms{0700});
  fs::create_symlink(socket, directory.path / "link");
  ExpectDiagnosis(asSomebody(directory.path / "link"), {"behind a link", "sfsssss", 3, {"may not reach ", "a link"}});
}

TEST(KesctlDoctor, TellsWhatADaemonCanDo) {
  const struct {
    const char* source;
    Diagnosis diagnosis;
  } cases[] = {
      {"scene:delay=0", {"all", "ooooooo", 0, {"scene, ", "13 access points in ", " m to 0e:7c:33:90:5a:20"}}},
      {"scene:delay=0,aps=1", {"no peer", "oooooos", 0, {"1 access point in ", "no peer nearby answers"}}},
      {"capture:/nonexistent", {"no file", "ooooofs", 1, {"capture, ", "status 4 (unavailable)", "its log tells why"}}},
      {"scenery", {"no source", "oooosfs", 1, {"does not tell", "status 4 (unavailable)"}}},
  };
  for (const auto& c : cases) {
    Daemon daemon(c.source);
    ExpectDiagnosis(Examine(daemon.Socket()), c.diagnosis);
    EXPECT_EQ(daemon.Stop().exitCode, 0);
  }

  // As a person sees it.
  Daemon daemon("scene:delay=0,aps=1");
  const std::regex lines(
      "ok       socket      .*/kesd.sock .*:.* 0660, in a folder of .*:.* 0700\n"
      "ok       permission  .* \\(groups .*\\) may connect\n"
      "ok       listener    process [0-9]+ \\([a-z0-9-]+\\) of .* listens\n"
      "ok       daemon      answered within [0-9.]+ m?s\n"
      "ok       source      scene, a neighbourhood that is made up\n"
      "ok       scan        1 access point in [0-9.]+ m?s\n"
      "skipped  ranging     no peer nearby answers ranging\n");
  const Outcome outcome = testing_process::Run(daemon.Kesctl({"doctor"}));
  EXPECT_TRUE(std::regex_match(outcome.out, lines)) << outcome.out;
  EXPECT_EQ(Lines(RunKesctl({"doctor", "--socket", "/nonexistent"}).out)[1].find("-> "), 21u);
}

TEST(KesctlDoctor, TellsHowARequestEnded) {
  TestResult heard, slow;
  heard.header.opaque32 = 3;
  slow.header.scanStatus = 2;
  std::vector<uint8_t> answering{127, 9, 0, 0, 0, 0, 0, 0, 0, 0, 0x40};
  heard.Add({2, 0, 0, 0, 0, 1}, "far", 2412, -8000, answering);
  heard.Add({2, 0, 0, 0, 0, 2}, "near", 5180, -5000, answering);
  answering.back() = 0xBF;
  heard.Add({2, 0, 0, 0, 0, 3}, "nearest, with every other bit", 5180, -4000, answering);
  TestRangingResult silent, incapable, failed;
  silent.Add({2, 0, 0, 0, 0, 2}, {.status = wifi::RangingStatus::kNoResponse});
  incapable.header.scanStatus = 3;
  failed.header.scanStatus = 1;
  const struct {
    Answer answer;
    std::vector<Images> results;
    Diagnosis diagnosis;
  } cases[] = {
      {Answer::kRejected, {}, {"refused", "oooofss", 1, {"could not send the request"}}},
      {Answer::kHangUp, {}, {"lost", "oooofss", 3, {"ended the connection", "Look into its log"}}},
      {Answer::kResult, {ImagesOf(heard), ImagesOf(slow)}, {"slow", "ooooofs", 4, {"radio, ", "slow or hangs"}}},
      {Answer::kResult,
       {ImagesOf(heard), ImagesOf(heard), ImagesOf(silent)},
       {"silent peer", "oooooof", 1, {"02:00:00:00:00:02: no-response", "try another peer"}}},
      {Answer::kResult,
       {ImagesOf(heard), ImagesOf(heard), ImagesOf(incapable)},
       {"radio without ranging", "oooooos", 0, {"cannot range"}}},
      {Answer::kResult,
       {ImagesOf(heard), ImagesOf(heard), ImagesOf(failed)},
       {"ranging failed", "oooooof", 1, {"status 1 (failed)"}}},
  };
  for (const auto& c : cases) {
    const StandInDaemon daemon(c.answer, c.results);
    ExpectDiagnosis(Examine(daemon.SocketPath()), c.diagnosis);
  }

  StandInDaemon daemon(Answer::kNothing);
  Process kesctl = Kesctl({"doctor", "--json", "--socket", daemon.SocketPath()});
  ASSERT_TRUE(daemon.AwaitRequest());
  kesctl.Signal(SIGINT);
  const Outcome interrupted = kesctl.Finish();
  EXPECT_EQ(interrupted.exitCode, 130);
  EXPECT_EQ(interrupted.out, "");
  EXPECT_TRUE(Has(interrupted.err, "aborted"));
}

}  // namespace
}  // namespace kes
