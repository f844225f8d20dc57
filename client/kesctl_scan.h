// kesctl scan: one discovery scan, shown.
#ifndef KESD_CLIENT_KESCTL_SCAN_H_
#define KESD_CLIENT_KESCTL_SCAN_H_

#include <optional>
#include <string>

#include "client/discovery_request.h"

namespace kesctl {

struct ScanOptions {
  std::string socketPath;
  kes::DiscoveryRequest request;
  bool json = false;
  bool elements = false;  // of the table; JSON always has them
  std::optional<std::string> pcapPath;
};

// Returns the exit code.
int RunScan(const ScanOptions& options);

}  // namespace kesctl

#endif  // KESD_CLIENT_KESCTL_SCAN_H_
