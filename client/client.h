// libkes: Wi-Fi location scans through the daemon, typed.
//
//   auto client = kes::Client::Connect(kes::kDefaultSocketPath);
//   if (!client) return Fail(client.GetError());
//   auto scan = client->StartDiscovery({});
//   if (!scan) return Fail(scan.GetError());
//   auto result = scan->Wait(fenk::Clock::now() + 30s, -1);
//   if (result) for (const kes::Measurement& m : result->measurements) ...
//
// StartRanging does the same for the distances to peers. Any thread may use a Client, several at once; a scan belongs
// to one thread at a time. Nothing here throws. The library makes no thread of its own: what the daemon sends is served
// by the threads that wait. The daemon has fenk::kClientLimits.answerDeadline to accept a connection and to answer an
// invocation, which it does before it scans.
#ifndef KESD_CLIENT_CLIENT_H_
#define KESD_CLIENT_CLIENT_H_

#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "client/discovery_request.h"
#include "client/object_ref.h"
#include "client/pending_scan.h"
#include "client/ranging_request.h"
#include "client/result.h"
#include "host/fenksocket/connection.h"

namespace kes {

inline constexpr char kDefaultSocketPath[] = "/run/kesd/kesd.sock";

class Client {
 public:
  // Connects to the daemon's socket at `path`, which is at most 107 bytes long, and makes sure that a daemon of this
  // protocol answers there. kNoSocket, kNotASocket, kRefused, kNoPermission, kProtocol, kTimedOut, kLimit,
  // kInvalidArgument, kOutOfMemory, kSystem; kWoken when a signal handler ran while it connected.
  static Result<Client> Connect(const std::string& path);

  // Each sends the request; the result may arrive before it returns. kRejected, kInvalidArgument, kProtocol,
  // kDisconnected, kTimedOut, kLimit, kOutOfMemory. A periodic ranging request has one result, too.
  Result<DiscoveryScan> StartDiscovery(const DiscoveryRequest& request);
  Result<RangingScan> StartRanging(const RangingRequest& request);

 private:
  // How a kind of request is invoked.
  struct Method {
    uint32_t service;
    uint32_t operation;
    uint32_t counts;  // input buffers, the callback object, and the request handle out
    uint32_t resultCounts;
  };

  explicit Client(std::shared_ptr<fenk::Connection> link) : connection(std::move(link)) {}

  Result<ObjectRef> OpenService(uint32_t id);
  Result<PendingScan> Start(const Method& method, std::span<const ObjectArg> inputBuffers);

  std::shared_ptr<fenk::Connection> connection;
};

}  // namespace kes

#endif  // KESD_CLIENT_CLIENT_H_
