// The counted object through which a client lets go of its request.
#ifndef KESD_DISPATCHER_REQUEST_HANDLE_H_
#define KESD_DISPATCHER_REQUEST_HANDLE_H_

#include <atomic>
#include <cstdint>
#include <memory>

#include "ipc/object.h"

// Stands for one request and knows nothing but its ID. The last release asks the dispatcher to forget the request,
// which aborts it if it is still pending, and frees the handle. Any thread may invoke it.
class RequestHandle {
 public:
  explicit RequestHandle(uint32_t id) : requestId(id) {}

  // The handle as an object; its one reference passes to the caller.
  static Object HandOut(std::unique_ptr<RequestHandle> handle) { return {&Invoke, handle.release()}; }

 private:
  static int32_t Invoke(void* context, uint32_t op, ObjectArg* args, ArgCounts counts);

  uint32_t requestId;
  std::atomic<uint32_t> refCount{1};
};

#endif  // KESD_DISPATCHER_REQUEST_HANDLE_H_
