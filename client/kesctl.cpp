// kesctl: how a person, or a script, uses the daemon.
#include <csignal>
#include <exception>

#include "client/command_line.h"
#include "client/console.h"

namespace {

int Run(int exitCode) { return exitCode; }
int Run(const kesctl::ScanOptions& options) { return kesctl::RunScan(options); }

}  // namespace

int main(int argc, char** argv) {
  std::signal(SIGPIPE, SIG_IGN);  // a closed pipe is a write error, which is reported
  try {
    return std::visit([](const auto& command) { return Run(command); }, kesctl::ParseCommandLine(argc, argv));
  } catch (const std::exception& failure) {  // out of memory, at worst
    kesctl::Complain(failure.what());
    return kesctl::kExitRefused;
  }
}
