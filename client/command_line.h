// The command line of kesctl.
#ifndef KESD_CLIENT_COMMAND_LINE_H_
#define KESD_CLIENT_COMMAND_LINE_H_

#include <variant>

#include "client/kesctl_doctor.h"
#include "client/kesctl_range.h"
#include "client/kesctl_scan.h"
#include "client/kesctl_watch.h"

namespace kesctl {

// What to run: an alternative for each subcommand; or the exit code, when there is nothing to run because help or the
// version was asked for and printed, or because the command line is wrong and that was said.
using Command = std::variant<int, ScanOptions, WatchOptions, RangeOptions, DoctorOptions>;

Command ParseCommandLine(int argc, const char* const* argv);

}  // namespace kesctl

#endif  // KESD_CLIENT_COMMAND_LINE_H_
