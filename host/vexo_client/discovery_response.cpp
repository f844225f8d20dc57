#include "host/vexo_client/discovery_response.h"

#include <ctime>
#include <utility>

#include "host/vexo_client/response_parts.h"
#include "host/wifi/information_elements.h"

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

size_t CountElements(const Bss& bss) {
  wifi::ElementReader reader(bss.elements);
  size_t count = 0;
  while (reader.Next()) ++count;
  return count;
}

}  // namespace

DiscoveryResponse::DiscoveryResponse(unsigned int id, wifi::ScanStatus status, uint32_t considered)
    : VEXODiscoveryScanResponse(id) {
  scanStatus = static_cast<uint32_t>(status);
  opaque32 = considered;
  opaque64 = BootTimeUs();
}

DiscoveryResponse::~DiscoveryResponse() {
  Return(measurements);
  for (size_t i = 0; i < found.size(); ++i) Return(blocks[i].beaconElements);
}

void DiscoveryResponse::Fill(std::vector<BssPointer> list, TimePoint now) {
  size_t elementCount = 0;
  for (const BssPointer& bss : list) elementCount += CountElements(*bss);
  // Everything that may fail comes first; the addresses of what was reserved stay.
  elements.reserve(elementCount);
  elementPointers.reserve(elementCount);
  blockPointers.reserve(list.size());
  blocks = std::make_unique<VEXOFullBeaconScanMeasurement[]>(list.size());

  found = std::move(list);
  for (size_t i = 0; i < found.size(); ++i) {
    const size_t first = elements.size();
    wifi::ElementReader reader(found[i]->elements);
    while (const std::optional<wifi::Element> element = reader.Next()) {
      elements.push_back({element->id, static_cast<uint8_t>(element->payload.size()), element->payload.data()});
      elementPointers.push_back(&elements.back());
    }
    Describe(*found[i], now, blocks[i]);
    Lend(elementPointers.data() + first, elements.size() - first, blocks[i].beaconElements);
    blockPointers.push_back(&blocks[i]);
  }
  Lend(blockPointers.data(), blockPointers.size(), measurements);
}

}  // namespace vexo_host
