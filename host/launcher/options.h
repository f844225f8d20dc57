// kesd-launch's command line.
#ifndef KESD_HOST_LAUNCHER_OPTIONS_H_
#define KESD_HOST_LAUNCHER_OPTIONS_H_

#include <sys/types.h>

#include <optional>
#include <string>
#include <variant>

namespace launcher {

inline constexpr char kDefaultSocketPath[] = "/run/kesd/kesd.sock";

struct Options {
  std::string socketPath = kDefaultSocketPath;
  mode_t mode = 0660;
  std::optional<gid_t> group;  // the caller's when there is none
  char** program = nullptr;    // the program and its arguments, ending with null: the tail of argv
};

// What to do, or the exit status of a command line that has been answered: help, or a message about a mistake.
std::variant<Options, int> ParseOptions(int argc, char** argv);

}  // namespace launcher

#endif  // KESD_HOST_LAUNCHER_OPTIONS_H_
