// The response to a discovery request, with everything that it points to.
#ifndef KESD_HOST_VEXO_CLIENT_DISCOVERY_RESPONSE_H_
#define KESD_HOST_VEXO_CLIENT_DISCOVERY_RESPONSE_H_

#include <chrono>
#include <cstdint>
#include <memory>
#include <vector>

#include "host/vexo_client/discovery_query.h"
#include "host/vexo_client/shared_bss.h"
#include "host/wifi/measurement_values.h"
#include "platform/vexo_response.h"

namespace vexo_host {

// One full-beacon measurement for each BSS. They lie in one block that ends with the response; the elements are those
// of the BSSs themselves.
class DiscoveryResponse final : public zv_loc_fw::VEXODiscoveryScanResponse {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;

  // opaque32 becomes the number of BSSs from which the filters choose.
  DiscoveryResponse(unsigned int id, wifi::ScanStatus status);
  ~DiscoveryResponse() override;

  // Adds the measurements of `list` that `filters` admit, once; ages are as of `now`. Throws std::bad_alloc; then there
  // are none.
  void Fill(BssList list, const DiscoveryFilters& filters, TimePoint now);

 private:
  BssList found;  // kept while the measurements refer to it
  std::unique_ptr<zv_loc_fw::VEXOFullBeaconScanMeasurement[]> block;
  std::vector<zv_loc_fw::VEXOScanMeasurement*> pointers;
};

}  // namespace vexo_host

#endif  // KESD_HOST_VEXO_CLIENT_DISCOVERY_RESPONSE_H_
