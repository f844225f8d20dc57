// The daemon's IPC library without the daemon: its results are ready made, as the floors' and the peers' are. What is
// left of the daemon's time beyond this one's is the work on measurements.
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <stdexcept>
#include <vector>

#include "bench/contender.h"
#include "bench/unix_address.h"
#include "host/fenksocket/service.h"
#include "host/fenksocket/unique_fd.h"
#include "host/vexo_client/scheduler.h"
#include "ipc/services.h"

namespace bench {
namespace {

// Delivers on threads as the location client library does.
class Reporter {
 public:
  explicit Reporter(const Payload& payload) {
    for (std::size_t i = 0; i < buffers.size(); ++i) buffers[i].resize(payload.result[i]);
    if (!scheduler.Start()) throw std::runtime_error("no threads");
  }

  // Takes over a reference of `callback`.
  bool Report(Object callback) {
    return scheduler.Now([this, callback] {
      ObjectArg args[4];
      for (std::size_t i = 0; i < buffers.size(); ++i) args[i].buffer = {buffers[i].data(), buffers[i].size()};
      (void)callback.invoke(callback.context, kDeliverResult, args, kDeliverDiscoveryResultCounts);
      ObjectRelease(callback);
    });
  }

 private:
  std::array<std::vector<char>, 4> buffers;
  vexo_host::Scheduler scheduler;
};

int32_t InvokeHandle(void*, uint32_t, ObjectArg*, ArgCounts) { return OBJECT_OK; }

int32_t InvokeDiscovery(void* context, uint32_t op, ObjectArg* args, ArgCounts counts) {
  if (ObjectOperation(op) >= OBJECT_OP_RETAIN) return OBJECT_OK;
  if (counts != kStartDiscoveryScanCounts) return OBJECT_ERROR_INVALID;
  const Object callback = args[4].object;
  ObjectRetain(callback);
  args[5].object = {InvokeHandle, nullptr};
  return static_cast<Reporter*>(context)->Report(callback) ? OBJECT_OK : OBJECT_ERROR;
}

int32_t InvokeRoot(void* context, uint32_t op, ObjectArg* args, ArgCounts counts) {
  if (ObjectOperation(op) >= OBJECT_OP_RETAIN) return OBJECT_OK;
  if (counts != kRootOpenCounts) return OBJECT_ERROR_INVALID;
  args[1].object = {InvokeDiscovery, context};
  return OBJECT_OK;
}

void Serve(const std::string& path, const Payload& payload) {
  Reporter reporter(payload);
  const fenk::UniqueFd listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const sockaddr_un address = AddressOf(path);
  if (bind(listener.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
    throw std::runtime_error("cannot bind " + path);
  }
  const auto service = fenk::Service::Start(listener.Get(), {InvokeRoot, &reporter}, {});
  if (!service) throw std::runtime_error("the service does not start");
  service->Join();
}

}  // namespace

Contender IpcAlone() { return {"kesd's IPC alone", Serve, Kesd().connect}; }

}  // namespace bench
