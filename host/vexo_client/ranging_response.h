// The response to a round of ranging, with everything that it points to.
#ifndef KESD_HOST_VEXO_CLIENT_RANGING_RESPONSE_H_
#define KESD_HOST_VEXO_CLIENT_RANGING_RESPONSE_H_

#include <memory>
#include <vector>

#include "host/vexo_client/ranging_query.h"
#include "host/wifi/measurement_values.h"
#include "platform/vexo_response.h"

namespace vexo_host {

class RangingResponse final : public zv_loc_fw::VEXORangingScanResponse {
 public:
  RangingResponse(unsigned int id, wifi::ScanStatus status);
  ~RangingResponse() override;

  // Adds one ranging measurement for each of `nodes`, in their order, once: what `peers` has at the same place, and
  // kNotMeasured where it ends earlier. Throws std::bad_alloc; then there are none.
  void Fill(const std::vector<zv_loc_fw::VEXONodeInfo>& nodes, const std::vector<RangedPeer>& peers);

 private:
  // A measurement and what its lists hold.
  struct Block {
    ~Block();
    void Describe(const zv_loc_fw::VEXONodeInfo& node, const RangedPeer& peer);

    zv_loc_fw::VEXORangingScanMeasurement measurement;
    zv_loc_fw::MeasurementInfoObject info{};
    zv_loc_fw::MeasurementInfoObject* infoPointer = &info;
    zv_loc_fw::VEXOMacAddress addresses[2];
  };

  std::unique_ptr<Block[]> blocks;
  std::vector<zv_loc_fw::VEXOScanMeasurement*> pointers;
};

}  // namespace vexo_host

#endif  // KESD_HOST_VEXO_CLIENT_RANGING_RESPONSE_H_
