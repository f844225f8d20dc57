// The one owner of the location Wi-Fi client: sends the services' requests and routes each response to the
// handler of the service that asked.
#ifndef KESD_DISPATCHER_VEXO_DISPATCHER_H_
#define KESD_DISPATCHER_VEXO_DISPATCHER_H_

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <unordered_map>

#include "ipc/object.h"
#include "platform/vexo_client.h"
#include "support/mutex.h"

// Called with a response and the callback object of the client that asked, on the library's thread and with no
// lock held. Both are lent for the length of the call. It may call into the dispatcher.
using ResponseHandler = std::function<void(zv_loc_fw::VEXOResponse*, Object)>;

// A request that was sent and is neither answered nor aborted.
struct PendingRequest {
  ResponseHandler handler;  // never empty
  Object callback;          // the entry holds one reference to it
};

// The client's only listener, one in a process. Any thread may call any method.
//
// Whoever removes a pending entry, the response or the abort, releases its callback object; so each one is released
// once, or not at all when the process exits first.
class VexoDispatcher final : public zv_loc_fw::VEXOClientListener {
 public:
  // Made, with its client, by the first call; ends with the process. Ends the process when no client can be made.
  static VexoDispatcher& Get();

  VexoDispatcher(const VexoDispatcher&) = delete;
  VexoDispatcher& operator=(const VexoDispatcher&) = delete;

  // Sends `request`, which stays the caller's and is not kept. 0: sent; the callback object was retained, and `out`
  // holds a request handle with one reference, which belongs to the caller. -1: not sent, because its ID is still
  // pending, the library refused it or memory ran out; then nothing was recorded, retained or written.
  int32_t SendRequest(zv_loc_fw::VEXORequest* request, ResponseHandler handler, Object callback, Object* out)
      KESD_EXCLUDES(mutex);

  // The library's report. Only the first for an ID that is pending reaches a handler.
  void responseReceived(zv_loc_fw::VEXOResponse* response) override KESD_EXCLUDES(mutex);

  // Forgets the request, if it is still pending: no result will be delivered. The library goes on with it.
  void Release(uint32_t requestId) KESD_EXCLUDES(mutex);

 private:
  using PendingTable = std::unordered_map<uint32_t, PendingRequest>;

  VexoDispatcher();
  ~VexoDispatcher() override;

  std::unique_ptr<zv_loc_fw::VEXOClient> client;

 public:
  // Request IDs: the value after an increment by one is the new ID.
  std::atomic<uint32_t> requestIdCounter{0};

 private:
  // Held across the library's sendRequest, so that no response is matched before its request is recorded.
  kesd::Mutex mutex;
  PendingTable pendingRequests KESD_GUARDED_BY(mutex);
};

#endif  // KESD_DISPATCHER_VEXO_DISPATCHER_H_
