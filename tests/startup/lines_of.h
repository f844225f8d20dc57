// What a command prints, a line each. A command that fails is a failure of the test.
#ifndef KESD_TESTS_STARTUP_LINES_OF_H_
#define KESD_TESTS_STARTUP_LINES_OF_H_

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/process.h"

namespace testing_process {

inline std::vector<std::string> LinesOf(const std::vector<std::string>& command) {
  const Outcome outcome = Run(command);
  EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
  return LinesOf(outcome.out);
}

}  // namespace testing_process

#endif  // KESD_TESTS_STARTUP_LINES_OF_H_
