// Requests that the daemon works on.
#ifndef KESD_CLIENT_PENDING_SCAN_H_
#define KESD_CLIENT_PENDING_SCAN_H_

#include <memory>
#include <optional>

#include "client/discovery_result.h"
#include "client/object_ref.h"
#include "client/ranging_result.h"
#include "client/result.h"
#include "client/result_receiver.h"
#include "host/fenksocket/connection.h"

namespace kes {

// A request of either kind. Its end, before a result has come, aborts the request.
class PendingScan {
 public:
  // Releases the request handle. The daemon then drops the request; a result that is on its way may still arrive.
  void Abort() { handle.Reset(); }

 protected:
  // `callback` is a ResultReceiver; `request`, the request handle.
  PendingScan(std::shared_ptr<fenk::Connection> link, ObjectRef callback, ObjectRef request)
      : connection(std::move(link)), receiver(std::move(callback)), handle(std::move(request)) {}

  // The buffers of the result, once it is there; the errors are those of the scans' Wait.
  Result<const ResultReceiver::Buffers*> Await(std::optional<fenk::Clock::time_point> deadline, int wakeFd);

 private:
  friend class Client;  // makes it

  std::shared_ptr<fenk::Connection> connection;
  ObjectRef receiver;
  ObjectRef handle;  // released first
};

// Each kind waits for its one result, serving the connection meanwhile. kTimedOut when `deadline` passes first, kWoken
// when `wakeFd` becomes readable first (negative is none); the scan goes on, and Wait may be called again.
// kDisconnected when the connection ended; kLimit when the daemon has given the callback back without a result, which
// was too long for this end or found no memory, or after Abort; kProtocol, kOutOfMemory. After a result has come, every
// call gives it again.
class DiscoveryScan : public PendingScan {
 public:
  explicit DiscoveryScan(PendingScan&& started) : PendingScan(std::move(started)) {}
  Result<DiscoveryResult> Wait(std::optional<fenk::Clock::time_point> deadline, int wakeFd);
};

class RangingScan : public PendingScan {
 public:
  explicit RangingScan(PendingScan&& started) : PendingScan(std::move(started)) {}
  Result<RangingResult> Wait(std::optional<fenk::Clock::time_point> deadline, int wakeFd);
};

}  // namespace kes

#endif  // KESD_CLIENT_PENDING_SCAN_H_
