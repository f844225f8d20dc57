#include "host/vexo_client/client.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <utility>

#include "host/vexo_client/discovery_request.h"
#include "host/vexo_client/discovery_response.h"
#include "platform/log.h"

namespace vexo_host {
namespace {

using std::chrono::milliseconds;
using wifi::ScanStatus;

constexpr char kTag[] = "vexo_client";

}  // namespace

struct Client::Discovery {
  Discovery(const DiscoveryRequest& request, Place somePlace)
      : place(std::move(somePlace)),
        id(request.getRequestId()),
        mode(request.mode),
        ageFilterMs(request.ageFilterMs),
        enough(std::max(request.fallbackCount, 1u)) {
    query.scanType = request.scanType;
    query.filters = DiscoveryFilters(request.band);
    valid = query.filters.SetChannels(request.channels);
    query.filters.SetSsids(request.ssids);
    query.filters.SetMacAddresses(request.macAddresses);
  }

  const Place place;
  const uint32_t id;
  const ScanMode mode;
  const uint32_t ageFilterMs;
  const uint32_t enough;  // cached measurements that make a scan needless
  DiscoveryQuery query;
  bool valid;
  Answer answer;
};

std::unique_ptr<Client> Client::Create(zv_loc_fw::VEXOClientListener& listener, const SourceMaker& makeSource) noexcept
    try {
  std::unique_ptr<Client> client(new Client(listener));
  if (!client->scheduler.Start()) return nullptr;
  client->source = makeSource(client->scheduler);
  return client->source == nullptr ? nullptr : std::move(client);
} catch (const std::exception& e) {
  zv_loc_fw::log_error(kTag, "cannot make a client: %s\n", e.what());
  return nullptr;
}

// The tasks use the source, so they end first.
Client::~Client() { scheduler.Stop(); }

Client::SendResult Client::Send(const zv_loc_fw::VEXORequest& request) noexcept try {
  Place place(inFlight, 1, kMaxRequestsInFlight);
  if (!place.IsTaken()) {
    zv_loc_fw::log_warning(kTag, "request %u refused: %u are in flight\n", request.getRequestId(),
                           kMaxRequestsInFlight);
    return kTooMany;
  }
  if (const auto* discovery = dynamic_cast<const DiscoveryRequest*>(&request)) {
    return SendDiscovery(*discovery, std::move(place));
  }
  if (const auto* ranging = dynamic_cast<const zv_loc_fw::VEXORangingScanRequest*>(&request)) {
    return TakeRanging(*ranging, std::move(place));
  }
  if (const auto* periodic = dynamic_cast<const zv_loc_fw::VEXOPeriodicRangingScanRequest*>(&request)) {
    return TakeRanging(*periodic, std::move(place));
  }
  zv_loc_fw::log_error(kTag, "request %u refused: of no known kind\n", request.getRequestId());
  return kUnknownKind;
} catch (const std::exception& e) {
  zv_loc_fw::log_error(kTag, "request %u refused: %s\n", request.getRequestId(), e.what());
  return kNoMemory;
}

// True for the first who asks, and only for them; then the timeout is called off. Not for the timeout itself, which may
// fall due while its ID is still being stored.
bool Client::Settle(Answer& answer) {
  if (!answer.Claim()) return false;
  if (answer.timeout) scheduler.Cancel(*answer.timeout);
  return true;
}

Client::SendResult Client::SendDiscovery(const DiscoveryRequest& request, Place place) {
  const auto discovery = std::make_shared<Discovery>(request, std::move(place));
  if (!discovery->valid) {
    const auto refuse = [this, discovery] { Report(*discovery, ScanStatus::kInvalidRequest, nullptr); };
    return ScheduleNow(refuse) ? kAccepted : kNoMemory;
  }
  if (discovery->mode == ScanMode::kCacheOnly) {
    const auto answer = [this, discovery] { ReportCached(*discovery, ScanStatus::kOk); };
    return ScheduleNow(answer) ? kAccepted : kNoMemory;
  }

  std::optional<Scheduler::TaskId>& timeout = discovery->answer.timeout;
  const TimePoint due = Scheduler::Clock::now() + BoundedTimeout(request.timeoutMs, wifi::kDefaultTimeoutMs);
  timeout = Schedule(due, [this, discovery] {
    if (discovery->answer.Claim()) ReportCached(*discovery, ScanStatus::kTimedOut);
  });
  if (!timeout) return kNoMemory;
  const bool started = discovery->mode == ScanMode::kFresh
                           ? StartScan(discovery)
                           : ScheduleNow([this, discovery] { AnswerFromCacheOrScan(discovery); });
  return started || !Settle(discovery->answer) ? kAccepted : kNoMemory;
}

void Client::AnswerFromCacheOrScan(const DiscoveryPointer& discovery) noexcept {
  try {
    const BssList cached = Cached(*discovery);
    const auto admitted = std::count_if(cached->begin(), cached->end(),
                                        [&](const BssPointer& bss) { return discovery->query.filters.Admits(*bss); });
    if (admitted >= static_cast<int64_t>(discovery->enough)) {
      if (Settle(discovery->answer)) Report(*discovery, ScanStatus::kOk, cached);
      return;
    }
  } catch (const std::bad_alloc&) {
    // What the cache holds cannot be had, so the source has to answer.
  }
  if (!StartScan(discovery)) TakeScan(*discovery, ScanStatus::kFailed, nullptr);
}

// False when there is no memory for it.
bool Client::StartScan(const DiscoveryPointer& discovery) noexcept try {
  return source->StartScan({discovery, &discovery->query}, [this, discovery](ScanStatus status, BssList found) {
    TakeScan(*discovery, status, std::move(found));
  });
} catch (const std::bad_alloc&) {
  return false;
}

// On a thread of the scheduler.
void Client::TakeScan(Discovery& discovery, ScanStatus status, BssList found) noexcept {
  try {
    if (status == ScanStatus::kOk) cache.Insert(found);
  } catch (const std::bad_alloc&) {
    zv_loc_fw::log_error(kTag, "request %u: no memory for the scan's results in the cache\n", discovery.id);
  }
  if (!Settle(discovery.answer)) return;
  if (status == ScanStatus::kOk) {
    Report(discovery, status, std::move(found));
  } else {
    ReportCached(discovery, status);
  }
}

// What the cache holds that is young enough for the request. Throws std::bad_alloc.
BssList Client::Cached(const Discovery& discovery) {
  if (discovery.mode == ScanMode::kFresh) return nullptr;
  const TimePoint oldest =
      discovery.ageFilterMs == 0 ? TimePoint::min() : Scheduler::Clock::now() - milliseconds(discovery.ageFilterMs);
  return std::make_shared<const std::vector<BssPointer>>(cache.TakenSince(oldest));
}

void Client::ReportCached(Discovery& discovery, ScanStatus status) noexcept {
  BssList cached;
  try {
    cached = Cached(discovery);
  } catch (const std::bad_alloc&) {
    if (status == ScanStatus::kOk) status = ScanStatus::kFailed;
  }
  Report(discovery, status, std::move(cached));
}

void Client::Report(Discovery& discovery, ScanStatus status, BssList candidates) noexcept {
  {
    DiscoveryResponse response(discovery.id, status, source->Kind());
    try {
      response.Fill(std::move(candidates), discovery.query.filters);
    } catch (const std::bad_alloc&) {
      zv_loc_fw::log_error(kTag, "request %u: no memory for the response\n", discovery.id);
      response.scanStatus = static_cast<uint32_t>(ScanStatus::kFailed);
    }
    listener.responseReceived(&response);
  }
  heap.ResponseEnded();
}

}  // namespace vexo_host
