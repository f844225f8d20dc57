#include "dispatcher/vexo_dispatcher.h"

#include <cstdlib>
#include <new>
#include <utility>

#include "dispatcher/request_handle.h"
#include "platform/log.h"

using zv_loc_fw::log_debug;
using zv_loc_fw::log_error;
using zv_loc_fw::log_warning;

namespace {

constexpr char kTag[] = "kesd";
constexpr auto kClientLogLevel = static_cast<zv_loc_fw::VEXOClient::eLogLevel>(2);

}  // namespace

VexoDispatcher& VexoDispatcher::Get() {
  static VexoDispatcher instance;
  return instance;
}

VexoDispatcher::VexoDispatcher() {
  // In the body: the library may report from its own threads as soon as it has its listener.
  client.reset(zv_loc_fw::VEXOClient::createInstance(this, true, kClientLogLevel));
  if (client == nullptr) {
    log_error(kTag, "Dispatcher: Could not create the VEXOClient\n");
    std::exit(-1);
  }
  log_debug(kTag, "Dispatcher: initialized\n");
}

VexoDispatcher::~VexoDispatcher() {
  // First of all, while the table and the lock are there for the reports that still arrive. The callback objects of
  // what is pending are not released: their framework has ended.
  // A report in progress may still send: the pointer stays until the client is gone.
  delete client.get();
  (void)client.release();
}

int32_t VexoDispatcher::SendRequest(zv_loc_fw::VEXORequest* request, ResponseHandler handler, Object callback,
                                    Object* out) {
  const kesd::MutexLock lock(mutex);
  const uint32_t id = request->getRequestId();
  if (pendingRequests.contains(id)) return -1;

  // All memory is obtained before the library hears of the request, since nothing can take it back from there.
  std::unique_ptr<RequestHandle> handle(new (std::nothrow) RequestHandle(id));
  if (handle == nullptr) return -1;
  try {
    pendingRequests.emplace(id, PendingRequest{std::move(handler), callback});
    if (client->sendRequest(request) == 0) {
      ObjectRetain(callback);
      *out = RequestHandle::HandOut(std::move(handle));
      return 0;
    }
  } catch (...) {  // no memory for the entry, or a library that throws: the request was not sent
  }
  pendingRequests.erase(id);
  return -1;
}

void VexoDispatcher::responseReceived(zv_loc_fw::VEXOResponse* response) try {
  if (response == nullptr) {
    log_warning(kTag, "Dispatcher: received Null response.\n");
    return;
  }
  const uint32_t id = response->getRequestId();
  log_debug(kTag, "Dispatcher: responseReceived for ID = %d\n", static_cast<int>(id));
  PendingTable::node_type request;
  {
    const kesd::MutexLock lock(mutex);
    request = pendingRequests.extract(id);
    if (request.empty()) {
      log_warning(kTag, "Dispatcher: Unexpected request ID %d\n", static_cast<int>(id));
      return;
    }
  }
  const Object callback = request.mapped().callback;
  try {
    request.mapped().handler(response, callback);
  } catch (...) {  // the callback's one release does not depend on how its delivery went
  }
  ObjectRelease(callback);
} catch (...) {  // the library's thread has no use for it
}

void VexoDispatcher::Release(uint32_t requestId) {
  Object callback;
  {
    const kesd::MutexLock lock(mutex);
    const auto request = pendingRequests.find(requestId);
    if (request == pendingRequests.end()) {
      log_debug(kTag, "Dispatcher: Expected release for ID %d\n", static_cast<int>(requestId));
      return;
    }
    callback = request->second.callback;
    pendingRequests.erase(request);
  }
  ObjectRelease(callback);
  log_debug(kTag, "Dispatcher: Aborted ID %d\n", static_cast<int>(requestId));
}
