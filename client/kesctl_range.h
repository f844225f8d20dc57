// kesctl range: the distances to peers, once or again and again.
#ifndef KESD_CLIENT_KESCTL_RANGE_H_
#define KESD_CLIENT_KESCTL_RANGE_H_

#include <cstdint>
#include <string>

#include "client/ranging_request.h"

namespace kesctl {

struct RangeOptions {
  std::string socketPath;
  kes::RangingRequest request;
  uint32_t repeat = 1;  // how often to ask
  bool json = false;
};

// Returns the exit code. Shows each result as it comes, and asks no more once one did not come.
int RunRange(const RangeOptions& options);

}  // namespace kesctl

#endif  // KESD_CLIENT_KESCTL_RANGE_H_
