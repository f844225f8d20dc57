// What kesctl doctor found, for people and for programs.
#ifndef KESD_CLIENT_DOCTOR_REPORT_H_
#define KESD_CLIENT_DOCTOR_REPORT_H_

#include <span>
#include <string>
#include <string_view>

#include "client/doctor_checks.h"

namespace kesctl {

struct DoctorEntry {
  std::string_view check;
  Finding finding;  // in text that may go to a terminal
};

// A line, and one below it with the advice where there is some. `colour`: with the escape sequences of a terminal.
std::string DoctorText(const DoctorEntry& entry, bool colour);

// One line with one object: {"ok": true, "exit_code": 0, "checks": [{"name": "socket", "state": "ok", "detail":
// text}...]} A check's state is "ok", "failed" or "skipped"; one that failed also has "advice".
std::string DoctorJson(std::span<const DoctorEntry> entries, int exitCode);

}  // namespace kesctl

#endif  // KESD_CLIENT_DOCTOR_REPORT_H_
