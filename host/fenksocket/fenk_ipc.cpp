// The library's two entry points.
#include "platform/fenk_ipc.h"

#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <new>

#include "host/fenksocket/service.h"

namespace {

// The caller never gives a service back, and may join it at any time: services stay, reachable from here.
struct Kept {
  std::unique_ptr<fenk::Service> service;
  Kept* next;
};
std::atomic<Kept*> services = nullptr;

// Each connection has a descriptor, and the usual limit is lower than what the service admits.
void RaiseDescriptorLimit() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  const rlim_t wanted = fenk::kMaxConnections + 64;
  if (limit.rlim_cur == RLIM_INFINITY || limit.rlim_cur >= wanted) return;
  limit.rlim_cur = limit.rlim_max == RLIM_INFINITY ? wanted : std::min<rlim_t>(wanted, limit.rlim_max);
  (void)setrlimit(RLIMIT_NOFILE, &limit);  // with less, connections wait until there are descriptors
}

}  // namespace

void* FenkIPC_startServiceOnSocket(int32_t fd, Object root) {
  fenk::ServiceOptions options;
  options.watchSignals = true;
  const auto kept = new (std::nothrow) Kept{nullptr, nullptr};
  if (kept == nullptr) return nullptr;
  RaiseDescriptorLimit();
  kept->service = fenk::Service::Start(fd, root, options);
  if (!kept->service) {
    delete kept;
    return nullptr;
  }
  kept->next = services.load();
  while (!services.compare_exchange_weak(kept->next, kept)) {
  }
  return kept->service.get();
}

int32_t FenkIPC_join(void* service) {
  if (service == nullptr) return -1;
  static_cast<fenk::Service*>(service)->Join();
  return 0;
}
