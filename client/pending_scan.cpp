#include "client/pending_scan.h"

#include <new>

#include "client/invocation.h"

namespace kes {

Result<const ResultReceiver::Buffers*> PendingScan::Await(std::optional<fenk::Clock::time_point> deadline,
                                                          int wakeFd) try {
  const ResultReceiver& delivery = ResultReceiver::Of(receiver);
  const fenk::WaitResult wait = connection->ServeUntil(
      [&delivery] { return delivery.IsDelivered() || delivery.IsGivenBack(); }, deadline, wakeFd);
  if (delivery.IsDelivered()) return delivery.Delivered();  // whatever else happened at the same time
  switch (wait) {
    case fenk::WaitResult::kTimedOut:
      return Error{ErrorKind::kTimedOut, "the daemon delivered no result in time"};
    case fenk::WaitResult::kWoken:
      return Error{ErrorKind::kWoken, "interrupted"};
    case fenk::WaitResult::kDone:
      if (connection->End().kind != fenk::EndKind::kOpen) break;
      return Error{ErrorKind::kLimit, "the daemon dropped the request or its result"};
    case fenk::WaitResult::kDisconnected:
      break;
  }
  return Disconnected(*connection);
} catch (const std::bad_alloc&) {
  return OutOfMemory();
}

Result<DiscoveryResult> DiscoveryScan::Wait(std::optional<fenk::Clock::time_point> deadline, int wakeFd) try {
  const Result<const ResultReceiver::Buffers*> delivered = Await(deadline, wakeFd);
  if (!delivered) return delivered.GetError();
  const ResultReceiver::Buffers& buffers = **delivered;
  return DecodeDiscoveryResult({buffers[0], buffers[1], buffers[2], buffers[3]});
} catch (const std::bad_alloc&) {  // from passing an error on
  return OutOfMemory();
}

Result<RangingResult> RangingScan::Wait(std::optional<fenk::Clock::time_point> deadline, int wakeFd) try {
  const Result<const ResultReceiver::Buffers*> delivered = Await(deadline, wakeFd);
  if (!delivered) return delivered.GetError();
  const ResultReceiver::Buffers& buffers = **delivered;
  return DecodeRangingResult({buffers[0], buffers[1], buffers[2], buffers[3], buffers[4]});
} catch (const std::bad_alloc&) {  // from passing an error on
  return OutOfMemory();
}

}  // namespace kes
