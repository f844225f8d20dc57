#include "host/vexo_client/nl80211/scan_queue.h"

#include <algorithm>
#include <utility>

namespace vexo_host::nl80211 {

void ScanQueue::Add(const std::shared_ptr<ScanRequest>& request, const std::vector<ScanPlan>& plans, size_t maxSsids) {
  request->scansLeft = plans.size();
  for (const ScanPlan& plan : plans) Add(request, plan, maxSsids);
}

void ScanQueue::Add(const std::shared_ptr<ScanRequest>& request, const ScanPlan& plan, size_t maxSsids) {
  const auto first = turns.begin() + (hasCurrent && !isOpen ? 1 : 0);
  const auto covering = std::find_if(first, turns.end(), [&](const ScanTurn& turn) { return Covers(turn.plan, plan); });
  if (covering != turns.end()) {
    covering->requests.push_back(request);
    if (hasCurrent && covering == turns.begin()) request->since = std::min(request->since, begun);
    return;
  }
  for (auto turn = turns.begin() + (hasCurrent ? 1 : 0); turn != turns.end(); ++turn) {
    if (!Merge(turn->plan, plan, maxSsids)) continue;
    turn->requests.push_back(request);
    return;
  }
  turns.push_back({plan, {request}});
}

const ScanTurn* ScanQueue::Begin(std::chrono::steady_clock::time_point now) {
  hasCurrent = !turns.empty();
  isOpen = true;
  if (!hasCurrent) return nullptr;
  begun = now;
  for (const auto& request : turns.front().requests) request->since = std::min(request->since, now);
  return &turns.front();
}

std::chrono::steady_clock::time_point ScanQueue::Since() const {
  auto since = std::chrono::steady_clock::time_point::max();
  for (const auto& request : turns.front().requests) since = std::min(since, request->since);
  return since;
}

std::vector<std::shared_ptr<ScanRequest>> ScanQueue::End(wifi::ScanStatus status) {
  std::vector<std::shared_ptr<ScanRequest>> served = std::move(turns.front().requests);
  turns.pop_front();
  hasCurrent = false;
  for (const auto& request : served) {
    if (request->status == wifi::ScanStatus::kOk) request->status = status;
  }
  std::erase_if(served, [](const auto& request) { return --request->scansLeft > 0; });
  return served;
}

}  // namespace vexo_host::nl80211
