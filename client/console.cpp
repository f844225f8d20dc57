#include "client/console.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <system_error>

#include "client/interrupts.h"

namespace kesctl {

void Complain(std::string_view message) {
  std::fprintf(stderr, "kesctl: %.*s\n", static_cast<int>(message.size()), message.data());
}

Failure Explain(const kes::Error& error, const std::string& socketPath) {
  const auto failure = [&](const std::string& what, std::string_view advice, int exitCode) {
    return Failure{what + ": " + error.message, advice, exitCode};
  };
  switch (error.kind) {
    case kes::ErrorKind::kNoSocket:
    case kes::ErrorKind::kRefused:
      return failure("no daemon answers at " + socketPath, kStartAdvice, kExitNoDaemon);
    case kes::ErrorKind::kNotASocket:
      return failure("cannot connect to " + socketPath, "Name the daemon's socket with --socket PATH.", kExitNoDaemon);
    case kes::ErrorKind::kNoPermission:
      return failure("cannot connect to " + socketPath,
                     "Run kesctl as a user who may use the socket, or in the socket's group.", kExitNoDaemon);
    case kes::ErrorKind::kProtocol:
      return failure("cannot talk to the daemon at " + socketPath,
                     "Is it kesd, of the same version as this kesctl? Its log tells why it ended a connection.",
                     kExitNoDaemon);
    case kes::ErrorKind::kDisconnected:
      return failure("lost the daemon at " + socketPath, "Look into its log, and try again once it runs.",
                     kExitNoDaemon);
    case kes::ErrorKind::kSystem:
      return failure("cannot connect to " + socketPath,
                     "Try again; if it stays so, look at the limits of this machine.", kExitNoDaemon);
    case kes::ErrorKind::kTimedOut:
      return failure("timed out", "Try again, or give it longer with --timeout MS.", kExitTimedOut);
    case kes::ErrorKind::kRejected:
      return failure("refused", "The daemon's log tells why; try a simpler request.", kExitRefused);
    case kes::ErrorKind::kInvalidArgument:
      return failure("the request cannot be sent", "Correct it; --help tells what each option takes.", kExitRefused);
    case kes::ErrorKind::kLimit:
      return failure("the request cannot be sent", "Ask for less at once, or try again later.", kExitRefused);
    case kes::ErrorKind::kOutOfMemory:
      return failure("failed", "Free some memory, and try again.", kExitRefused);
    case kes::ErrorKind::kWoken:
      break;
  }
  return failure("interrupted", "Try again.", kExitRefused);
}

int Fail(const kes::Error& error, const std::string& socketPath) {
  const Failure failure = Explain(error, socketPath);
  Complain(failure.what + ".");
  std::fprintf(stderr, "%.*s\n", static_cast<int>(failure.advice.size()), failure.advice.data());
  return failure.exitCode;
}

bool PrintResult(std::string_view text) {
  for (bool isTried = false; !text.empty(); isTried = true) {
    if (isTried && Interrupts::Caught() != 0) return false;  // it may be that nobody takes it, ever
    const ssize_t written = write(STDOUT_FILENO, text.data(), text.size());
    if (written >= 0) {
      text.remove_prefix(static_cast<std::size_t>(written));
    } else if (errno == EAGAIN) {  // whoever shares the pipe made it non-blocking
      pollfd out{STDOUT_FILENO, POLLOUT, 0};
      (void)poll(&out, 1, -1);
    } else if (errno != EINTR) {
      Complain("cannot write the result to standard output: " + std::generic_category().message(errno) +
               ".\nIs the disk full, or did the program behind the pipe end?");
      return false;
    }
  }
  return true;
}

bool IsCapableTerminal() {
  const char* terminal = std::getenv("TERM");
  return isatty(STDOUT_FILENO) == 1 && (terminal == nullptr || std::string_view(terminal) != "dumb");
}

bool WantsColour() {
  const char* noColour = std::getenv("NO_COLOR");
  return IsCapableTerminal() && (noColour == nullptr || *noColour == '\0');
}

ProgressLine::ProgressLine(std::string_view activity) : what(activity), shown(isatty(STDERR_FILENO) == 1) { Update(); }

ProgressLine::~ProgressLine() {
  if (shown) std::fputs("\r\033[K", stderr);
}

void ProgressLine::Update() {
  if (!shown) return;
  const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
  std::fprintf(stderr, "\r\033[K%.*s %.1f s (Ctrl-C aborts)", static_cast<int>(what.size()), what.data(),
               elapsed.count());
}

}  // namespace kesctl
