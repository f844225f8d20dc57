#include "client/signal_history.h"

#include <algorithm>
#include <utility>

namespace kesctl {

HeardAccessPoint::State HeardAccessPoint::GetState() const {
  if (scansMissed != 0) return State::kGone;
  return scansKnown < SignalHistory::kNewScans ? State::kNew : State::kKnown;
}

void SignalHistory::Add(kes::DiscoveryResult result, std::chrono::steady_clock::time_point now) {
  if (result.status != wifi::ScanStatus::kOk && result.measurements.empty()) return;
  for (auto& [bssid, known] : accessPoints) {
    ++known.scansKnown;
    ++known.scansMissed;
    known.signals.emplace_back();
    if (known.signals.size() > kMaxSignals) known.signals.erase(known.signals.begin());
  }
  for (kes::Measurement& measurement : result.measurements) {
    const auto [place, isAdded] = accessPoints.try_emplace(measurement.bssid);
    HeardAccessPoint& heard = place->second;
    const int32_t signal = measurement.values.signalMbm;  // the smallest number when unknown
    if (isAdded) {
      heard.scansKnown = isEmpty ? kNewScans : 0;
      heard.signals.emplace_back();
    } else if (heard.scansMissed == 0 && signal <= heard.latest.values.signalMbm) {
      continue;
    }
    heard.scansMissed = 0;
    heard.signals.back() = signal;
    heard.heardAt = now;
    heard.latest = std::move(measurement);
  }
  std::erase_if(accessPoints, [](const auto& entry) { return entry.second.scansMissed > kGoneScans; });
  isEmpty = false;
}

std::vector<const HeardAccessPoint*> SignalHistory::Sorted() const {
  std::vector<const HeardAccessPoint*> sorted;
  for (const auto& [bssid, known] : accessPoints) sorted.push_back(&known);
  std::stable_sort(sorted.begin(), sorted.end(), [](const HeardAccessPoint* a, const HeardAccessPoint* b) {
    return a->latest.values.signalMbm > b->latest.values.signalMbm;
  });
  return sorted;
}

}  // namespace kesctl
