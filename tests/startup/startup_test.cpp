#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/process.h"

namespace {

using Lines = std::vector<std::string>;
using testing_process::Outcome;
using testing_process::Output;
using testing_process::Process;

constexpr char kKesd[] = KESD_BINARY_DIR "/bin/kesd";

// Each folder holds one library; the others come from the build.
std::string Folders(const std::vector<std::string>& folders) {
  std::string path = "LD_LIBRARY_PATH=";
  for (const std::string& folder : folders) path += STAND_INS "/" + folder + ":";
  path.pop_back();
  return path;
}

Lines operator+(Lines lines, const Lines& more) {
  lines.insert(lines.end(), more.begin(), more.end());
  return lines;
}

const Lines kAsleep = {"sleep 86400", "sleep 86400", "sleep 86400", "asleep"};
const char kRoot[] = "root: context 0, retain 0, open 2 0 0";

TEST(Startup, FailsWithAMessageAndThenSleepsForEver) {
  const struct {
    const char* name;
    std::vector<std::string> folders;
    Lines lines;
  } cases[] = {
      {"a library with an unresolved symbol",
       {"log", "fenk_unresolved", "socket_given"},
       {"level kesd 1", "E kesd \"Failed to load libfenksocket\""}},
      {"no join",
       {"log", "fenk_without_join", "socket_given"},
       {"level kesd 1", "loaded", "E kesd \"Shared library symbol not found\"", "unloaded"}},
      {"no start",
       {"log", "fenk_without_start", "socket_given"},
       {"level kesd 1", "loaded", "E kesd \"Shared library symbol not found\"", "unloaded"}},
      {"no control socket",
       {"log", "fenk_complete", "socket_missing"},
       {"level kesd 1", "loaded", "socket kesd", "E kesd \"No service socket provided\"", "unloaded"}},
      {"start fails",
       {"log", "fenk_start_fails", "socket_given"},
       {"level kesd 1", "loaded", "socket kesd", "start 77", kRoot, "E kesd \"Failed to create service\"", "unloaded"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Process kesd({kKesd}, Output::kMerged, {Folders(c.folders)});
    EXPECT_EQ(kesd.ReadLinesUntil("asleep"), c.lines + kAsleep);
    EXPECT_TRUE(kesd.IsRunning());
  }
}

TEST(Startup, ServesTheRootObjectUntilTheServiceEnds) {
  const struct {
    const char* name;
    std::vector<std::string> folders;
    std::vector<std::string> arguments;
    std::string start;
  } cases[] = {
      {"a descriptor", {"log", "fenk_complete", "socket_given"}, {kKesd}, "start 77"},
      {"descriptor 0 is one", {"log", "fenk_complete", "socket_zero"}, {kKesd}, "start 0"},
      {"arguments mean nothing", {"log", "fenk_complete", "socket_given"}, {kKesd, "--help", "x"}, "start 77"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Process kesd(c.arguments, Output::kMerged, {Folders(c.folders)});
    EXPECT_EQ(kesd.ReadLinesUntil("join the service"),
              Lines({"level kesd 1", "loaded", "socket kesd", c.start, kRoot, "I kesd \"Serving KESD interface\"",
                     "join the service"}));
    EXPECT_TRUE(kesd.IsRunning());
    const Outcome outcome = kesd.Finish();
    EXPECT_EQ(outcome.out, "unloaded\nexit\n");
    EXPECT_EQ(outcome.exitCode, 0);
  }
}

}  // namespace
