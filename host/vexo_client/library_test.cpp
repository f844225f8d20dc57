// The library as the daemon sees it: through the platform's headers alone.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <future>
#include <memory>

#include "platform/vexo_client.h"

namespace zv_loc_fw {
namespace {

class Listener final : public VEXOClientListener {
 public:
  void responseReceived(VEXOResponse* response) override {
    measurements.set_value(dynamic_cast<VEXODiscoveryScanResponse&>(*response).measurements.count);
  }
  std::promise<uint32_t> measurements;
};

TEST(Library, ScansTheSceneUnlessTheEnvironmentNamesAnotherSource) {
  unsetenv("VEXO_SOURCE");
  Listener listener;
  const std::unique_ptr<VEXOClient> client(
      VEXOClient::createInstance(&listener, true, static_cast<VEXOClient::eLogLevel>(2)));
  ASSERT_NE(client, nullptr);
  const std::unique_ptr<VEXORequest> request(
      VEXODiscoveryScanRequest::createFreshScanRequest(31, BAND_2, SCAN_TYPE_0, 0, 60'000, REQUEST_MODE_0, true));
  ASSERT_EQ(client->sendRequest(request.get()), 0);
  std::future<uint32_t> measurements = listener.measurements.get_future();
  ASSERT_EQ(measurements.wait_for(std::chrono::seconds(30)), std::future_status::ready);
  EXPECT_EQ(measurements.get(), 13u);
  EXPECT_NE(client->sendRequest(nullptr), 0);
  EXPECT_EQ(VEXOClient::createInstance(nullptr, true, static_cast<VEXOClient::eLogLevel>(2)), nullptr);
}

}  // namespace
}  // namespace zv_loc_fw
