// kesctl: how a person, or a script, uses the daemon.
#include <csignal>
#include <exception>
#include <string>

#include "client/command_line.h"
#include "client/console.h"

namespace {

int Run(int exitCode) { return exitCode; }
int Run(const kesctl::ScanOptions& options) { return kesctl::RunScan(options); }
int Run(const kesctl::WatchOptions& options) { return kesctl::RunWatch(options); }
int Run(const kesctl::RangeOptions& options) { return kesctl::RunRange(options); }
int Run(const kesctl::DoctorOptions& options) { return kesctl::RunDoctor(options); }

}  // namespace

int main(int argc, char** argv) {
  std::signal(SIGPIPE, SIG_IGN);  // a closed pipe is a write error, which is reported
  try {
    return std::visit([](const auto& command) { return Run(command); }, kesctl::ParseCommandLine(argc, argv));
  } catch (const std::exception& failure) {  // out of memory, at worst
    kesctl::Complain(std::string("failed: ") + failure.what() + ".\nFree some memory, and try again.");
    return kesctl::kExitRefused;
  }
}
