#include "client/record_reader.h"

namespace kes {

bool CommonReferencesFit(const WifiScanMeasurement& record, std::size_t infoCount, std::size_t byteCount) {
  return Fits(record.byteListOffset, record.byteListLength, byteCount) &&
         Fits(record.element1Offset, record.element1Length, byteCount) &&
         Fits(record.element2Offset, record.element2Length, byteCount) &&
         Fits(record.beaconElementsOffset, record.beaconElementsLength, byteCount) &&
         Fits(record.firstInfoIndex, record.infoCount, infoCount);
}

}  // namespace kes
