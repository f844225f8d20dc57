// The response to a discovery request, with everything that it points to.
#ifndef KESD_HOST_VEXO_CLIENT_DISCOVERY_RESPONSE_H_
#define KESD_HOST_VEXO_CLIENT_DISCOVERY_RESPONSE_H_

#include <chrono>
#include <cstdint>
#include <memory>
#include <vector>

#include "host/vexo_client/bss.h"
#include "host/wifi/measurement_values.h"
#include "platform/vexo_response.h"

namespace vexo_host {

// One full-beacon measurement for each BSS. All of them lie in a few blocks that end with the response, and the
// elements' payloads are those of the BSSs themselves.
class DiscoveryResponse final : public zv_loc_fw::VEXODiscoveryScanResponse {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;

  // `considered` is the number of BSSs from which the filters chose.
  DiscoveryResponse(unsigned int id, wifi::ScanStatus status, uint32_t considered);
  ~DiscoveryResponse() override;

  // Adds the measurements of `list`, once; ages are as of `now`. Throws std::bad_alloc; then there are none.
  void Fill(std::vector<BssPointer> list, TimePoint now);

 private:
  std::vector<BssPointer> found;
  std::unique_ptr<zv_loc_fw::VEXOFullBeaconScanMeasurement[]> blocks;
  std::vector<zv_loc_fw::VEXOScanMeasurement*> blockPointers;
  std::vector<zv_loc_fw::ElementObject> elements;
  std::vector<zv_loc_fw::ElementObject*> elementPointers;
};

}  // namespace vexo_host

#endif  // KESD_HOST_VEXO_CLIENT_DISCOVERY_RESPONSE_H_
