#include "client/client.h"

#include <new>
#include <vector>

#include "client/invocation.h"
#include "client/socket_connect.h"
#include "host/fenksocket/limits.h"
#include "ipc/services.h"

namespace kes {

Result<Client> Client::Connect(const std::string& path) try {
  Result<fenk::UniqueFd> socket = ConnectToSocket(path, fenk::kClientLimits.answerDeadline);
  if (!socket) return socket.GetError();
  std::shared_ptr<fenk::Connection> connection =
      fenk::Connection::Create(std::move(*socket), fenk::kClientLimits, Object{nullptr, nullptr});
  if (connection == nullptr) return OutOfMemory();
  Client client(std::move(connection));
  const Result<ObjectRef> greeting = client.OpenService(SERVICE_ID_DISCOVERY_SCAN);
  if (greeting) return client;
  if (greeting.GetError().kind != ErrorKind::kDisconnected) return greeting.GetError();
  return Error{ErrorKind::kProtocol, "the peer ended the connection: it is not kesd, or another version, or full"};
} catch (const std::bad_alloc&) {
  return OutOfMemory();
}

Result<ObjectRef> Client::OpenService(uint32_t id) {
  const ObjectRef root(connection->PeerRoot());
  if (!root) return OutOfMemory();
  ObjectArg args[2] = {InputBuffer(&id, sizeof id), {}};
  const int32_t code = root.Get().invoke(root.Get().context, ROOT_OP_OPEN, args, kRootOpenCounts);
  if (code > OBJECT_OK) return Error{ErrorKind::kProtocol, "the daemon does not offer this service"};
  if (code != OBJECT_OK) return InvocationError(code, *connection);
  ObjectRef service(args[1].object);
  if (!service) return Error{ErrorKind::kProtocol, "the daemon opened no service"};
  return Result<ObjectRef>(std::move(service));
}

Result<PendingScan> Client::Start(const Method& method, std::span<const ObjectArg> inputBuffers) {
  Result<ObjectRef> service = OpenService(method.service);
  if (!service) return service.GetError();
  ObjectRef receiver = ResultReceiver::Create(method.resultCounts);
  if (!receiver) return OutOfMemory();

  std::vector<ObjectArg> args(inputBuffers.begin(), inputBuffers.end());
  args.resize(inputBuffers.size() + 2);
  ObjectArg& callback = args[inputBuffers.size()];
  const ObjectArg& request = args[inputBuffers.size() + 1];
  callback.object = receiver.Get();
  const Object& target = service->Get();
  const int32_t code = target.invoke(target.context, method.operation, args.data(), method.counts);
  if (code != OBJECT_OK) return InvocationError(code, *connection);
  ObjectRef handle(request.object);
  if (!handle) return Error{ErrorKind::kProtocol, "the daemon gave no request handle"};
  return PendingScan(connection, std::move(receiver), std::move(handle));
}

Result<DiscoveryScan> Client::StartDiscovery(const DiscoveryRequest& request) try {
  const Result<DiscoveryRequestBuffers> encoded = EncodeDiscoveryRequest(request);
  if (!encoded) return encoded.GetError();
  const ObjectArg inputBuffers[] = {InputBuffer(encoded->params.data(), encoded->params.size()),
                                    InputBuffer(encoded->channels), InputBuffer(encoded->ssids),
                                    InputBuffer(encoded->macs)};
  Result<PendingScan> scan =
      Start({SERVICE_ID_DISCOVERY_SCAN, kStartDiscoveryScan, kStartDiscoveryScanCounts, kDeliverDiscoveryResultCounts},
            inputBuffers);
  if (!scan) return scan.GetError();
  return DiscoveryScan(std::move(*scan));
} catch (const std::bad_alloc&) {
  return OutOfMemory();
}

Result<RangingScan> Client::StartRanging(const RangingRequest& request) try {
  const Result<RangingRequestBuffers> encoded = EncodeRangingRequest(request);
  if (!encoded) return encoded.GetError();
  const ObjectArg inputBuffers[] = {InputBuffer(encoded->nodes), InputBuffer(&encoded->params, sizeof encoded->params)};
  const uint32_t operation = request.periodic ? kStartPeriodicRangingScan : kStartRangingScan;
  Result<PendingScan> scan =
      Start({SERVICE_ID_RANGING_SCAN, operation, kStartRangingScanCounts, kDeliverRangingResultCounts}, inputBuffers);
  if (!scan) return scan.GetError();
  return RangingScan(std::move(*scan));
} catch (const std::bad_alloc&) {
  return OutOfMemory();
}

}  // namespace kes
