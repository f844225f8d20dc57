// What a command prints, a line each. A command that fails is a failure of the test.
#ifndef KESD_TESTS_STARTUP_LINES_OF_H_
#define KESD_TESTS_STARTUP_LINES_OF_H_

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "tests/process.h"

namespace testing_process {

inline std::vector<std::string> LinesOf(const std::vector<std::string>& command) {
  const Outcome outcome = Run(command);
  EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
  std::vector<std::string> lines;
  std::istringstream text(outcome.out);
  for (std::string line; std::getline(text, line);) lines.push_back(line);
  return lines;
}

}  // namespace testing_process

#endif  // KESD_TESTS_STARTUP_LINES_OF_H_
