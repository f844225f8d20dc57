#include "client/kesctl_doctor.h"

#include "client/doctor_report.h"
#include "client/text.h"

namespace kesctl {
namespace {

// Paths and names are anybody's.
std::string Shown(const std::string& text) {
  return Escape({reinterpret_cast<const uint8_t*>(text.data()), text.size()});
}

}  // namespace

int RunDoctor(const DoctorOptions& options) {
  Examination examination(options.socketPath);
  std::vector<DoctorEntry> entries;
  std::string_view failed;
  int exitCode = kExitDelivered;
  for (const Check& check : DoctorChecks()) {
    Finding finding = failed.empty() ? check.look(examination)
                                     : Finding{Verdict::kSkipped, "not looked at: " + std::string(failed) + " failed"};
    if (examination.session.IsInterrupted()) {
      examination.session.SayInterrupted();
      return examination.session.ExitCode();
    }
    if (finding.verdict == Verdict::kFailed) {
      failed = check.name;
      exitCode = finding.exitCode;
    }
    finding.detail = Shown(finding.detail);
    finding.advice = Shown(finding.advice);
    entries.push_back({check.name, std::move(finding)});
    if (!options.json && !PrintResult(DoctorText(entries.back(), WantsColour()))) return kExitRefused;
  }
  if (options.json && !PrintResult(DoctorJson(entries, exitCode))) return kExitRefused;
  return exitCode;
}

}  // namespace kesctl
