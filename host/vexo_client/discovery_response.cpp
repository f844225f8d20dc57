#include "host/vexo_client/discovery_response.h"

#include <ctime>
#include <utility>

#include "host/vexo_client/response_parts.h"

namespace vexo_host {
namespace {

using zv_loc_fw::VEXOFullBeaconScanMeasurement;

uint64_t BootTimeUs() {
  timespec now{};
  clock_gettime(CLOCK_BOOTTIME, &now);
  return static_cast<uint64_t>(now.tv_sec) * 1'000'000 + static_cast<uint64_t>(now.tv_nsec) / 1'000;
}

void Describe(const Bss& bss, DiscoveryResponse::TimePoint now, VEXOFullBeaconScanMeasurement& measurement) {
  measurement.bssid.setMac(static_cast<int>(bss.bssid >> 24 & 0xFFFFFF), static_cast<int>(bss.bssid & 0xFFFFFF));
  if (bss.ssid) measurement.ssid.setSSID(bss.ssid->data(), static_cast<int>(bss.ssid->size()));
  wifi::ScanValues values;
  values.timestampUs = bss.timestampUs;
  values.ageMs = AgeMs(bss.takenAt, now);
  values.frequencyMhz = bss.frequencyMhz;
  values.signalMbm = bss.signalMbm;
  values.beaconIntervalTu = bss.beaconIntervalTu;
  values.capability = bss.capability;
  wifi::StoreScanValues(values, measurement);
}

}  // namespace

DiscoveryResponse::DiscoveryResponse(unsigned int id, wifi::ScanStatus status) : VEXODiscoveryScanResponse(id) {
  scanStatus = static_cast<uint32_t>(status);
  opaque64 = BootTimeUs();
}

DiscoveryResponse::~DiscoveryResponse() {
  Return(measurements);
  for (size_t i = 0; i < pointers.size(); ++i) Return(block[i].beaconElements);
}

void DiscoveryResponse::Fill(BssList list, const DiscoveryFilters& filters, TimePoint now) {
  if (list == nullptr) return;
  std::vector<const SharedBss*> admitted;
  admitted.reserve(list->size());
  for (const BssPointer& bss : *list) {
    if (filters.Admits(*bss)) admitted.push_back(bss.get());
  }
  pointers.reserve(admitted.size());
  block = std::make_unique<VEXOFullBeaconScanMeasurement[]>(admitted.size());

  // Nothing fails from here on.
  opaque32 = static_cast<uint32_t>(list->size());
  for (const SharedBss* bss : admitted) {
    VEXOFullBeaconScanMeasurement& measurement = block[pointers.size()];
    Describe(*bss, now, measurement);
    Lend(bss->elementPointers.data(), bss->elementPointers.size(), measurement.beaconElements);
    pointers.push_back(&measurement);
  }
  Lend(pointers.data(), pointers.size(), measurements);
  found = std::move(list);
}

}  // namespace vexo_host
