// kesctl watch: one discovery scan after the other, shown as they come.
#ifndef KESD_CLIENT_KESCTL_WATCH_H_
#define KESD_CLIENT_KESCTL_WATCH_H_

#include <cstdint>
#include <string>

#include "client/discovery_request.h"

namespace kesctl {

struct WatchOptions {
  std::string socketPath;
  kes::DiscoveryRequest request;
  uint32_t intervalMs = 2000;  // from one scan's start to the next one's; a scan that takes longer is waited for
  uint32_t count = 0;          // of results to show; 0: until the user ends it
  bool json = false;           // on a terminal, too
};

// Returns the exit code. A failure before the first result ends it; later ones are said, and it tries again.
int RunWatch(const WatchOptions& options);

}  // namespace kesctl

#endif  // KESD_CLIENT_KESCTL_WATCH_H_
