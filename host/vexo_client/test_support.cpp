#include "host/vexo_client/test_support.h"

#include <cstring>
#include <utility>

#include "marshal/measurement_marshal.h"
#include "tests/log_stand_in.h"

namespace vexo_host {
namespace {

Heard Copy(const zv_loc_fw::VEXOScanMeasurement& measurement, uint64_t reportedAtUs) {
  Heard heard;
  heard.bssid = AddressBits(measurement.bssid);
  uint8_t octets[32];
  int length = 0;
  if (measurement.ssid.isSSIDValid() && measurement.ssid.getSSID(octets, &length) == 0) {
    heard.ssid.emplace(octets, octets + length);
  }
  heard.frequencyMhz = measurement.value10;
  heard.ageMs = static_cast<uint32_t>(reportedAtUs / 1'000) - measurement.valueF0;
  if (measurement.getMeasurementType() == zv_loc_fw::MEASUREMENT_TYPE_FULL_BEACON) {
    const auto& beacon = static_cast<const zv_loc_fw::VEXOFullBeaconScanMeasurement&>(measurement);
    for (uint32_t i = 0; i < beacon.beaconElements.count; ++i) {
      const zv_loc_fw::ElementObject& element = *beacon.beaconElements[i];
      heard.elements.push_back(element.id);
      heard.elements.push_back(element.length);
      heard.elements.insert(heard.elements.end(), element.payload, element.payload + element.length);
    }
  }
  return heard;
}

uint64_t Bits(uint32_t hi24, uint32_t lo24) { return uint64_t{hi24} << 24 | lo24; }

Ranged CopyRanged(const zv_loc_fw::VEXOScanMeasurement& measurement) {
  Ranged ranged;
  if (measurement.getMeasurementType() != zv_loc_fw::MEASUREMENT_TYPE_RANGING) return ranged;
  RangingData data;
  MarshalRanging(data, static_cast<const zv_loc_fw::VEXORangingScanMeasurement*>(&measurement));
  const WifiScanMeasurement& record = data.scanMeasurements[0];
  ranged.bssid = Bits(record.bssidHi24, record.bssidLo24);
  if (record.infoCount == 1) ranged.values = wifi::LoadRangingValues(data.measurementInfos[0]);
  return ranged;
}

std::mutex logMutex;
std::vector<std::string> logLines;

}  // namespace

Report Copy(zv_loc_fw::VEXOResponse& response) {
  Report report;
  report.id = response.getRequestId();
  report.type = response.getResponseType();
  if (report.type == zv_loc_fw::RESPONSE_TYPE_DISCOVERY_SCAN) {
    const auto& discovery = static_cast<zv_loc_fw::VEXODiscoveryScanResponse&>(response);
    report.status = static_cast<wifi::ScanStatus>(discovery.scanStatus);
    report.source = static_cast<wifi::SourceKind>(discovery.opaque32);
    report.madeAtUs = discovery.opaque64;
    for (uint32_t i = 0; i < discovery.measurements.count; ++i) {
      report.heard.push_back(Copy(*discovery.measurements[i], report.madeAtUs));
    }
  } else {
    const auto& ranging = static_cast<zv_loc_fw::VEXORangingScanResponse&>(response);
    report.status = static_cast<wifi::ScanStatus>(ranging.scanStatus);
    for (uint32_t i = 0; i < ranging.measurements.count; ++i) {
      report.ranged.push_back(CopyRanged(*ranging.measurements[i]));
    }
  }
  return report;
}

void RecordingListener::responseReceived(zv_loc_fw::VEXOResponse* response) {
  Report report = Copy(*response);
  onReport(report.id);
  const std::lock_guard lock(mutex);
  reports.push_back(std::move(report));
  changed.notify_all();
}

std::vector<Report> RecordingListener::WaitFor(size_t count) {
  std::unique_lock lock(mutex);
  changed.wait_for(lock, kPatienceOfTests, [&] { return reports.size() >= count; });
  return reports;
}

bool FakeSource::StartScan(std::shared_ptr<const DiscoveryQuery>, ScanDone done) noexcept {
  const std::lock_guard lock(mutex);
  scans.push_back(std::move(done));
  changed.notify_all();
  return true;
}

bool FakeSource::StartRanging(std::shared_ptr<const RangingQuery>, RangingDone) noexcept { return false; }

void FakeSource::Answer(size_t scan, wifi::ScanStatus status, std::vector<Bss> found) {
  std::unique_lock lock(mutex);
  if (!changed.wait_for(lock, kPatienceOfTests, [&] { return scans.size() > scan; })) return;
  const ScanDone done = scans[scan];
  lock.unlock();
  done(status, MakeBssList(std::move(found)));
}

size_t FakeSource::ScanCount() {
  const std::lock_guard lock(mutex);
  return scans.size();
}

Bss MakeBss(uint64_t bssid, const char* ssid, uint32_t frequencyMhz, std::chrono::milliseconds age) {
  Bss bss;
  bss.bssid = bssid;
  if (ssid != nullptr) bss.ssid.emplace(ssid, ssid + std::strlen(ssid));
  bss.frequencyMhz = frequencyMhz;
  bss.takenAt = std::chrono::steady_clock::now() - age;
  bss.elements = {3, 1, 6, 221, 0, 5, 2, 0, 1};
  return bss;
}

DiscoveryFilters MakeFilters(wifi::Band band, const std::vector<uint32_t>& channels,
                             const std::vector<const char*>& ssids, const std::vector<uint64_t>& macAddresses) {
  zv_loc_fw::vector<zv_loc_fw::VEXOChannelInfo> channelList;
  for (const uint32_t channel : channels) channelList.push_back(zv_loc_fw::VEXOChannelInfo(channel));
  zv_loc_fw::vector<zv_loc_fw::VEXOSsid> ssidList;
  for (const char* text : ssids) {
    zv_loc_fw::VEXOSsid ssid;
    if (text != nullptr) {
      ssid.setSSID(reinterpret_cast<const unsigned char*>(text), static_cast<int>(std::strlen(text)));
    }
    ssidList.push_back(ssid);
  }
  zv_loc_fw::vector<zv_loc_fw::VEXOMacAddress> macList;
  for (const uint64_t bits : macAddresses) {
    zv_loc_fw::VEXOMacAddress address;
    address.setMac(static_cast<int>(bits >> 24), static_cast<int>(bits & 0xFFFFFF));
    macList.push_back(address);
  }
  DiscoveryFilters filters(band);
  (void)filters.SetChannels(channelList);  // where one does not exist, nothing is admitted
  filters.SetSsids(ssidList);
  filters.SetMacAddresses(macList);
  return filters;
}

std::vector<std::string> TakeLog() {
  const std::lock_guard lock(logMutex);
  return std::exchange(logLines, {});
}

}  // namespace vexo_host

void testing_log::Write(char level, const char* tag, const char* text) {
  if (std::strcmp(tag, "vexo_client") != 0) return;
  const std::lock_guard lock(vexo_host::logMutex);
  vexo_host::logLines.push_back(std::string(1, level) + ": " + text);
}
