// Runs kesctl for tests.
#ifndef KESD_CLIENT_KESCTL_PROCESS_H_
#define KESD_CLIENT_KESCTL_PROCESS_H_

#include <string>
#include <string_view>
#include <vector>

#include "tests/process.h"

namespace kes {

inline testing_process::Process Kesctl(std::vector<std::string> arguments,
                                       testing_process::Output output = testing_process::Output::kSeparate,
                                       std::vector<std::string> environment = {}) {
  arguments.insert(arguments.begin(), KESD_BINARY_DIR "/bin/kesctl");
  environment.insert(environment.begin(), {"TERM=xterm", "NO_COLOR"});
  return testing_process::Process(arguments, output, environment);
}

inline testing_process::Outcome RunKesctl(const std::vector<std::string>& arguments) {
  return Kesctl(arguments).Finish();
}

inline std::vector<std::string> Lines(const std::string& text) { return testing_process::LinesOf(text); }

inline bool Has(const std::string& text, std::string_view part) { return text.find(part) != std::string::npos; }

}  // namespace kes

#endif  // KESD_CLIENT_KESCTL_PROCESS_H_
