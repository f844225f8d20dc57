// Builds the buffers of results, as the daemon would deliver them.
#ifndef KESD_CLIENT_TEST_RECORDS_H_
#define KESD_CLIENT_TEST_RECORDS_H_

#include <algorithm>
#include <cstring>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

#include "client/discovery_result.h"
#include "client/ranging_result.h"
#include "marshal/records.h"

namespace kes {

// Behind the point at which a 32-bit count of milliseconds begins anew.
inline constexpr uint64_t kReportedAtUs = (uint64_t{1} << 32) * 1000 + 250'000;

struct TestResult {
  DiscoveryResultHeader header{.opaque64 = kReportedAtUs, .opaque32 = 0, .scanStatus = 0};
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
    record.scanValue10 = static_cast<uint32_t>(kReportedAtUs / 1000 - 1500);  // 1.5 s old
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

struct TestRangingResult {
  RangingResultHeader header{};
  std::vector<WifiScanMeasurement> measurements;
  std::vector<WifiMeasurementInfo> infos;
  std::vector<WifiMacAddress> macs;

  // A whole measurement of `values`, whose list of addresses holds `bssid` and then `others`.
  WifiScanMeasurement& Add(const MacAddress& bssid, const wifi::RangingValues& values,
                           const std::vector<MacAddress>& others = {}) {
    WifiScanMeasurement record{};
    record.bssidLo24 = Low24(bssid);
    record.bssidHi24 = High24(bssid);
    record.scanValue14 = 5180;
    record.firstInfoIndex = static_cast<uint16_t>(infos.size());
    record.infoCount = 1;
    record.firstMacIndex = static_cast<uint32_t>(macs.size());
    record.macCount = static_cast<uint32_t>(others.size() + 1);
    macs.push_back({Low24(bssid), High24(bssid)});
    for (const MacAddress& mac : others) macs.push_back({Low24(mac), High24(mac)});
    WifiMeasurementInfo info{};
    info.infoValue00 = static_cast<uint32_t>(values.status);
    info.infoValue04 = static_cast<uint32_t>(values.distanceMm);
    info.infoValue08 = values.distanceStdMm;
    info.infoValue10 = static_cast<uint64_t>(values.rttPs);
    info.infoValue18 = values.rttVariancePs2;
    info.infoValue20 = values.burstsAsked;
    info.infoValue22 = values.burstsAnswered;
    info.infoValue24 = static_cast<uint32_t>(values.signalMbm);
    infos.push_back(info);
    return measurements.emplace_back(record);
  }
};

// A buffer for each slot of a result invocation.
using Images = std::vector<std::vector<uint8_t>>;

template <typename Record>
std::vector<uint8_t> ImageOf(const std::vector<Record>& records) {
  std::vector<uint8_t> image(records.size() * sizeof(Record));
  if (!image.empty()) std::memcpy(image.data(), records.data(), image.size());
  return image;
}

inline Images ImagesOf(const TestResult& result) {
  return {ImageOf(std::vector{result.header}), ImageOf(result.measurements), ImageOf(result.infos), result.bytes};
}

inline Images ImagesOf(const TestRangingResult& result) {
  return {ImageOf(std::vector{result.header}),
          ImageOf(result.measurements),
          ImageOf(result.infos),
          {},
          ImageOf(result.macs)};
}

// Images in blocks of exactly the right size, so that the address sanitizer sees any step outside.
class ExactBlocks {
 public:
  explicit ExactBlocks(const Images& images) {
    for (const std::vector<uint8_t>& image : images) {
      blocks.emplace_back(new uint8_t[image.size()]);
      std::copy(image.begin(), image.end(), blocks.back().get());
      spans.emplace_back(blocks.back().get(), image.size());
    }
  }
  std::span<const uint8_t> operator[](std::size_t slot) const { return spans.at(slot); }

 private:
  std::vector<std::unique_ptr<uint8_t[]>> blocks;
  std::vector<std::span<const uint8_t>> spans;
};

}  // namespace kes

#endif  // KESD_CLIENT_TEST_RECORDS_H_
