// Builds the buffers of a discovery result, as the daemon would deliver them.
#ifndef KESD_CLIENT_TEST_RECORDS_H_
#define KESD_CLIENT_TEST_RECORDS_H_

#include <algorithm>
#include <cstring>
#include <span>
#include <string_view>
#include <vector>

#include "client/discovery_result.h"
#include "marshal/records.h"

namespace kes {

struct TestResult {
  DiscoveryResultHeader header{};
  std::vector<WifiScanMeasurement> measurements;
  std::vector<WifiMeasurementInfo> infos;
  std::vector<uint8_t> bytes;

  // A whole measurement; `signalMbm` in 1/100 dBm.
  WifiScanMeasurement& Add(const MacAddress& bssid, std::string_view ssid, uint32_t frequencyMhz, int32_t signalMbm,
                           const std::vector<uint8_t>& elements, uint16_t capability = 0x0411) {
    WifiScanMeasurement record{};
    record.bssidLo24 = Low24(bssid);
    record.bssidHi24 = High24(bssid);
    record.scanValue08 = 123456789;
    record.scanValue10 = 1500;
    record.scanValue14 = frequencyMhz;
    record.scanValue18 = static_cast<uint32_t>(signalMbm);
    record.scanValue38 = 100;
    record.scanValue3A = capability;
    record.firstInfoIndex = static_cast<uint16_t>(infos.size());
    record.infoCount = 1;
    record.ssidValid = record.ssidCopied = 1;
    record.ssidLength = static_cast<uint16_t>(ssid.size());
    std::copy(ssid.begin(), ssid.end(), record.ssid);
    record.byteListOffset = record.beaconElementsOffset = static_cast<uint32_t>(bytes.size());
    record.beaconElementsLength = static_cast<uint32_t>(elements.size());
    bytes.insert(bytes.end(), elements.begin(), elements.end());
    infos.push_back({});
    return measurements.emplace_back(record);
  }
};

template <typename Record>
std::vector<uint8_t> ImageOf(const std::vector<Record>& records) {
  std::vector<uint8_t> image(records.size() * sizeof(Record));
  if (!image.empty()) std::memcpy(image.data(), records.data(), image.size());
  return image;
}

inline std::vector<uint8_t> ImageOf(const DiscoveryResultHeader& header) {
  return ImageOf(std::vector<DiscoveryResultHeader>{header});
}

}  // namespace kes

#endif  // KESD_CLIENT_TEST_RECORDS_H_
