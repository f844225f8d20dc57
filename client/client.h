// libkes: Wi-Fi location scans through the daemon, typed.
//
//   auto client = kes::Client::Connect(kes::kDefaultSocketPath);
//   if (!client) return Fail(client.GetError());
//   auto scan = client->StartDiscovery({});
//   if (!scan) return Fail(scan.GetError());
//   auto result = scan->Wait(fenk::Clock::now() + 30s, -1);
//   if (result) for (const kes::Measurement& m : result->measurements) ...
//
// Any thread may use a Client, several at once; a DiscoveryScan belongs to one thread at a time. Nothing here throws.
// The library makes no thread of its own: what the daemon sends is served by the threads that wait. The daemon has
// fenk::kClientLimits.answerDeadline to accept a connection and to answer an invocation, which it does before it scans.
#ifndef KESD_CLIENT_CLIENT_H_
#define KESD_CLIENT_CLIENT_H_

#include <memory>
#include <optional>

#include "client/discovery_request.h"
#include "client/discovery_result.h"
#include "client/object_ref.h"
#include "client/result.h"
#include "host/fenksocket/connection.h"

namespace kes {

inline constexpr char kDefaultSocketPath[] = "/run/kesd/kesd.sock";

// A discovery scan that the daemon works on. Its end, before a result has come, aborts the request.
class DiscoveryScan {
 public:
  // Waits for the one result, serving the connection meanwhile. kTimedOut when `deadline` passes first, kWoken when
  // `wakeFd` becomes readable first (negative is none); the scan goes on, and Wait may be called again. kDisconnected
  // when the connection ended; kProtocol, kOutOfMemory. After a result has come, every call gives it again.
  Result<DiscoveryResult> Wait(std::optional<fenk::Clock::time_point> deadline, int wakeFd);

  // Releases the request handle. The daemon then drops the request; a result that is on its way may still arrive.
  void Abort() { handle.Reset(); }

 private:
  friend class Client;
  DiscoveryScan(std::shared_ptr<fenk::Connection> link, ObjectRef callback, ObjectRef request)
      : connection(std::move(link)), receiver(std::move(callback)), handle(std::move(request)) {}

  std::shared_ptr<fenk::Connection> connection;
  ObjectRef receiver;
  ObjectRef handle;  // released first
};

class Client {
 public:
  // Connects to the daemon's socket at `path`, which is at most 107 bytes long, and makes sure that a daemon of this
  // protocol answers there. kNoSocket, kNotASocket, kRefused, kNoPermission, kProtocol, kTimedOut, kInvalidArgument,
  // kOutOfMemory, kSystem; kWoken when a signal handler ran while it connected.
  static Result<Client> Connect(const std::string& path);

  // Sends the request; the result may arrive before this returns. kRejected, kInvalidArgument, kProtocol,
  // kDisconnected, kTimedOut, kLimit, kOutOfMemory.
  Result<DiscoveryScan> StartDiscovery(const DiscoveryRequest& request);

 private:
  explicit Client(std::shared_ptr<fenk::Connection> link) : connection(std::move(link)) {}

  Result<ObjectRef> OpenService(uint32_t id);

  std::shared_ptr<fenk::Connection> connection;
};

}  // namespace kes

#endif  // KESD_CLIENT_CLIENT_H_
