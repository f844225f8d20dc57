#include "client/discovery_result.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <optional>

#include "client/discovery_request.h"
#include "marshal/records.h"

namespace kes {
namespace {

// The part of `all` that [offset, offset + length) covers, cut where `all` ends.
std::span<const uint8_t> Cut(std::span<const uint8_t> all, std::size_t offset, std::size_t length) {
  if (offset > all.size()) return {};
  return all.subspan(offset, std::min(length, all.size() - offset));
}

// Whether every reference of `record` lies in its buffer.
bool ReferencesFit(const WifiScanMeasurement& record, const DiscoveryResultBuffers& buffers) {
  const auto fits = [&](uint32_t offset, uint32_t length) {
    return Cut(buffers.bytes, offset, length).size() == length;
  };
  const std::size_t infos = buffers.infos.size() / sizeof(WifiMeasurementInfo);
  return fits(record.byteListOffset, record.byteListLength) && fits(record.element1Offset, record.element1Length) &&
         fits(record.element2Offset, record.element2Length) &&
         fits(record.beaconElementsOffset, record.beaconElementsLength) &&
         (record.infoCount == 0 || std::size_t{record.firstInfoIndex} + record.infoCount <= infos);
}

// `budget`: the octets of elements that may still be copied. Honest lists do not overlap, so together they are no
// longer than the buffer; records that all claim the same octets must not multiply them.
Measurement Decode(const WifiScanMeasurement& record, const DiscoveryResultBuffers& buffers, std::size_t& budget) {
  Measurement measurement;
  measurement.bssid = MacAddressOf(record.bssidLo24, record.bssidHi24);
  measurement.values = wifi::LoadScanValues(record);
  measurement.incomplete = !ReferencesFit(record, buffers);

  measurement.ssidValid = record.ssidValid != 0;
  if (measurement.ssidValid && record.ssidCopied != 0) {
    const std::size_t length = std::min<std::size_t>(record.ssidLength, kMaxSsidOctets);
    measurement.ssid.assign(record.ssid, record.ssid + length);
    if (length != record.ssidLength) measurement.incomplete = true;
  }

  const std::span<const uint8_t> claimed = Cut(buffers.bytes, record.beaconElementsOffset, record.beaconElementsLength);
  const std::span<const uint8_t> delivered = claimed.first(std::min(claimed.size(), budget));
  if (delivered.size() != claimed.size()) measurement.incomplete = true;
  budget -= delivered.size();
  wifi::ElementReader reader(delivered);
  while (reader.Next()) {
  }
  const std::span<const uint8_t> whole = delivered.first(delivered.size() - reader.Rest().size());
  measurement.elements.assign(whole.begin(), whole.end());
  if (!reader.Rest().empty()) measurement.incomplete = true;
  return measurement;
}

}  // namespace

Result<DiscoveryResult> DecodeDiscoveryResult(const DiscoveryResultBuffers& buffers) try {
  if (buffers.header.size() != sizeof(DiscoveryResultHeader) ||
      buffers.measurements.size() % sizeof(WifiScanMeasurement) != 0 ||
      buffers.infos.size() % sizeof(WifiMeasurementInfo) != 0) {
    return Error{ErrorKind::kProtocol, "the daemon delivered records of the wrong size"};
  }
  DiscoveryResultHeader header;
  std::memcpy(&header, buffers.header.data(), sizeof header);

  DiscoveryResult result;
  result.status = static_cast<wifi::ScanStatus>(header.scanStatus);
  const std::size_t count = buffers.measurements.size() / sizeof(WifiScanMeasurement);
  result.measurements.reserve(count);
  std::size_t budget = buffers.bytes.size();
  for (std::size_t i = 0; i < count; ++i) {
    WifiScanMeasurement record;  // a copy: the buffer may be unaligned
    std::memcpy(&record, buffers.measurements.data() + i * sizeof record, sizeof record);
    result.measurements.push_back(Decode(record, buffers, budget));
  }
  return result;
} catch (const std::bad_alloc&) {
  return OutOfMemory();
}

}  // namespace kes
