// The library as the daemon sees it: through the platform's headers alone.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <future>
#include <memory>

#include "host/wifi/measurement_values.h"
#include "platform/vexo_client.h"

namespace zv_loc_fw {
namespace {

struct FirstReport {
  uint32_t id, status, measurements;
};

class Listener final : public VEXOClientListener {
 public:
  void responseReceived(VEXOResponse* response) override {
    if (const auto* discovery = dynamic_cast<VEXODiscoveryScanResponse*>(response)) {
      first.set_value({response->getRequestId(), discovery->scanStatus, discovery->measurements.count});
    } else if (const auto* ranging = dynamic_cast<VEXORangingScanResponse*>(response)) {
      first.set_value({response->getRequestId(), ranging->scanStatus, ranging->measurements.count});
    }
  }
  std::promise<FirstReport> first;
};

TEST(Library, ScansWithTheSourceOfTheEnvironment) {
  const struct {
    const char* source;
    wifi::ScanStatus status;
    uint32_t measurements;
  } cases[] = {
      {nullptr, wifi::ScanStatus::kOk, 13},
      {"scene:aps=70,delay=0", wifi::ScanStatus::kOk, 70},
      {"tea leaves", wifi::ScanStatus::kUnavailable, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.source == nullptr ? "unset" : c.source);
    if (c.source == nullptr) {
      unsetenv("VEXO_SOURCE");
    } else {
      setenv("VEXO_SOURCE", c.source, 1);
    }
    Listener listener;
    const std::unique_ptr<VEXOClient> client(
        VEXOClient::createInstance(&listener, true, static_cast<VEXOClient::eLogLevel>(2)));
    ASSERT_NE(client, nullptr);
    std::unique_ptr<VEXORequest> request(
        VEXODiscoveryScanRequest::createFreshScanRequest(31, BAND_2, SCAN_TYPE_0, 0, 60'000, REQUEST_MODE_0, true));
    ASSERT_EQ(client->sendRequest(request.get()), 0);
    request.reset();
    std::future<FirstReport> future = listener.first.get_future();
    ASSERT_EQ(future.wait_for(std::chrono::seconds(30)), std::future_status::ready);
    const FirstReport report = future.get();
    EXPECT_EQ(report.id, 31u);
    EXPECT_EQ(report.status, static_cast<uint32_t>(c.status));
    EXPECT_EQ(report.measurements, c.measurements);
    EXPECT_NE(client->sendRequest(nullptr), 0);
  }
  EXPECT_EQ(VEXOClient::createInstance(nullptr, true, static_cast<VEXOClient::eLogLevel>(2)), nullptr);
}

TEST(Library, RangesInTheScene) {
  setenv("VEXO_SOURCE", "scene:delay=1", 1);
  Listener listener;
  const std::unique_ptr<VEXOClient> client(
      VEXOClient::createInstance(&listener, true, static_cast<VEXOClient::eLogLevel>(2)));
  ASSERT_NE(client, nullptr);
  vector<VEXONodeInfo> nodes;
  for (int i = 0; i < 3; ++i) nodes.push_back(VEXONodeInfo());
  VEXORangingScanRequest request(77, nodes, 60'000);
  ASSERT_EQ(client->sendRequest(&request), 0);
  std::future<FirstReport> future = listener.first.get_future();
  ASSERT_EQ(future.wait_for(std::chrono::seconds(30)), std::future_status::ready);
  const FirstReport report = future.get();
  EXPECT_EQ(report.id, 77u);
  EXPECT_EQ(report.status, static_cast<uint32_t>(wifi::ScanStatus::kOk));
  EXPECT_EQ(report.measurements, 3u);
}

TEST(Library, ShowsThePlatformsSymbolsAndNoOthers) {
  void* const library = dlopen("libvexo_client.so", RTLD_NOW | RTLD_NOLOAD);
  ASSERT_NE(library, nullptr) << dlerror();
  for (const char* name :
       {"_ZN9zv_loc_fw10VEXOClient14createInstanceEPNS_18VEXOClientListenerEbNS0_9eLogLevelE",
        "_ZN9zv_loc_fw10VEXOClient11sendRequestEPNS_11VEXORequestE", "_ZTIN9zv_loc_fw18VEXOClientListenerE",
        "_ZTVN9zv_loc_fw22VEXORangingScanRequestE", "_ZNK9zv_loc_fw14VEXOMacAddress7getHi24Ev"}) {
    EXPECT_NE(dlsym(library, name), nullptr) << name;
  }
  for (const char* name : {"_ZN9vexo_host6ClientD1Ev", "_ZN9vexo_host9Scheduler4StopEv"}) {
    EXPECT_EQ(dlsym(library, name), nullptr) << name;
  }
  dlclose(library);
}

}  // namespace
}  // namespace zv_loc_fw
