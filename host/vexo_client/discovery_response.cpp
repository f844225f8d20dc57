#include "host/vexo_client/discovery_response.h"

#include <cstdint>
#include <utility>

#include "host/vexo_client/boot_clock.h"
#include "host/vexo_client/response_parts.h"

namespace vexo_host {

DiscoveryResponse::DiscoveryResponse(unsigned int id, wifi::ScanStatus status, wifi::SourceKind source)
    : VEXODiscoveryScanResponse(id) {
  scanStatus = static_cast<uint32_t>(status);
  opaque32 = static_cast<uint32_t>(source);
  opaque64 = BootTimeUs();
}

DiscoveryResponse::~DiscoveryResponse() { Return(measurements); }

void DiscoveryResponse::Fill(BssList list, const DiscoveryFilters& filters) {
  if (list == nullptr) return;
  pointers.reserve(list->size());
  for (const BssPointer& bss : *list) {
    if (filters.Admits(*bss)) pointers.push_back(&bss->measurement);
  }
  Lend(pointers.data(), pointers.size(), measurements);
  measured = std::move(list);
}

}  // namespace vexo_host
