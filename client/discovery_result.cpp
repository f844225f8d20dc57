#include "client/discovery_result.h"

#include <algorithm>
#include <new>

#include "client/discovery_request.h"
#include "client/record_reader.h"

namespace kes {
namespace {

// The part of `all` that [offset, offset + length) covers, cut where `all` ends.
std::span<const uint8_t> Cut(std::span<const uint8_t> all, std::size_t offset, std::size_t length) {
  if (offset > all.size()) return {};
  return all.subspan(offset, std::min(length, all.size() - offset));
}

// `budget`: the octets of elements that may still be copied. Honest lists do not overlap, so together they are no
// longer than the buffer; records that all claim the same octets must not multiply them.
Measurement Decode(const WifiScanMeasurement& record, uint64_t reportedAtUs, const DiscoveryResultBuffers& buffers,
                   std::size_t& budget) {
  Measurement measurement;
  measurement.bssid = MacAddressOf(record.bssidLo24, record.bssidHi24);
  measurement.values = wifi::LoadScanValues(record);
  measurement.ageMs = wifi::AgeMs(measurement.values, reportedAtUs);
  measurement.incomplete =
      !CommonReferencesFit(record, Records<WifiMeasurementInfo>(buffers.infos).Count(), buffers.bytes.size());

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
  const Records<WifiScanMeasurement> records(buffers.measurements);
  if (buffers.header.size() != sizeof(DiscoveryResultHeader) || !records.AreWhole() ||
      !Records<WifiMeasurementInfo>(buffers.infos).AreWhole()) {
    return WrongRecordSize();
  }
  DiscoveryResult result;
  const DiscoveryResultHeader header = Records<DiscoveryResultHeader>(buffers.header).At(0);
  result.status = static_cast<wifi::ScanStatus>(header.scanStatus);
  result.source = static_cast<wifi::SourceKind>(header.opaque32);
  result.measurements.reserve(records.Count());
  std::size_t budget = buffers.bytes.size();
  for (std::size_t i = 0; i < records.Count(); ++i) {
    result.measurements.push_back(Decode(records.At(i), header.opaque64, buffers, budget));
  }
  return result;
} catch (const std::bad_alloc&) {
  return OutOfMemory();
}

}  // namespace kes
