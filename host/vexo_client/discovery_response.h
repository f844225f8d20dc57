// The response to a discovery request.
#ifndef KESD_HOST_VEXO_CLIENT_DISCOVERY_RESPONSE_H_
#define KESD_HOST_VEXO_CLIENT_DISCOVERY_RESPONSE_H_

#include <vector>

#include "host/vexo_client/discovery_query.h"
#include "host/vexo_client/shared_bss.h"
#include "host/wifi/measurement_values.h"
#include "platform/vexo_response.h"

namespace vexo_host {

// One full-beacon measurement for each BSS. They are those of the BSSs themselves, which it keeps meanwhile.
class DiscoveryResponse final : public zv_loc_fw::VEXODiscoveryScanResponse {
 public:
  DiscoveryResponse(unsigned int id, wifi::ScanStatus status, wifi::SourceKind source);
  ~DiscoveryResponse() override;

  // Adds the measurements of `list` that `filters` admit, once. Throws std::bad_alloc; then there are none.
  void Fill(BssList list, const DiscoveryFilters& filters);

 private:
  BssList measured;
  std::vector<zv_loc_fw::VEXOScanMeasurement*> pointers;
};

}  // namespace vexo_host

#endif  // KESD_HOST_VEXO_CLIENT_DISCOVERY_RESPONSE_H_
