#include "client/scan_json.h"

#include <nlohmann/json.hpp>

#include "client/phy.h"
#include "client/text.h"
#include "client/words.h"
#include "host/wifi/channels.h"

namespace kesctl {
namespace {

using Json = nlohmann::ordered_json;

Json SsidValue(const kes::Measurement& measurement) {
  const std::vector<uint8_t>& ssid = measurement.ssid;
  if (IsHiddenSsid(measurement.ssidValid, ssid) || !IsUtf8(ssid)) return nullptr;
  return std::string(ssid.begin(), ssid.end());
}

Json ElementList(std::span<const uint8_t> elements) {
  Json list = Json::array();
  wifi::ElementReader reader(elements);
  while (const std::optional<wifi::Element> element = reader.Next()) {
    list.push_back({{"id", element->id}, {"hex", Hex(element->payload)}});
  }
  return list;
}

Json ToJson(const kes::Measurement& measurement) {
  const wifi::ScanValues& values = measurement.values;
  const bool hasSignal = values.signalMbm != wifi::kSignalUnknown;
  Json json{
      {"bssid", MacText(measurement.bssid)},
      {"ssid", SsidValue(measurement)},
      {"ssid_hex", Hex(measurement.ssid)},
      {"ssid_valid", measurement.ssidValid},
      {"frequency_mhz", values.frequencyMhz},
      {"channel", wifi::ChannelOfFrequency(values.frequencyMhz)},
      {"signal_dbm", hasSignal ? Json(values.signalMbm / 100.0) : Json(nullptr)},
      {"age_ms", values.ageMs},
      {"beacon_interval_tu", values.beaconIntervalTu},
      {"capability", values.capability},
      {"security", SecurityWords(measurement)},
      {"phy", kes::PhyName(kes::PhyOf(measurement.elements, values.frequencyMhz))},
      {"elements", ElementList(measurement.elements)},
  };
  if (measurement.incomplete) json["incomplete"] = true;
  return json;
}

}  // namespace

std::string ScanJson(const kes::DiscoveryResult& result) {
  Json measurements = Json::array();
  for (const kes::Measurement& measurement : result.measurements) measurements.push_back(ToJson(measurement));
  const Json json{{"scan_status", static_cast<uint32_t>(result.status)}, {"measurements", std::move(measurements)}};
  constexpr bool kEnsureAscii = true;
  return json.dump(-1, ' ', kEnsureAscii) + '\n';
}

}  // namespace kesctl
