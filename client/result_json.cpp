#include "client/result_json.h"

#include <nlohmann/json.hpp>

#include "client/text.h"
#include "client/words.h"
#include "host/wifi/channels.h"
#include "host/wifi/phy.h"

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

Json SignalValue(int32_t mbm) { return mbm != wifi::kSignalUnknown ? Json(mbm / 100.0) : Json(nullptr); }

Json ToJson(const kes::Measurement& measurement) {
  const wifi::ScanValues& values = measurement.values;
  Json json{
      {"bssid", MacText(measurement.bssid)},
      {"ssid", SsidValue(measurement)},
      {"ssid_hex", Hex(measurement.ssid)},
      {"ssid_valid", measurement.ssidValid},
      {"frequency_mhz", values.frequencyMhz},
      {"channel", wifi::ChannelOfFrequency(values.frequencyMhz)},
      {"signal_dbm", SignalValue(values.signalMbm)},
      {"age_ms", measurement.ageMs},
      {"beacon_interval_tu", values.beaconIntervalTu},
      {"capability", values.capability},
      {"security", SecurityWords(measurement)},
      {"phy", wifi::PhyName(wifi::PhyOf(measurement.elements, values.frequencyMhz))},
      {"elements", ElementList(measurement.elements)},
  };
  if (measurement.incomplete) json["incomplete"] = true;
  return json;
}

Json ToJson(const kes::RangingMeasurement& measurement) {
  const wifi::RangingValues& ranging = measurement.ranging;
  const bool isMeasured = ranging.status == wifi::RangingStatus::kSuccess;
  Json peers = Json::array();
  for (const kes::MacAddress& mac : measurement.peers) peers.push_back(MacText(mac));
  Json json{
      {"bssid", MacText(measurement.bssid)},
      {"status", RangingStatusName(ranging.status)},
      {"distance_m", isMeasured ? Json(ranging.distanceMm / 1000.0) : Json(nullptr)},
      {"distance_std_m", isMeasured ? Json(ranging.distanceStdMm / 1000.0) : Json(nullptr)},
      {"rtt_ps", isMeasured ? Json(ranging.rttPs) : Json(nullptr)},
      {"signal_dbm", SignalValue(ranging.signalMbm)},
      {"peers", std::move(peers)},
  };
  if (measurement.incomplete) json["incomplete"] = true;
  return json;
}

template <typename ScanResult>
std::string ResultJson(Json json, const ScanResult& result) {
  Json& measurements = json["measurements"] = Json::array();
  for (const auto& measurement : result.measurements) measurements.push_back(ToJson(measurement));
  constexpr bool kEnsureAscii = true;
  return json.dump(-1, ' ', kEnsureAscii) + '\n';
}

Json StatusValue(wifi::ScanStatus status) { return static_cast<uint32_t>(status); }

}  // namespace

std::string ScanJson(const kes::DiscoveryResult& result) {
  return ResultJson({{"scan_status", StatusValue(result.status)}, {"source", SourceName(result.source)}}, result);
}

std::string RangeJson(const kes::RangingResult& result) {
  return ResultJson({{"scan_status", StatusValue(result.status)}}, result);
}

}  // namespace kesctl
