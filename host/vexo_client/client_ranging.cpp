// The client's ranging requests.
#include <algorithm>
#include <chrono>
#include <new>
#include <utility>

#include "host/vexo_client/client.h"
#include "host/vexo_client/ranging_response.h"
#include "host/wifi/ranging_parameters.h"
#include "platform/log.h"

namespace vexo_host {
namespace {

using std::chrono::milliseconds;
using wifi::ScanStatus;

constexpr char kTag[] = "vexo_client";

}  // namespace

struct Client::Ranging {
  Ranging(const zv_loc_fw::VEXORangingScanRequest& request, Place somePlace, Place someNodePlaces)
      : place(std::move(somePlace)),
        nodePlaces(std::move(someNodePlaces)),
        id(request.getRequestId()),
        timeout(BoundedTimeout(request.ts, wifi::kDefaultRangingTimeoutMs)) {
    query.timeout = timeout;
    query.nodes.reserve(request.nodes.count);
    for (uint32_t i = 0; i < request.nodes.count; ++i) query.nodes.push_back(request.nodes[i]);
  }

  Ranging(const zv_loc_fw::VEXOPeriodicRangingScanRequest& request, Place somePlace, Place someNodePlaces)
      : place(std::move(somePlace)),
        nodePlaces(std::move(someNodePlaces)),
        id(request.getRequestId()),
        timeout(BoundedTimeout(request.ts, wifi::kDefaultRangingTimeoutMs)) {
    query.timeout = timeout;
    query.nodes.reserve(request.nodes.count);
    int32_t shortest = wifi::kMaxRangingIntervalMs;
    int32_t most = 1;
    for (uint32_t i = 0; i < request.nodes.count; ++i) {
      const zv_loc_fw::VEXOPeriodicNodeInfo& node = request.nodes[i];
      query.nodes.push_back(node);
      shortest = std::min(shortest, node.value5);
      most = std::max(most, node.value6);
    }
    interval = milliseconds(std::max(shortest, wifi::kMinRangingIntervalMs));
    roundsLeft = std::min(most, wifi::kMaxRangingRounds);
  }

  const Place place, nodePlaces;
  const uint32_t id;
  const milliseconds timeout;
  milliseconds interval{0};
  RangingQuery query;
  // Rounds of one request never overlap, so these need no lock.
  int32_t roundsLeft = 1;
  TimePoint roundStart;
};

template <typename Request>
Client::SendResult Client::TakeRanging(const Request& request, Place place) {
  const uint32_t nodes = request.nodes.count;
  if (nodes > kMaxRangingNodes) {
    zv_loc_fw::log_warning(kTag, "request %u refused: %u nodes, at most %u are admitted\n", request.getRequestId(),
                           nodes, kMaxRangingNodes);
    return kTooMany;
  }
  Place nodePlaces(nodesInFlight, nodes, kMaxRangingNodesInFlight);
  if (!nodePlaces.IsTaken()) {
    zv_loc_fw::log_warning(kTag, "request %u refused: with its %u nodes more than %u would be in flight\n",
                           request.getRequestId(), nodes, kMaxRangingNodesInFlight);
    return kTooMany;
  }
  return SendRanging(std::make_shared<Ranging>(request, std::move(place), std::move(nodePlaces)));
}

template Client::SendResult Client::TakeRanging(const zv_loc_fw::VEXORangingScanRequest&, Place);
template Client::SendResult Client::TakeRanging(const zv_loc_fw::VEXOPeriodicRangingScanRequest&, Place);

Client::SendResult Client::SendRanging(const RangingPointer& ranging) {
  if (!ranging->query.nodes.empty()) {
    return StartRound(ranging, Scheduler::Clock::now()) ? kAccepted : kNoMemory;
  }
  ranging->roundsLeft = 1;
  const auto refuse = [this, ranging] { Report(ranging, ScanStatus::kInvalidRequest, {}); };
  return ScheduleNow(refuse) ? kAccepted : kNoMemory;
}

// False when there is no memory; then nothing was begun.
bool Client::StartRound(const RangingPointer& ranging, TimePoint start) noexcept try {
  ranging->roundStart = start;
  const auto answer = std::make_shared<Answer>();
  RangingDone done = [this, ranging, answer](ScanStatus status, const std::vector<RangedPeer>& peers) {
    if (Settle(*answer)) Report(ranging, status, peers);
  };
  answer->timeout = Schedule(start + ranging->timeout, [this, ranging, answer] {
    if (answer->Claim()) Report(ranging, ScanStatus::kTimedOut, {});
  });
  if (!answer->timeout) return false;
  return source->StartRanging({ranging, &ranging->query}, std::move(done)) || !Settle(*answer);
} catch (const std::bad_alloc&) {
  return false;
}

// A source that could not measure at all has no measurements; otherwise there is one for each node.
void Client::Report(const RangingPointer& ranging, ScanStatus status, const std::vector<RangedPeer>& peers) noexcept {
  {
    RangingResponse response(ranging->id, status);
    try {
      if (status == ScanStatus::kOk || status == ScanStatus::kTimedOut) {
        response.Fill(ranging->query.nodes, peers);
      }
    } catch (const std::bad_alloc&) {
      zv_loc_fw::log_error(kTag, "request %u: no memory for the response\n", ranging->id);
      response.scanStatus = static_cast<uint32_t>(ScanStatus::kFailed);
    }
    listener.responseReceived(&response);
  }
  heap.ResponseEnded();

  if (--ranging->roundsLeft == 0) return;
  const TimePoint next = std::max(ranging->roundStart + ranging->interval, Scheduler::Clock::now());
  const auto nextRound = [this, ranging, next] {
    if (!StartRound(ranging, next)) {
      zv_loc_fw::log_error(kTag, "request %u: no memory, the remaining rounds are dropped\n", ranging->id);
    }
  };
  if (!Schedule(next, nextRound)) {
    zv_loc_fw::log_error(kTag, "request %u: no memory, the remaining rounds are dropped\n", ranging->id);
  }
}

}  // namespace vexo_host
