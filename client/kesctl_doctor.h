// kesctl doctor: why there are no results, and what to do.
#ifndef KESD_CLIENT_KESCTL_DOCTOR_H_
#define KESD_CLIENT_KESCTL_DOCTOR_H_

#include <string>

namespace kesctl {

struct DoctorOptions {
  std::string socketPath;
  bool json = false;
};

// Returns the exit code: that of the first check that failed.
int RunDoctor(const DoctorOptions& options);

}  // namespace kesctl

#endif  // KESD_CLIENT_KESCTL_DOCTOR_H_
