#include "platform/log.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "tests/process.h"

namespace {

using testing_process::LinesOf;
using zv_loc_fw::ERROR_LEVEL;

struct Outcome {
  std::string output;  // what was written to standard error
  int status;          // as waitpid gives it; 0 when `body` returned
};

// Runs `body` in a process of its own, whose environment the library has not read yet.
Outcome RunWith(const char* kesLog, const std::function<void()>& body) {
  testing::internal::CaptureStderr();
  const pid_t child = fork();
  if (child == 0) {
    if (kesLog != nullptr) {
      setenv("KES_LOG", kesLog, 1);
    } else {
      unsetenv("KES_LOG");
    }
    body();
    _exit(0);
  }
  Outcome outcome;
  waitpid(child, &outcome.status, 0);
  outcome.output = testing::internal::GetCapturedStderr();
  return outcome;
}

// The level letters of the lines, in order: which of the four levels came through.
std::string LevelsIn(const std::string& output) {
  std::string letters;
  for (const std::string& line : LinesOf(output)) letters += line.size() > 24 ? line[24] : '?';
  return letters;
}

std::string MessageOf(const std::string& line) {
  const size_t colon = line.find(": ");
  return colon == std::string::npos ? "no message in: " + line : line.substr(colon + 2);
}

void LogAtEveryLevel(const char* tag) {
  zv_loc_fw::log_error(tag, "one");
  zv_loc_fw::log_warning(tag, "two");
  zv_loc_fw::log_info(tag, "three");
  zv_loc_fw::log_debug(tag, "four");
}

TEST(Log, WritesTimeLevelTagAndThreadBeforeTheMessage) {
  const Outcome outcome = RunWith(nullptr, [] { zv_loc_fw::log_error("kesd", "%s is %d\n", "answer", 42); });
  std::smatch match;
  ASSERT_TRUE(std::regex_match(outcome.output, match,
                               std::regex(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} E kesd (\d+): answer is 42\n)")))
      << outcome.output;
  EXPECT_NE(std::stoi(match[1]), getpid());
}

TEST(Log, AdmitsWhatTheTagsLevelAndTheEnvironmentAllow) {
  constexpr int kNotSet = -100;
  const struct {
    const char* name;
    int level;
    const char* kesLog;
    const char* admitted;
  } cases[] = {
      {"nobody set a level", kNotSet, nullptr, "EW"},
      {"nothing", 0, nullptr, ""},
      {"warnings", 2, nullptr, "EW"},
      {"everything", 4, nullptr, "EWID"},
      {"below the range", -7, nullptr, ""},
      {"above the range", 9, nullptr, "EWID"},
      {"empty variable", 1, "", "E"},
      {"every tag raised", 1, "debug", "EWID"},
      {"this tag raised", 1, "kesd=info", "EWI"},
      {"this tag raised among others", 1, " other=debug , kesd = warning ,", "EW"},
      {"the more talkative word counts", 1, "kesd=debug,kesd=info,warning", "EWID"},
      {"another tag raised", 1, "kes=debug,kesd2=debug", "E"},
      {"the environment never lowers", 4, "error,kesd=error", "EWID"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const Outcome outcome = RunWith(c.kesLog, [&] {
      if (c.level != kNotSet) zv_loc_fw::log_set_local_level_for_tag("kesd", static_cast<ERROR_LEVEL>(c.level));
      LogAtEveryLevel("kesd");
    });
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(LevelsIn(outcome.output), c.admitted) << outcome.output;
  }
}

TEST(Log, SaysOnceWhichWordsOfTheVariableItDoesNotKnow) {
  const Outcome outcome = RunWith("loud,kesd=5,=info,kesd=info", [] {
    LogAtEveryLevel("kesd");
    LogAtEveryLevel("kesd");
  });
  EXPECT_EQ(LevelsIn(outcome.output), "WWWEWIEWI");
  const std::vector<std::string> lines = LinesOf(outcome.output);
  ASSERT_EQ(lines.size(), 9U);
  EXPECT_NE(lines[0].find("KES_LOG: \"loud\" ignored: expected LEVEL or TAG=LEVEL"), std::string::npos) << lines[0];
  EXPECT_NE(lines[1].find("\"kesd=5\""), std::string::npos);
  EXPECT_NE(lines[2].find("\"=info\""), std::string::npos);
}

TEST(Log, MakesEveryMessageOneLine) {
  const std::string tooLong(5000, 'x');
  const std::string tooLongOnceEscaped(2000, '\x01');
  const std::pair<std::string, std::string> cases[] = {
      {"", ""},
      {"text\n", "text"},
      {"only the last one goes\n\n", "only the last one goes\\n"},
      {"a\nb\rc\td", "a\\nb\\rc\\td"},
      {"\x1b[2J\x07\x7f", "\\x1b[2J\\x07\\x7f"},
      {"\xc3\xa9\xff", "\\xc3\\xa9\\xff"},
      {"\\n", "\\\\n"},
      {"100 %s", "100 %s"},
      {tooLong, std::string(2047, 'x') + " [cut]"},
  };
  const Outcome outcome = RunWith(nullptr, [&] {
    for (const auto& [message, shown] : cases) zv_loc_fw::log_error("kesd", "%s", message.c_str());
  });
  const std::vector<std::string> lines = LinesOf(outcome.output);
  ASSERT_EQ(lines.size(), std::size(cases)) << outcome.output;
  for (size_t i = 0; i < lines.size(); ++i) EXPECT_EQ(MessageOf(lines[i]), cases[i].second);
  const Outcome escaped = RunWith(nullptr, [&] { zv_loc_fw::log_error("kesd", "%s", tooLongOnceEscaped.c_str()); });
  EXPECT_LE(escaped.output.size(), 4096U);
  EXPECT_TRUE(escaped.output.ends_with("\\x01 [cut]\n")) << escaped.output;
}

TEST(Log, WritesTheLinesOfSeveralThreadsWhole) {
  constexpr int kThreads = 4;
  constexpr int kLines = 200;
  const Outcome outcome = RunWith(nullptr, [] {
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
      threads.emplace_back([i] {
        const std::string text(900, static_cast<char>('a' + i));
        zv_loc_fw::log_set_local_level_for_tag(text.substr(0, 5).c_str(), static_cast<ERROR_LEVEL>(i));
        for (int line = 0; line < kLines; ++line) zv_loc_fw::log_error("kesd", "%s", text.c_str());
      });
    }
    for (std::thread& thread : threads) thread.join();
  });
  const std::vector<std::string> lines = LinesOf(outcome.output);
  ASSERT_EQ(lines.size(), static_cast<size_t>(kThreads * kLines));
  for (const std::string& line : lines) {
    const std::string message = MessageOf(line);
    ASSERT_EQ(message, std::string(900, message[0])) << line;
  }
}

TEST(Log, LeavesErrnoAloneAndOutlivesTheReaderOfStandardError) {
  const Outcome outcome = RunWith("nonsense", [] {
    errno = ENOENT;
    zv_loc_fw::log_error("kesd", "seen");
    const bool kept = errno == ENOENT;
    signal(SIGPIPE, SIG_DFL);
    int ends[2];
    if (pipe(ends) != 0) _exit(1);
    close(ends[0]);
    dup2(ends[1], STDERR_FILENO);  // the write fails from here on
    errno = ENOENT;
    zv_loc_fw::log_error("kesd", "nobody reads this");
    zv_loc_fw::log_debug("kesd", "not admitted");
    if (!kept || errno != ENOENT) _exit(1);
    sigset_t pending;
    sigpending(&pending);
    if (sigismember(&pending, SIGPIPE) == 1) _exit(2);
  });
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(LevelsIn(outcome.output), "WE") << outcome.output;
}

TEST(Log, KeepsTheLevelsOfTagsApartAndGoesOnWhenThereAreTooMany) {
  const Outcome outcome = RunWith(nullptr, [] {
    for (int i = 0; i < 100; ++i) {
      zv_loc_fw::log_set_local_level_for_tag(("tag" + std::to_string(i)).c_str(), static_cast<ERROR_LEVEL>(4));
    }
    zv_loc_fw::log_set_local_level_for_tag("tag0", static_cast<ERROR_LEVEL>(1));
    for (const char* tag : {"tag0", "tag63", "tag99"}) LogAtEveryLevel(tag);
  });
  EXPECT_EQ(LevelsIn(outcome.output), std::string(36, 'W') + "E" + "EWID" + "EW") << outcome.output;
  EXPECT_NE(outcome.output.find("No room for the level of tag \"tag64\""), std::string::npos) << outcome.output;
}

TEST(Log, WritesDuringProcessExit) {
  const Outcome outcome = RunWith(nullptr, [] {
    static const struct AtExit {
      ~AtExit() { zv_loc_fw::log_error("kesd", "still here"); }
    } atExit;
    exit(0);
  });
  EXPECT_TRUE(outcome.output.ends_with(": still here\n")) << outcome.output;
}

}  // namespace
