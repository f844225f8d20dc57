// The library's two entry points.
#include "platform/fenk_ipc.h"

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

}  // namespace

void* FenkIPC_startServiceOnSocket(int32_t fd, Object root) {
  fenk::ServiceOptions options;
  options.watchSignals = true;
  const auto kept = new (std::nothrow) Kept{nullptr, nullptr};
  if (kept == nullptr) return nullptr;
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
