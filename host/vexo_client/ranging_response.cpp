#include "host/vexo_client/ranging_response.h"

#include "host/vexo_client/boot_clock.h"
#include "host/vexo_client/discovery_query.h"
#include "host/vexo_client/response_parts.h"

namespace vexo_host {

RangingResponse::RangingResponse(unsigned int id, wifi::ScanStatus status) : VEXORangingScanResponse(id) {
  scanStatus = static_cast<uint32_t>(status);
}

RangingResponse::~RangingResponse() { Return(measurements); }

RangingResponse::Block::~Block() {
  Return(measurement.infoList);
  Return(measurement.macList);
}

void RangingResponse::Block::Describe(const zv_loc_fw::VEXONodeInfo& node, const RangedPeer& peer) {
  measurement.bssid = addresses[0] = node.address;
  addresses[1] = node.secondAddress;
  Lend(addresses, AddressBits(node.secondAddress) == 0 ? 1 : 2, measurement.macList);

  wifi::ScanValues scanned;
  scanned.takenAtMs = BootTimeMs(peer.takenAt);
  scanned.frequencyMhz = peer.frequencyMhz;
  scanned.signalMbm = peer.signalMbm;
  wifi::StoreScanValues(scanned, measurement);

  wifi::StoreRangingValues(peer.values, info);
  Lend(&infoPointer, 1, measurement.infoList);
}

void RangingResponse::Fill(const std::vector<zv_loc_fw::VEXONodeInfo>& nodes, const std::vector<RangedPeer>& peers) {
  pointers.reserve(nodes.size());
  blocks = std::make_unique<Block[]>(nodes.size());

  RangedPeer unmeasured;
  unmeasured.takenAt = std::chrono::steady_clock::now();
  unmeasured.values.status = wifi::RangingStatus::kNotMeasured;
  for (size_t i = 0; i < nodes.size(); ++i) {
    blocks[i].Describe(nodes[i], i < peers.size() ? peers[i] : unmeasured);
    pointers.push_back(&blocks[i].measurement);
  }
  Lend(pointers.data(), pointers.size(), measurements);
}

}  // namespace vexo_host
