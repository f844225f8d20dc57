#include "host/vexo_client/nl80211/scan_plan.h"

#include <algorithm>
#include <utility>

#include "host/wifi/channels.h"

namespace vexo_host::nl80211 {
namespace {

template <typename T>
bool Includes(const std::set<T>& all, const std::set<T>& some) {
  return std::includes(all.begin(), all.end(), some.begin(), some.end());
}

// Whether it needs more of the 6 GHz band than a driver that follows announcements listens to.
bool HasOther6GHzChannels(const ScanPlan& plan) {
  return std::any_of(plan.frequenciesMhz.begin(), plan.frequenciesMhz.end(), [](uint32_t frequency) {
    return wifi::Is6GHz(frequency) && !wifi::IsPreferredScanningChannel(frequency);
  });
}

}  // namespace

bool Covers(const ScanPlan& plan, const ScanPlan& wanted) {
  return plan.IsPassive() == wanted.IsPassive() && (plan.bssid == 0 || plan.bssid == wanted.bssid) &&
         (wanted.colocated || !plan.colocated || !HasOther6GHzChannels(wanted)) &&
         Includes(plan.frequenciesMhz, wanted.frequenciesMhz) && Includes(plan.ssids, wanted.ssids);
}

bool Merge(ScanPlan& plan, const ScanPlan& wanted, size_t maxSsids) {
  if (plan.IsPassive() != wanted.IsPassive() || plan.bssid != wanted.bssid) return false;
  ScanPlan both = plan;
  both.colocated = plan.colocated && wanted.colocated;
  both.frequenciesMhz.insert(wanted.frequenciesMhz.begin(), wanted.frequenciesMhz.end());
  both.ssids.insert(wanted.ssids.begin(), wanted.ssids.end());
  if (both.ssids.size() > maxSsids) return false;
  plan = std::move(both);
  return true;
}

std::vector<ScanPlan> PlansFor(const DiscoveryQuery& query, const std::vector<uint32_t>& radioFrequenciesMhz,
                               size_t maxSsids) {
  ScanPlan plan;
  for (const uint32_t frequency : radioFrequenciesMhz) {
    const bool worthwhile =
        query.filters.ListsChannels() || !wifi::Is6GHz(frequency) || wifi::IsPreferredScanningChannel(frequency);
    if (worthwhile && query.filters.AdmitsFrequency(frequency)) plan.frequenciesMhz.insert(frequency);
  }
  if (plan.frequenciesMhz.empty()) return {};
  plan.colocated = !query.filters.ListsChannels() && wifi::Is6GHz(*plan.frequenciesMhz.rbegin());
  if (query.scanType == wifi::ScanType::kPassive) return {plan};

  if (query.filters.MacAddresses().size() == 1) plan.bssid = query.filters.MacAddresses().front();
  std::vector<ScanPlan> plans;
  for (const Ssid& ssid : query.filters.Ssids()) {
    if (plans.empty() || plans.back().ssids.size() >= maxSsids) plans.push_back(plan);
    plans.back().ssids.emplace(ssid.begin(), ssid.end());
  }
  if (plans.empty()) {
    plan.ssids.emplace();
    plans.push_back(std::move(plan));
  }
  return plans;
}

}  // namespace vexo_host::nl80211
