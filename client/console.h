// What every subcommand of kesctl shares towards its user: exit codes, standard output for results and nothing else,
// standard error for everything else.
#ifndef KESD_CLIENT_CONSOLE_H_
#define KESD_CLIENT_CONSOLE_H_

#include <chrono>
#include <string>
#include <string_view>

#include "client/result.h"

namespace kesctl {

enum ExitCode : int {
  kExitDelivered = 0,
  kExitRefused = 1,       // refused, a scan status other than ok, or the result could not be written
  kExitUsage = 2,         // the command line is wrong
  kExitNoDaemon = 3,      // cannot connect, or the connection was lost
  kExitTimedOut = 4,      // no answer in time, from the daemon or from its scan
  kExitInterrupted = 128  // plus the signal: 130 for SIGINT (Ctrl-C), 143 for SIGTERM
};

// "kesctl: MESSAGE" as a line on standard error.
void Complain(std::string_view message);

inline constexpr char kStartAdvice[] =
    "Is kesd running? Start it with kesd-launch, or name its socket with --socket PATH.";

// What failed, as a clause without a full stop; what to do next; and the exit code for it.
struct Failure {
  std::string what;
  std::string_view advice;
  int exitCode;
};

// `socketPath` names the daemon.
Failure Explain(const kes::Error& error, const std::string& socketPath);

// Says what Explain has to say, and returns the exit code.
int Fail(const kes::Error& error, const std::string& socketPath);

// Writes all of `text` to standard output. False when that failed, and it has said why; or when an ending signal came
// while nobody took it.
bool PrintResult(std::string_view text);

// Whether standard output is a terminal that obeys escape sequences (TERM is not "dumb").
bool IsCapableTerminal();

// Whether it is one, whose user wants colour (NO_COLOR is not set).
bool WantsColour();

// A line on standard error that tells how long something has been going on; nothing unless that is a terminal.
class ProgressLine {
 public:
  explicit ProgressLine(std::string_view activity);
  ~ProgressLine();
  ProgressLine(const ProgressLine&) = delete;
  ProgressLine& operator=(const ProgressLine&) = delete;

  bool IsShown() const { return shown; }
  void Update();

 private:
  const std::string_view what;
  const bool shown;
  const std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
};

}  // namespace kesctl

#endif  // KESD_CLIENT_CONSOLE_H_
