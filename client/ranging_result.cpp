#include "client/ranging_result.h"

#include <algorithm>
#include <new>

#include "client/record_reader.h"

namespace kes {
namespace {

struct Arrays {
  Records<WifiScanMeasurement> measurements;
  Records<WifiMeasurementInfo> infos;
  std::size_t byteCount;
  Records<WifiMacAddress> macs;
};

// `budget`: the addresses that may still be copied. Honest lists do not overlap, so together they are no longer than
// the buffer; records that all claim the same addresses must not multiply them.
RangingMeasurement Decode(const WifiScanMeasurement& record, const Arrays& arrays, std::size_t& budget) {
  RangingMeasurement measurement;
  measurement.bssid = MacAddressOf(record.bssidLo24, record.bssidHi24);
  measurement.values = wifi::LoadScanValues(record);
  measurement.incomplete = !CommonReferencesFit(record, arrays.infos.Count(), arrays.byteCount) ||
                           !Fits(record.firstMacIndex, record.macCount, arrays.macs.Count());

  if (record.infoCount != 0 && record.firstInfoIndex < arrays.infos.Count()) {
    measurement.ranging = wifi::LoadRangingValues(arrays.infos.At(record.firstInfoIndex));
  } else {
    measurement.incomplete = true;
  }

  const std::size_t first = std::min<std::size_t>(record.firstMacIndex, arrays.macs.Count());
  const std::size_t count = std::min({std::size_t{record.macCount}, arrays.macs.Count() - first, budget});
  if (count != record.macCount) measurement.incomplete = true;
  budget -= count;
  measurement.peers.reserve(count);
  for (std::size_t i = first; i < first + count; ++i) {
    const WifiMacAddress mac = arrays.macs.At(i);
    measurement.peers.push_back(MacAddressOf(mac.lo24, mac.hi24));
  }
  return measurement;
}

}  // namespace

Result<RangingResult> DecodeRangingResult(const RangingResultBuffers& buffers) try {
  const Arrays arrays{Records<WifiScanMeasurement>(buffers.measurements), Records<WifiMeasurementInfo>(buffers.infos),
                      buffers.bytes.size(), Records<WifiMacAddress>(buffers.macs)};
  if (buffers.header.size() != sizeof(RangingResultHeader) || !arrays.measurements.AreWhole() ||
      !arrays.infos.AreWhole() || !arrays.macs.AreWhole()) {
    return WrongRecordSize();
  }
  RangingResult result;
  result.status = static_cast<wifi::ScanStatus>(Records<RangingResultHeader>(buffers.header).At(0).scanStatus);
  result.measurements.reserve(arrays.measurements.Count());
  std::size_t budget = arrays.macs.Count();
  for (std::size_t i = 0; i < arrays.measurements.Count(); ++i) {
    result.measurements.push_back(Decode(arrays.measurements.At(i), arrays, budget));
  }
  return result;
} catch (const std::bad_alloc&) {
  return OutOfMemory();
}

}  // namespace kes
