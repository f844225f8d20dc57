#include <gtest/gtest.h>

#include <future>
#include <map>
#include <set>
#include <string>

#include "host/vexo_client/scene/beacon.h"
#include "host/vexo_client/scene/neighbourhood.h"
#include "host/vexo_client/scene/scene_source.h"
#include "host/vexo_client/test_support.h"
#include "host/wifi/channels.h"
#include "host/wifi/information_elements.h"

namespace vexo_host {
namespace {

using std::chrono::milliseconds;
using wifi::ScanType;

std::vector<Bss> Scan(const SceneOptions& options, ScanType scanType = ScanType::kPassive,
                      const std::vector<const char*>& ssids = {}) {
  const auto query =
      std::make_shared<DiscoveryQuery>(DiscoveryQuery{scanType, MakeFilters(wifi::Band::kAll, {}, ssids)});
  Scheduler scheduler;
  EXPECT_TRUE(scheduler.Start());
  SceneSource source(options, scheduler);
  std::promise<std::vector<Bss>> answer;
  EXPECT_TRUE(source.StartScan(query, [&](wifi::ScanStatus status, const BssList& found) {
    EXPECT_EQ(status, wifi::ScanStatus::kOk);
    std::vector<Bss> heard;
    for (const BssPointer& bss : *found) heard.push_back(*bss);
    answer.set_value(std::move(heard));
  }));
  std::future<std::vector<Bss>> future = answer.get_future();
  EXPECT_EQ(future.wait_for(kPatienceOfTests), std::future_status::ready);
  std::vector<Bss> found = future.get();
  scheduler.Stop();
  return found;
}

SceneOptions Options(uint32_t accessPoints, uint64_t seed = 1) { return {accessPoints, seed, milliseconds(0)}; }

const Bss* Find(const std::vector<Bss>& all, uint64_t bssid) {
  for (const Bss& bss : all) {
    if (bss.bssid == bssid) return &bss;
  }
  return nullptr;
}

constexpr uint64_t kEmptySsidNetwork = 0x0A1B2C3D4E11, kZeroedSsidNetwork = 0x02E0FC5510B7;

TEST(Scene, GivesTheSameMeasurementsForTheSameSeed) {
  using Heard = std::tuple<uint64_t, std::optional<Ssid>, int32_t, uint16_t, std::vector<uint8_t>>;
  std::vector<Heard> heard[3];
  const uint64_t seeds[] = {7, 7, 8};
  for (size_t i = 0; i < 3; ++i) {
    for (const Bss& bss : Scan(Options(300, seeds[i]))) {
      heard[i].emplace_back(bss.bssid, bss.ssid, bss.signalMbm, bss.capability, bss.elements);
    }
    ASSERT_EQ(heard[i].size(), 300u);
  }
  EXPECT_EQ(heard[0], heard[1]);
  EXPECT_NE(heard[0], heard[2]);
}

TEST(Scene, LosesWhatFadesAway) {
  SceneOptions options = Options(300);
  const std::vector<Bss> steady = Scan(options);
  options.fadingDb = 20;
  const std::vector<Bss> faded = Scan(options);
  EXPECT_LT(faded.size(), 290u);
  EXPECT_GT(faded.size(), 150u);
  for (const Bss& bss : faded) {
    EXPECT_GE(bss.signalMbm, -9'500);
    EXPECT_LE(std::abs(bss.signalMbm - Find(steady, bss.bssid)->signalMbm), 7'000);
  }
}

// Lengths that the standard fixes, whoever sends the element.
void ExpectTheStandardsLength(uint8_t id, std::span<const uint8_t> payload) {
  static const std::map<uint8_t, size_t> kFixed = {
      {wifi::kElementDsParameterSet, 1},  {wifi::kElementTim, 4},          {wifi::kElementBssLoad, 5},
      {wifi::kElementHtCapabilities, 26}, {wifi::kElementHtOperation, 22}, {wifi::kElementVhtCapabilities, 12},
      {wifi::kElementVhtOperation, 5},    {wifi::kElementErp, 1},          {wifi::kElementRmEnabledCapabilities, 5},
      {wifi::kElementPowerConstraint, 1}, {wifi::kElementTpcReport, 2},
  };
  if (kFixed.contains(id)) {
    EXPECT_EQ(payload.size(), kFixed.at(id)) << int{id};
  }
  if (id == wifi::kElementCountry) {
    EXPECT_EQ(payload.size() % 2, 0u);
  }
  if (id != wifi::kElementRsn) return;
  // Version and group cipher, pairwise and key management suites, capabilities; perhaps PMKIDs and management cipher:
  // the counts must lead exactly to the end.
  size_t at = 6;
  for (int list = 0; list < 2 && at + 2 <= payload.size(); ++list) at += 2 + 4u * payload[at];
  at += 2;
  if (at != payload.size()) at += 2 + 4;
  EXPECT_EQ(at, payload.size());
}

TEST(Scene, HearsWellFormedAccessPoints) {
  const std::vector<Bss> all = Scan(Options(2'000));
  std::set<uint64_t> bssids;
  for (const Bss& bss : all) {
    SCOPED_TRACE(bss.bssid);
    bssids.insert(bss.bssid);
    EXPECT_NE(wifi::ChannelOfFrequency(bss.frequencyMhz), 0u);
    EXPECT_GE(bss.signalMbm, -9'500);
    EXPECT_LT(bss.signalMbm, 0);
    EXPECT_TRUE(bss.bssid >> 40 & 2) << "an invented address is locally administered";

    wifi::ElementReader reader(bss.elements);
    std::map<uint8_t, int> count;
    int elements = 0;
    for (; const auto element = reader.Next(); ++elements) {
      ++count[element->id];
      ExpectTheStandardsLength(element->id, element->payload);
    }
    EXPECT_TRUE(reader.Rest().empty());
    EXPECT_LE(elements, 23);
    const auto ssid = wifi::FindElement(bss.elements, wifi::kElementSsid);
    ASSERT_TRUE(ssid && bss.ssid);
    EXPECT_EQ(Ssid(ssid->payload.begin(), ssid->payload.end()), *bss.ssid);
    for (const auto& [id, times] : count) {
      if (id == wifi::kElementVendorSpecific || id == wifi::kElementExtension) continue;
      EXPECT_EQ(times, 1) << int{id};
    }
    EXPECT_TRUE(bss.capability & 0x10 || !count.contains(wifi::kElementRsn)) << "RSN means privacy";
  }
  EXPECT_EQ(bssids.size(), all.size());
}

TEST(Scene, RevealsHiddenNetworksOnlyToADirectedProbe) {
  const Ssid empty, zeroed(10, 0);
  const std::string name = "backoffice", other = "_owetm_Stadtbibliothek";
  const struct {
    const char* label;
    ScanType scanType;
    std::vector<const char*> ssids;
    Ssid ofEmpty, ofZeroed;
  } cases[] = {
      {"passive", ScanType::kPassive, {"backoffice", other.c_str()}, empty, zeroed},
      {"active, undirected", ScanType::kActive, {}, empty, zeroed},
      {"active, for one", ScanType::kActive, {"backoffice"}, empty, Ssid(name.begin(), name.end())},
      {"active, for both",
       ScanType::kActive,
       {other.c_str(), "backoffice"},
       Ssid(other.begin(), other.end()),
       Ssid(name.begin(), name.end())},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    const std::vector<Bss> all = Scan(Options(kBuiltInAccessPoints), c.scanType, c.ssids);
    for (const auto& [bssid, expected, hidden] :
         {std::tuple{kEmptySsidNetwork, c.ofEmpty, empty}, {kZeroedSsidNetwork, c.ofZeroed, zeroed}}) {
      const Bss* const bss = Find(all, bssid);
      ASSERT_NE(bss, nullptr);
      EXPECT_EQ(*bss->ssid, expected);
      EXPECT_EQ(wifi::FindElement(bss->elements, wifi::kElementSsid)->payload.size(), expected.size());
      const bool isBeacon = wifi::FindElement(bss->elements, wifi::kElementTim).has_value();
      EXPECT_EQ(isBeacon, expected == hidden);
    }
  }
}

}  // namespace
}  // namespace vexo_host
