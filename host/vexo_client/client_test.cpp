#include "host/vexo_client/client.h"

#include <gtest/gtest.h>

#include <thread>

#include "host/vexo_client/scene/scene_source.h"
#include "host/vexo_client/test_support.h"

namespace vexo_host {
namespace {

using std::chrono::milliseconds;
using wifi::ScanStatus;
using zv_loc_fw::VEXODiscoveryScanRequest;
using RequestPointer = std::unique_ptr<VEXODiscoveryScanRequest>;

constexpr long kNoTimeout = 3'600'000;

RequestPointer Fresh(uint32_t id, long timeoutMs = kNoTimeout) {
  return RequestPointer(VEXODiscoveryScanRequest::createFreshScanRequest(
      id, zv_loc_fw::BAND_2, zv_loc_fw::SCAN_TYPE_1, 0, timeoutMs, zv_loc_fw::REQUEST_MODE_0, true));
}
RequestPointer CacheOnly(uint32_t id, uint32_t ageFilterMs = 0) {
  return RequestPointer(
      VEXODiscoveryScanRequest::createCacheOnlyRequest(id, zv_loc_fw::BAND_2, ageFilterMs, kNoTimeout, true));
}
RequestPointer Fallback(uint32_t id, uint32_t ageFilterMs, uint32_t enough, zv_loc_fw::eBand band = zv_loc_fw::BAND_2) {
  return RequestPointer(VEXODiscoveryScanRequest::createCacheFallbackRequest(
      id, band, zv_loc_fw::SCAN_TYPE_1, ageFilterMs, enough, kNoTimeout, true, true));
}

class UnknownRequest final : public zv_loc_fw::VEXORequest {
 public:
  UnknownRequest() : VEXORequest(1) {}
};

class ClientTest : public testing::Test {
 protected:
  void SetUp() override {
    client = Client::Create(listener, [&](Scheduler&) {
      auto made = std::make_unique<FakeSource>();
      source = made.get();
      return made;
    });
    ASSERT_NE(client, nullptr);
  }

  // Has the source report `found`, so that the cache holds it.
  void FillCache(std::vector<Bss> found) {
    ASSERT_EQ(client->Send(*Fresh(1)), 0);
    source->Answer(0, ScanStatus::kOk, std::move(found));
    ASSERT_EQ(listener.WaitFor(1).size(), 1u);
  }

  RecordingListener listener;
  std::unique_ptr<Client> client;
  FakeSource* source = nullptr;
};

TEST_F(ClientTest, ReportsWhatTheSourceFoundOnceFiltered) {
  RequestPointer request = Fresh(42);
  zv_loc_fw::VEXOMacAddress address;
  for (const int low : {1, 3, 4}) {
    address.setMac(0, low);
    request->macAddresses.push_back(address);
  }
  ASSERT_EQ(client->Send(*request), 0);
  request.reset();
  Bss empty = MakeBss(4, "bare", 2412);
  empty.elements.clear();
  source->Answer(
      0, ScanStatus::kOk,
      {MakeBss(1, "one", 2412, milliseconds(5'000)), MakeBss(2, "two", 2437), MakeBss(3, nullptr, 0), empty});
  const Report report = listener.WaitForOne();
  EXPECT_EQ(report.id, 42u);
  EXPECT_EQ(report.type, zv_loc_fw::RESPONSE_TYPE_DISCOVERY_SCAN);
  EXPECT_EQ(report.status, ScanStatus::kOk);
  EXPECT_EQ(report.source, wifi::SourceKind::kRadio);
  EXPECT_NE(report.madeAtUs, 0u);
  ASSERT_EQ(report.heard.size(), 3u);
  EXPECT_EQ(report.heard[0].bssid, 1u);
  EXPECT_EQ(report.heard[0].ssid, Ssid({'o', 'n', 'e'}));
  EXPECT_EQ(report.heard[0].elements, MakeBss(1, "one", 2412).elements);
  EXPECT_GE(report.heard[0].ageMs, 5'000u);
  EXPECT_LT(report.heard[0].ageMs, 120'000u);
  EXPECT_FALSE(report.heard[1].ssid.has_value());
  EXPECT_TRUE(report.heard[2].elements.empty());
}

TEST_F(ClientTest, ServesTheCacheWithoutScanning) {
  FillCache({MakeBss(1, "one", 2412, milliseconds(10'000)), MakeBss(2, "two", 5180, milliseconds(100))});
  const struct {
    const char* name;
    RequestPointer request;
    std::vector<uint64_t> bssids;
  } cases[] = {
      {"every age", CacheOnly(2), {1, 2}},
      {"young ones only", CacheOnly(3, 9'000), {2}},
      {"none is young enough", CacheOnly(4, 50), {}},
      {"the cache is enough", Fallback(5, 0, 2), {1, 2}},
      {"one is enough when none is asked for", Fallback(6, 0, 0), {1, 2}},
      {"enough that are young", Fallback(7, 9'000, 1), {2}},
      {"enough on the band", Fallback(8, 0, 1, zv_loc_fw::BAND_0), {1}},
  };
  size_t count = 1;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    ASSERT_EQ(client->Send(*c.request), 0);
    const std::vector<Report> reports = listener.WaitFor(++count);
    ASSERT_EQ(reports.size(), count);
    std::vector<uint64_t> bssids;
    for (const Heard& heard : reports.back().heard) bssids.push_back(heard.bssid);
    EXPECT_EQ(bssids, c.bssids);
    EXPECT_EQ(reports.back().status, ScanStatus::kOk);
  }
  EXPECT_EQ(source->ScanCount(), 1u);
}

TEST_F(ClientTest, FallsBackToAScanWhenTheCacheHoldsTooLittle) {
  FillCache({MakeBss(1, "one", 2412, milliseconds(10'000)), MakeBss(2, "two", 5180)});
  size_t scan = 1;
  for (RequestPointer (*make)() : {+[] { return Fallback(2, 0, 3); }, +[] { return Fallback(2, 5'000, 3); },
                                   +[] { return Fallback(2, 0, 3, zv_loc_fw::BAND_0); }}) {
    ASSERT_EQ(client->Send(*make()), 0);
    source->Answer(scan, ScanStatus::kOk, {MakeBss(7, "new", 2412)});
    const std::vector<Report> reports = listener.WaitFor(++scan);
    ASSERT_EQ(reports.size(), scan);
    ASSERT_EQ(reports.back().heard.size(), 1u);
    EXPECT_EQ(reports.back().heard[0].bssid, 7u);
  }
  // When the scan fails, what the cache holds is better than nothing; and a failed scan fills no cache.
  for (const auto& [request, heard] : {std::pair(Fallback(3, 0, 100).release(), 3u), {Fresh(4).release(), 0u}}) {
    ASSERT_EQ(client->Send(*RequestPointer(request)), 0);
    source->Answer(scan, ScanStatus::kUnavailable, {MakeBss(8, "lost", 2412)});
    const Report report = listener.WaitFor(++scan).back();
    EXPECT_EQ(report.status, ScanStatus::kUnavailable);
    EXPECT_EQ(report.heard.size(), heard);
  }
}

TEST_F(ClientTest, AnswersWhenTheTimeoutHasPassedAndCachesTheLateResult) {
  ASSERT_EQ(client->Send(*Fresh(1, 1)), 0);
  const Report report = listener.WaitForOne();
  EXPECT_EQ(report.status, ScanStatus::kTimedOut);
  EXPECT_TRUE(report.heard.empty());

  source->Answer(0, ScanStatus::kOk, {MakeBss(1, "late", 2412)});
  ASSERT_EQ(client->Send(*CacheOnly(2)), 0);
  const std::vector<Report> reports = listener.WaitFor(2);
  ASSERT_EQ(reports.size(), 2u);
  EXPECT_EQ(reports[1].id, 2u);  // and not request 1 once more
  EXPECT_EQ(reports[1].heard.size(), 1u);
}

TEST_F(ClientTest, RefusesRequestsOfUnknownKindAndTooManyAtOnce) {
  EXPECT_NE(client->Send(UnknownRequest()), 0);
  const RequestPointer request = Fresh(1);
  for (uint32_t i = 0; i < Client::kMaxRequestsInFlight; ++i) ASSERT_EQ(client->Send(*request), 0) << i;
  EXPECT_NE(client->Send(*request), 0);
  EXPECT_EQ(source->ScanCount(), Client::kMaxRequestsInFlight);
}

TEST(Client, IsNotMadeWithoutASource) {
  RecordingListener listener;
  EXPECT_EQ(Client::Create(listener, [](Scheduler&) { return nullptr; }), nullptr);
  EXPECT_EQ(Client::Create(listener, [](Scheduler&) -> std::unique_ptr<MeasurementSource> { throw std::bad_alloc(); }),
            nullptr);
}

}  // namespace
}  // namespace vexo_host
