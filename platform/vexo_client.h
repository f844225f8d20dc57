// The location client library's client and the interface through which it reports. Bodies live in
// libvexo_client.so.
#ifndef KESD_PLATFORM_VEXO_CLIENT_H_
#define KESD_PLATFORM_VEXO_CLIENT_H_

#include <cstdint>

#include "platform/vexo_request.h"
#include "platform/vexo_response.h"

namespace zv_loc_fw {

// Receives a client's reports. The slots' order is part of the library's ABI: responseReceived, then the
// destructor's two.
class VEXOClientListener {
 public:
  // Called on threads of the library, several at once, never from inside sendRequest. The response stays the
  // library's.
  virtual void responseReceived(VEXOResponse* response) = 0;
  virtual ~VEXOClientListener();
};

class VEXOClient {
 public:
  enum eLogLevel : int {};

  // A new client that reports to `listener`, which must outlive it; null on failure. The caller deletes it.
  static VEXOClient* createInstance(VEXOClientListener* listener, bool flag, eLogLevel logLevel);

  // No report is in progress, and none follows, once the destructor has returned.
  virtual ~VEXOClient();

  // Starts a request; what it needs of `request` is copied before it returns. Any thread may call it.
  // Returns 0 when the request was accepted.
  int32_t sendRequest(VEXORequest* request);

 protected:
  VEXOClient();
};

}  // namespace zv_loc_fw

#endif  // KESD_PLATFORM_VEXO_CLIENT_H_
