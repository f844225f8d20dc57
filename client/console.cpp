#include "client/console.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <system_error>

namespace kesctl {
namespace {

constexpr char kStartAdvice[] = "Is kesd running? Start it with kesd-launch, or name its socket with --socket PATH.";

}  // namespace

void Complain(std::string_view message) {
  std::fprintf(stderr, "kesctl: %.*s\n", static_cast<int>(message.size()), message.data());
}

int Fail(const kes::Error& error, const std::string& socketPath) {
  const auto say = [&](const std::string& what, const std::string& advice) {
    Complain(what + ": " + error.message + ".");
    std::fprintf(stderr, "%s\n", advice.c_str());
  };
  switch (error.kind) {
    case kes::ErrorKind::kNoSocket:
    case kes::ErrorKind::kRefused:
      say("no daemon answers at " + socketPath, kStartAdvice);
      return kExitNoDaemon;
    case kes::ErrorKind::kNotASocket:
      say("cannot connect to " + socketPath, "Name the daemon's socket with --socket PATH.");
      return kExitNoDaemon;
    case kes::ErrorKind::kNoPermission:
      say("cannot connect to " + socketPath, "Run kesctl as a user who may use the socket, or in the socket's group.");
      return kExitNoDaemon;
    case kes::ErrorKind::kProtocol:
      say("cannot talk to the daemon at " + socketPath,
          "Is it kesd, of the same version as this kesctl? Its log tells why it ended a connection.");
      return kExitNoDaemon;
    case kes::ErrorKind::kDisconnected:
      say("lost the daemon at " + socketPath, "Look into its log, and try again once it runs.");
      return kExitNoDaemon;
    case kes::ErrorKind::kSystem:
      say("cannot connect to " + socketPath, "Try again; if it stays so, look at the limits of this machine.");
      return kExitNoDaemon;
    case kes::ErrorKind::kTimedOut:
      say("timed out", "Try again, or give it longer with --timeout MS.");
      return kExitTimedOut;
    case kes::ErrorKind::kRejected:
      say("refused", "The daemon's log tells why; try a simpler request.");
      return kExitRefused;
    case kes::ErrorKind::kInvalidArgument:
      say("the request cannot be sent", "Correct it; --help tells what each option takes.");
      return kExitRefused;
    case kes::ErrorKind::kLimit:
      say("the request cannot be sent", "Ask for less at once, or try again later.");
      return kExitRefused;
    case kes::ErrorKind::kOutOfMemory:
      say("failed", "Free some memory, and try again.");
      return kExitRefused;
    case kes::ErrorKind::kWoken:
      break;
  }
  say("interrupted", "Try again.");
  return kExitRefused;
}

bool PrintResult(std::string_view text) {
  while (!text.empty()) {
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

bool WantsColour() {
  const char* noColour = std::getenv("NO_COLOR");
  const char* terminal = std::getenv("TERM");
  return isatty(STDOUT_FILENO) == 1 && (noColour == nullptr || *noColour == '\0') &&
         (terminal == nullptr || std::string_view(terminal) != "dumb");
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
