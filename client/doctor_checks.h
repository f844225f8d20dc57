// What kesctl doctor looks at, one thing after the other.
#ifndef KESD_CLIENT_DOCTOR_CHECKS_H_
#define KESD_CLIENT_DOCTOR_CHECKS_H_

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "client/discovery_result.h"
#include "client/session.h"

namespace kesctl {

enum class Verdict { kOk, kFailed, kSkipped };

struct Finding {
  Verdict verdict = Verdict::kOk;
  std::string detail;
  // Of a failure: what to do, and the exit code for it.
  std::string advice = {};
  int exitCode = kExitDelivered;
};

// What the checks share. They run in their order, and only as long as none has failed.
struct Examination {
  explicit Examination(const std::string& path);

  const std::string socketPath;
  Session session;
  std::vector<kes::Measurement> heard;  // by the check that scans
};

struct Check {
  std::string_view name;
  Finding (*look)(Examination&);
};
std::span<const Check> DoctorChecks();

}  // namespace kesctl

#endif  // KESD_CLIENT_DOCTOR_CHECKS_H_
