#include "host/vexo_client/shared_bss.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>

#include "host/vexo_client/boot_clock.h"
#include "host/vexo_client/response_parts.h"
#include "host/wifi/information_elements.h"
#include "host/wifi/measurement_values.h"

namespace vexo_host {
namespace {

std::size_t CountElements(const std::vector<uint8_t>& elements) {
  wifi::ElementReader reader(elements);
  std::size_t count = 0;
  while (reader.Next()) ++count;
  return count;
}

}  // namespace

SharedBss::SharedBss(Bss&& heard) : Bss(std::move(heard)) {
  elements.shrink_to_fit();  // it is kept for long
  const std::size_t count = CountElements(elements);
  elementObjects.reserve(count);  // their addresses stay
  elementPointers.reserve(count);
  wifi::ElementReader reader(elements);
  while (const std::optional<wifi::Element> element = reader.Next()) {
    elementObjects.push_back({element->id, static_cast<uint8_t>(element->payload.size()), element->payload.data()});
    elementPointers.push_back(&elementObjects.back());
  }
  Lend(elementPointers.data(), elementPointers.size(), measurement.beaconElements);

  measurement.bssid.setMac(static_cast<int>(bssid >> 24 & 0xFFFFFF), static_cast<int>(bssid & 0xFFFFFF));
  if (ssid) measurement.ssid.setSSID(ssid->data(), static_cast<int>(ssid->size()));
  wifi::ScanValues values;
  values.timestampUs = timestampUs;
  values.takenAtMs = BootTimeMs(takenAt);
  values.frequencyMhz = frequencyMhz;
  values.signalMbm = signalMbm;
  values.beaconIntervalTu = beaconIntervalTu;
  values.capability = capability;
  wifi::StoreScanValues(values, measurement);
}

SharedBss::~SharedBss() { Return(measurement.beaconElements); }

BssList MakeBssList(std::vector<Bss> heard) {
  const auto list = std::make_shared<std::vector<BssPointer>>();
  list->reserve(heard.size());
  for (Bss& bss : heard) list->push_back(std::make_shared<const SharedBss>(std::move(bss)));
  return list;
}

}  // namespace vexo_host
