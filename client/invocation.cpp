#include "client/invocation.h"

namespace kes {

ObjectArg InputBuffer(const void* first, std::size_t size) {
  ObjectArg arg{};
  arg.buffer.ptr = size == 0 ? nullptr : const_cast<void*>(first);  // the contract has one view for both directions
  arg.buffer.size = size;
  return arg;
}

Error Disconnected(const fenk::Connection& connection) {
  const fenk::ConnectionEnd end = connection.End();
  if (end.kind == fenk::EndKind::kViolation) return {ErrorKind::kProtocol, end.what};
  return {ErrorKind::kDisconnected, "the daemon ended the connection"};
}

Error InvocationError(int32_t code, const fenk::Connection& connection) {
  switch (code) {
    case fenk::kErrorDisconnected:
      // A peer that says nothing at all loses its connection about when the invocation's own time is over.
      if (connection.End().kind != fenk::EndKind::kDeadline) return Disconnected(connection);
      [[fallthrough]];
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

}  // namespace kes
