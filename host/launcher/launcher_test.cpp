#include <grp.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "host/fenksocket/test_support.h"
#include "tests/process.h"

namespace {

using testing_process::Outcome;
using testing_process::Output;
using testing_process::Process;

constexpr char kLauncher[] = KESD_BINARY_DIR "/bin/kesd-launch";

Process Launch(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), kLauncher);
  return Process(arguments, Output::kMerged);
}

class Launcher : public testing::Test {
 protected:
  // Launches a program that says "ready" and stays until its standard input ends.
  Process Serve(std::vector<std::string> options = {}) {
    std::vector<std::string> arguments = {"--socket", path};
    arguments.insert(arguments.end(), options.begin(), options.end());
    arguments.insert(arguments.end(), {"--", "sh", "-c", "echo ready; read -r end; exit 0"});
    return Launch(std::move(arguments));
  }

  bool Connects() const { return fenk::test::ConnectTo(path).IsOpen(); }

  struct stat Status() const {
    struct stat status = {};
    EXPECT_EQ(lstat(path.c_str(), &status), 0);
    return status;
  }

  const testing_process::TemporaryDirectory temporary;
  const std::string directory = temporary.path, path = directory + "/socket";
};

TEST_F(Launcher, HandsAListeningSocketToTheProgramThatItBecomes) {
  Process launch =
      Launch({"--socket", path, "--", "sh", "-c",
              "echo pid $$; readlink /proc/self/fd/$ANDROID_SOCKET_kesd; ls -l /proc/$$/fd | grep -c .lock; "
              "read -r end; exit 7"});
  const std::string pid = launch.ReadLine();
  EXPECT_EQ(launch.ReadLine().rfind("socket:[", 0), 0U);
  EXPECT_EQ(launch.ReadLine(), "0") << "the lock must not be handed over";
  EXPECT_TRUE(Connects()) << "nobody has accepted yet: the queue takes the connection";
  EXPECT_EQ(launch.Finish().exitCode, 7);
  EXPECT_EQ(pid.rfind("pid ", 0), 0U);
}

TEST_F(Launcher, GivesTheSocketTheModeAndTheGroupAskedFor) {
  const mode_t before = umask(0);
  for (const auto& [text, mode] : {std::pair("0660", 0660U), std::pair("600", 0600U), std::pair("0777", 0777U)}) {
    Process launch = Serve({"--mode", text});
    ASSERT_EQ(launch.ReadLine(), "ready");
    EXPECT_EQ(Status().st_mode & 07777U, mode);
  }
  umask(0777);
  Process standard = Serve();
  umask(before);
  ASSERT_EQ(standard.ReadLine(), "ready");
  EXPECT_EQ(Status().st_mode & 07777U, 0660U);
  EXPECT_EQ(Status().st_gid, getegid());
  standard.Finish();

  if (geteuid() != 0) GTEST_SKIP() << "only root gives a file to any group";
  const group* const daemon = getgrnam("daemon");
  ASSERT_NE(daemon, nullptr);
  const gid_t gid = daemon->gr_gid;
  Process grouped = Serve({"--group", "daemon"});
  ASSERT_EQ(grouped.ReadLine(), "ready");
  EXPECT_EQ(Status().st_gid, gid);
  EXPECT_EQ(Status().st_mode & 07777U, 0660U);
}

TEST_F(Launcher, LeavesASocketAloneThatIsServed) {
  Process first = Serve({"--mode", "0600"});
  ASSERT_EQ(first.ReadLine(), "ready");
  const ino_t inode = Status().st_ino;
  const Outcome second = Serve({"--mode", "0666"}).Finish();
  EXPECT_EQ(second.exitCode, 1);
  EXPECT_EQ(second.out, "kesd-launch: " + path + " is being served by another process\n");
  EXPECT_EQ(Status().st_ino, inode);
  EXPECT_EQ(Status().st_mode & 07777U, 0600U);
  EXPECT_TRUE(Connects());
}

TEST_F(Launcher, LetsOneOfSeveralAtOnceWin) {
  constexpr size_t kLaunchers = 8;
  for (int round = 0; round < 5; ++round) {  // the first finds nothing, the others a stale socket
    std::vector<Process> launches;
    for (size_t i = 0; i < kLaunchers; ++i) launches.push_back(Serve());
    size_t winner = kLaunchers;
    size_t refused = 0;
    for (size_t i = 0; i < kLaunchers; ++i) {
      const std::string line = launches[i].ReadLine();
      if (line == "ready") {
        EXPECT_EQ(winner, kLaunchers) << "two won";
        winner = i;
      } else {
        EXPECT_NE(line.find("is being served"), std::string::npos) << line;
        EXPECT_EQ(launches[i].Finish().exitCode, 1);
        ++refused;
      }
    }
    ASSERT_LT(winner, kLaunchers);
    EXPECT_EQ(refused, kLaunchers - 1);
    EXPECT_TRUE(Connects()) << "the winner's socket is the one at the path";
    EXPECT_EQ(launches[winner].Finish().exitCode, 0);
  }
}

TEST_F(Launcher, NeverRemovesWhatIsNoSocket) {
  const std::function<void()> make[] = {[&] { std::ofstream{path}; }, [&] { std::filesystem::create_directory(path); },
                                        [&] { std::filesystem::create_symlink(directory + "/elsewhere", path); }};
  for (const auto& one : make) {
    one();
    const mode_t kind = Status().st_mode;
    const Outcome result = Serve().Finish();
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.out, "kesd-launch: " + path + " exists and is no socket: it is left as it is\n");
    EXPECT_EQ(Status().st_mode, kind);
    EXPECT_TRUE(std::filesystem::remove(path));
  }
}

TEST_F(Launcher, SaysWhatIsWrong) {
  const std::string tooLong = directory + "/" + std::string(108, 's');
  const struct {
    const char* name;
    std::vector<std::string> arguments;
    int exitCode;
    std::string message;
  } cases[] = {
      {"no program", {"--socket", path}, 2, "no program was named"},
      {"unknown option", {"--sockets", path, "true"}, 2, "unrecognized option"},
      {"option without value", {"--socket"}, 2, "requires an argument"},
      {"mode with another digit", {"--mode", "0680", "true"}, 2, "not an octal number"},
      {"mode with more bits", {"--mode", "4660", "true"}, 2, "not an octal number"},
      {"empty mode", {"--mode", "", "true"}, 2, "not an octal number"},
      {"unknown group", {"--group", "no-such-group", "true"}, 2, "no such group: no-such-group"},
      {"path too long", {"--socket", tooLong, "true"}, 1, "a socket's path has 1 to 107 bytes"},
      {"empty path", {"--socket", "", "true"}, 1, "a socket's path has 1 to 107 bytes"},
      {"no directory", {"--socket", directory + "/none/socket", "true"}, 1, "No such file or directory"},
      {"no such program", {"--socket", path, "--", "no-such-program"}, 127, "cannot run no-such-program"},
      {"not a program", {"--socket", path, "--", directory}, 1, "cannot run " + directory},
      {"help", {"--help"}, 0, "Usage: kesd-launch"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const Outcome result = Launch(c.arguments).Finish();
    EXPECT_EQ(result.exitCode, c.exitCode);
    EXPECT_NE(result.out.find(c.message), std::string::npos) << result.out;
    EXPECT_FALSE(std::filesystem::exists(path)) << "no socket without a program";
  }
}

}  // namespace
