#include "client/client.h"

#include <new>

#include "client/discovery_receiver.h"
#include "client/socket_connect.h"
#include "host/fenksocket/limits.h"
#include "ipc/services.h"

namespace kes {
namespace {

ObjectArg InputBuffer(const void* first, std::size_t size) {
  ObjectArg arg{};
  arg.buffer.ptr = size == 0 ? nullptr : const_cast<void*>(first);  // the contract has one view for both directions
  arg.buffer.size = size;
  return arg;
}

template <typename Record>
ObjectArg InputBuffer(const std::vector<Record>& records) {
  return InputBuffer(records.data(), records.size() * sizeof(Record));
}

Error Disconnected(const fenk::Connection& connection) {
  const fenk::ConnectionEnd end = connection.End();
  if (end.kind == fenk::EndKind::kViolation) return {ErrorKind::kProtocol, end.what};
  return {ErrorKind::kDisconnected, "the daemon ended the connection"};
}

// What an invocation of the daemon's object came to, when it did not answer OBJECT_OK.
Error InvocationError(int32_t code, const fenk::Connection& connection) {
  switch (code) {
    case fenk::kErrorDisconnected:
      return Disconnected(connection);
    case fenk::kErrorTimedOut:
      return {ErrorKind::kTimedOut, "the daemon did not answer in time"};
    case fenk::kErrorLimit:
      return {ErrorKind::kLimit, "too many requests or objects at once"};
    case OBJECT_ERROR:
      return {ErrorKind::kRejected, "the daemon could not send the request to its Wi-Fi library"};
    case OBJECT_ERROR_INVALID:
      return {ErrorKind::kRejected, "the daemon does not accept such a request"};
    default:
      return {ErrorKind::kProtocol, "the daemon answered with the unknown code " + std::to_string(code)};
  }
}

}  // namespace

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
  if (code == OBJECT_ERROR_INVALID) return Error{ErrorKind::kProtocol, "the daemon does not offer this service"};
  if (code != OBJECT_OK) return InvocationError(code, *connection);
  ObjectRef service(args[1].object);
  if (!service) return Error{ErrorKind::kProtocol, "the daemon opened no service"};
  return Result<ObjectRef>(std::move(service));
}

Result<DiscoveryScan> Client::StartDiscovery(const DiscoveryRequest& request) try {
  Result<DiscoveryRequestBuffers> encoded = EncodeDiscoveryRequest(request);
  if (!encoded) return encoded.GetError();
  Result<ObjectRef> service = OpenService(SERVICE_ID_DISCOVERY_SCAN);
  if (!service) return service.GetError();
  ObjectRef receiver = DiscoveryReceiver::Create();
  if (!receiver) return OutOfMemory();

  ObjectArg args[6] = {InputBuffer(encoded->params.data(), encoded->params.size()),
                       InputBuffer(encoded->channels),
                       InputBuffer(encoded->ssids),
                       InputBuffer(encoded->macs),
                       {},
                       {}};
  args[4].object = receiver.Get();
  const Object& target = service->Get();
  const int32_t code = target.invoke(target.context, kStartDiscoveryScan, args, kStartDiscoveryScanCounts);
  if (code != OBJECT_OK) return InvocationError(code, *connection);
  ObjectRef handle(args[5].object);
  if (!handle) return Error{ErrorKind::kProtocol, "the daemon gave no request handle"};
  return DiscoveryScan(connection, std::move(receiver), std::move(handle));
} catch (const std::bad_alloc&) {
  return OutOfMemory();
}

Result<DiscoveryResult> DiscoveryScan::Wait(std::optional<fenk::Clock::time_point> deadline, int wakeFd) try {
  const DiscoveryReceiver& delivery = DiscoveryReceiver::Of(receiver);
  const fenk::WaitResult wait =
      connection->ServeUntil([&delivery] { return delivery.IsDelivered(); }, deadline, wakeFd);
  if (delivery.IsDelivered()) return delivery.Decode();  // whatever else happened at the same time
  switch (wait) {
    case fenk::WaitResult::kTimedOut:
      return Error{ErrorKind::kTimedOut, "the daemon delivered no result in time"};
    case fenk::WaitResult::kWoken:
      return Error{ErrorKind::kWoken, "interrupted"};
    case fenk::WaitResult::kDone:
    case fenk::WaitResult::kDisconnected:
      break;
  }
  return Disconnected(*connection);
} catch (const std::bad_alloc&) {
  return OutOfMemory();
}

}  // namespace kes
