#include "marshal/measurement_marshal.h"

#include <algorithm>
#include <array>
#include <span>

using zv_loc_fw::ElementObject;
using zv_loc_fw::MeasurementInfoObject;
using zv_loc_fw::VEXOFullBeaconScanMeasurement;
using zv_loc_fw::VEXOMacAddress;
using zv_loc_fw::VEXORangingScanMeasurement;
using zv_loc_fw::VEXOScanMeasurement;

namespace {

using ByteArray = zv_loc_fw::vector<signed char>;

constexpr uint8_t kVendorSpecific = 221;
constexpr uint32_t kElementHeaderSize = 2;

// A vendor element that opens with this OUI carries one octet more in a full beacon, when its payload is neither
// too short to be the one meant nor too long for the length octet to grow.
constexpr std::array<uint8_t, 3> kVendorOui = {0x02, 0x4B, 0x9E};
constexpr uint8_t kSmallestExtendedLength = 25;
constexpr uint8_t kLargestExtendedLength = 254;

bool IsExtended(const ElementObject& element) {
  return element.id == kVendorSpecific && element.length >= kSmallestExtendedLength &&
         element.length <= kLargestExtendedLength && std::equal(kVendorOui.begin(), kVendorOui.end(), element.payload);
}

void AppendByte(ByteArray& bytes, uint8_t value) { bytes.push_back(static_cast<signed char>(value)); }

// Appends the element's octets, announcing `length`. Answers how many octets they are, as the next two functions do.
uint32_t AppendElement(ByteArray& bytes, const ElementObject& element, uint8_t length) {
  const std::array<signed char, kElementHeaderSize> header = {static_cast<signed char>(element.id),
                                                              static_cast<signed char>(length)};
  bytes.append(header, std::span(reinterpret_cast<const signed char*>(element.payload), element.length));
  return kElementHeaderSize + element.length;
}

void AppendOptionalElement(ByteArray& bytes, const ElementObject* element, uint32_t& offset, uint32_t& length) {
  if (element == nullptr) return;
  offset = bytes.count;
  length = AppendElement(bytes, *element, element->length);
}

// The element as a full beacon has it, with `extra` where that belongs to it.
uint32_t AppendBeaconElement(ByteArray& bytes, const ElementObject& element, uint8_t extra) {
  if (!IsExtended(element)) return AppendElement(bytes, element, element.length);
  const uint32_t length = AppendElement(bytes, element, static_cast<uint8_t>(element.length + 1));
  AppendByte(bytes, extra);
  return length + 1;
}

uint32_t AppendBeaconElements(ByteArray& bytes, const VEXOFullBeaconScanMeasurement& measurement) {
  uint32_t length = 0;
  const uint32_t elementCount = measurement.beaconElements.count;
  for (uint32_t i = 0; i < elementCount; ++i) {
    const ElementObject* element = measurement.beaconElements[i];
    if (element != nullptr) length += AppendBeaconElement(bytes, *element, measurement.vendorExtraByte);
  }
  return length;
}

void CopyValues(const VEXOScanMeasurement& from, WifiScanMeasurement& to) {
  to.scanValue08 = from.valueF8;
  to.scanValue10 = from.valueF0;
  to.scanValue14 = from.value10;
  to.scanValue18 = from.valueA0;
  to.scanValue1C = from.valueE8;
  to.scanValue20 = from.value44;
  to.scanValue24 = from.value48;
  to.scanValue28 = from.value98;
  to.scanValue2C = from.valueEC;
  to.scanValue30 = from.valueF4;
  to.scanValue34 = from.valueA8;
  to.scanValue38 = from.valueA4;
  to.scanValue3A = from.valueA6;
  to.scanValue6E = from.valueC8;
  to.scanValue70 = from.valueCA;
  to.scanValue96 = from.value9C;
  to.scanValue97 = from.value9D;
  to.scanValue98 = from.value79;
  to.scanValue99 = from.valueCC;
  to.scanValue9A = from.valueCD;
  to.scanValue9B = from.valueCE;
  to.scanValue9C = from.value78;
  to.scanValue9D = from.value40;
  to.scanValue9E = from.value41;
}

void CopySsid(const zv_loc_fw::VEXOSsid& from, WifiScanMeasurement& to) {
  if (!from.isSSIDValid()) return;
  to.ssidValid = 1;
  int length = 0;
  if (from.getSSID(to.ssid, &length) != 0) return;
  to.ssidCopied = 1;
  to.ssidLength = static_cast<uint16_t>(length);
}

WifiMeasurementInfo InfoRecord(const MeasurementInfoObject& info) {
  WifiMeasurementInfo record = {};
  record.infoValue00 = info.value00;
  record.infoValue04 = info.value04;
  record.infoValue08 = info.value08;
  record.infoValue0C = info.value22;
  record.infoValue10 = info.value10;
  record.infoValue18 = info.value18;
  record.infoValue20 = info.value20;
  record.infoValue22 = info.value24;
  record.infoValue24 = info.value28;
  record.infoValue28 = info.value2C;
  record.infoValue2C = info.value30;
  record.infoValue30 = info.value34;
  record.infoValue31 = info.value35;
  record.infoValue32 = info.value36;
  record.infoValue33 = info.value37;
  record.infoValue34 = info.value38;
  record.infoValue38 = info.value3C;
  record.infoValue39 = info.value3D;
  record.infoValue3A = info.value3E;
  record.infoValue3B = info.value3F;
  return record;
}

}  // namespace

void MarshalCommon(CommonResponseData& data, const VEXOScanMeasurement* measurement) {
  if (measurement == nullptr) return;
  WifiScanMeasurement record = {};
  record.bssidLo24 = static_cast<uint32_t>(measurement->bssid.getLo24());
  record.bssidHi24 = static_cast<uint32_t>(measurement->bssid.getHi24());
  CopyValues(*measurement, record);
  CopySsid(measurement->ssid, record);

  // Both references are 16 bits wide, so a list of 65,536 entries or more is cut to what its count can say.
  record.firstInfoIndex = static_cast<uint16_t>(data.measurementInfos.count);
  record.infoCount = static_cast<uint16_t>(measurement->infoList.count);
  for (uint32_t i = 0; i < record.infoCount; ++i) {
    const MeasurementInfoObject* info = measurement->infoList[i];
    // A missing object still takes its place, so that the indices of the others stay true.
    data.measurementInfos.push_back(info != nullptr ? InfoRecord(*info) : WifiMeasurementInfo{});
  }

  ByteArray& bytes = data.byteData;
  record.byteListOffset = bytes.count;
  record.byteListLength = measurement->byteList.count;
  bytes.append(
      std::span(measurement->byteList.data, measurement->byteList.data == nullptr ? 0 : record.byteListLength));

  AppendOptionalElement(bytes, measurement->element1, record.element1Offset, record.element1Length);
  AppendOptionalElement(bytes, measurement->element2, record.element2Offset, record.element2Length);
  data.scanMeasurements.push_back(record);
}

void MarshalFullBeacon(CommonResponseData& data, const VEXOFullBeaconScanMeasurement* measurement) {
  if (measurement == nullptr) return;
  const uint32_t index = data.scanMeasurements.count;
  MarshalCommon(data, measurement);
  // A record that found no memory is missing: operator[] says so and yields another, which stays as it is.
  const bool present = index < data.scanMeasurements.count;
  WifiScanMeasurement& record = data.scanMeasurements[index];

  const uint32_t offset = data.byteData.count;
  const uint32_t length = AppendBeaconElements(data.byteData, *measurement);
  if (!present) return;
  record.beaconElementsOffset = offset;
  record.beaconElementsLength = length;
}

void MarshalRanging(RangingData& data, const VEXORangingScanMeasurement* measurement) {
  if (measurement == nullptr) return;
  const uint32_t index = data.scanMeasurements.count;
  MarshalCommon(data, measurement);
  const bool present = index < data.scanMeasurements.count;
  WifiScanMeasurement& record = data.scanMeasurements[index];

  const uint32_t first = data.wifiMacAddresses.count;
  const uint32_t macCount = measurement->macList.count;
  for (uint32_t i = 0; i < macCount; ++i) {
    const VEXOMacAddress& address = measurement->macList[i];
    data.wifiMacAddresses.push_back(
        {static_cast<uint32_t>(address.getLo24()), static_cast<uint32_t>(address.getHi24())});
  }

  if (!present) return;
  record.firstMacIndex = first;
  record.macCount = macCount;
}
