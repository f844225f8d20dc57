// Which requests share a scan, and when each is served.
#include "host/vexo_client/nl80211/scan_queue.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "host/vexo_client/nl80211/scan_plan.h"
#include "host/vexo_client/test_support.h"

namespace vexo_host::nl80211 {
namespace {

using std::chrono::steady_clock;
using Frequencies = std::set<uint32_t>;

const std::vector<uint32_t> kRadio = {2412, 2437, 2462, 5180, 5500, 5955, 5975, 6135};

DiscoveryQuery Query(bool active, const std::vector<uint32_t>& channels, const std::vector<const char*>& ssids = {},
                     const std::vector<uint64_t>& macAddresses = {}) {
  return {active ? wifi::ScanType::kActive : wifi::ScanType::kPassive,
          MakeFilters(wifi::Band::kAll, channels, ssids, macAddresses)};
}

TEST(ScanPlans, AreWhatTheQueryAdmitsOfTheRadio) {
  const struct {
    DiscoveryQuery query;
    Frequencies frequencies;
    std::vector<std::set<std::string>> ssids;  // of each scan
    uint64_t bssid = 0;
  } cases[] = {
      {Query(true, {}), {2412, 2437, 2462, 5180, 5500, 5975, 6135}, {{""}}},  // 5955 is no preferred channel
      {Query(true, {5955, 1}), {2412, 5955}, {{""}}},
      {Query(false, {36}, {"a"}), {5180}, {{}}},
      {Query(true, {36}, {"a", "b"}), {5180}, {{"a", "b"}}},
      {Query(true, {36}, {"e", "d", "c", "b", "a"}), {5180}, {{"a", "b", "c"}, {"d", "e"}}},
      {Query(true, {36}, {}, {0x020000000001}), {5180}, {{""}}, 0x020000000001},
      {Query(true, {36}, {}, {1, 2}), {5180}, {{""}}},
      {Query(true, {165}), {}, {}},
  };
  for (const auto& [query, frequencies, ssids, bssid] : cases) {
    const std::vector<ScanPlan> plans = PlansFor(query, kRadio, 3);
    ASSERT_EQ(plans.size(), ssids.size());
    for (size_t i = 0; i < plans.size(); ++i) {
      EXPECT_EQ(plans[i].frequenciesMhz, frequencies);
      EXPECT_EQ(plans[i].ssids, ssids[i]);
      EXPECT_EQ(plans[i].bssid, bssid);
    }
  }
}

class Queue : public testing::Test {
 protected:
  // The request and its number, by which End tells whom it serves.
  void Add(const DiscoveryQuery& query) {
    requests.push_back(std::make_shared<ScanRequest>());
    queue.Add(requests.back(), PlansFor(query, kRadio, 3), 3);
  }
  const ScanTurn* Begin() { return queue.Begin(now += std::chrono::seconds(1)); }
  std::set<size_t> End(wifi::ScanStatus status = wifi::ScanStatus::kOk) {
    std::set<size_t> served;
    for (const auto& request : queue.End(status)) {
      served.insert(static_cast<size_t>(std::find(requests.begin(), requests.end(), request) - requests.begin()));
    }
    return served;
  }

  steady_clock::time_point now;
  std::vector<std::shared_ptr<ScanRequest>> requests;
  ScanQueue queue;
};

TEST_F(Queue, JoinsWhatCoversAndMergesWhatWaits) {
  Add(Query(true, {1, 6}));
  ASSERT_NE(Begin(), nullptr);
  Add(Query(true, {6}));              // 1: joins the running one
  Add(Query(true, {6}, {}, {1}));     // 2: so does one address of many
  Add(Query(true, {36}));             // 3: waits
  Add(Query(true, {11}));             // 4: widens it
  Add(Query(true, {11}, {"a"}));      // 5: and so does a name
  Add(Query(false, {6}));             // 6: an active scan does not serve a passive one
  Add(Query(true, {6}, {"b", "c"}));  // 7: more names than one scan takes
  EXPECT_EQ(End(), (std::set<size_t>{0, 1, 2}));

  const ScanTurn* turn = Begin();
  EXPECT_EQ(turn->plan.frequenciesMhz, (Frequencies{2462, 5180}));
  EXPECT_EQ(turn->plan.ssids, (std::set<std::string>{"", "a"}));
  EXPECT_EQ(End(), (std::set<size_t>{3, 4, 5}));
  EXPECT_TRUE(Begin()->plan.IsPassive());
  EXPECT_EQ(End(), std::set<size_t>{6});
  ASSERT_NE(Begin(), nullptr);
  EXPECT_EQ(End(), std::set<size_t>{7});
  EXPECT_EQ(Begin(), nullptr);
}

TEST_F(Queue, ServesARequestOfSeveralScansWithTheLastSinceTheFirst) {
  Add(Query(true, {1}, {"a", "b", "c", "d"}));
  Begin();
  const steady_clock::time_point first = queue.Since();
  Add(Query(true, {1}, {"a", "b", "c", "e"}));  // joins, and waits for its own second
  EXPECT_EQ(End(wifi::ScanStatus::kFailed), std::set<size_t>{});
  Begin();
  EXPECT_EQ(queue.Since(), first);
  EXPECT_EQ(End(), (std::set<size_t>{0, 1}));
  for (const auto& request : requests) EXPECT_EQ(request->status, wifi::ScanStatus::kFailed);
}

}  // namespace
}  // namespace vexo_host::nl80211
