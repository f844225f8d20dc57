// The flat records in which requests reach the daemon and results reach a client: in-memory images, little-endian, one
// array a buffer. Records refer to one another by index and count or by byte offset and length within the same
// response, never by pointer. A consumer bounds every reference by the size of the buffer that it received: where
// memory ran out, an array is shorter than its references say. A field named after its offset is a bit-for-bit copy of
// a member of the location client library's object; only the library and the client know its meaning.
#ifndef KESD_MARSHAL_RECORDS_H_
#define KESD_MARSHAL_RECORDS_H_

#include <bit>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "support/vector.h"

static_assert(std::endian::native == std::endian::little, "records travel as in-memory images");

// A discovery request's parameters, in its first buffer. The service reads the first 30 bytes.
struct DiscoveryScanParams {
  int64_t timeout;
  uint32_t scan_type;  // 0 or, for any other value, 1
  uint32_t mode;       // 0 and 1 fresh scan, 2 cache only, 3 cache with a fresh scan as fallback
  uint32_t age_filter;
  uint32_t fallback_param;  // mode 3 only
  uint32_t band;            // without channels only: 0, 1 or, for any other value, 2
  uint8_t cache_flag;       // boolean
  uint8_t fresh_flag;       // boolean
  uint8_t unread[2];
};
inline constexpr std::size_t kDiscoveryScanParamsSize = 30;
static_assert(offsetof(DiscoveryScanParams, timeout) == 0 && offsetof(DiscoveryScanParams, scan_type) == 8 &&
              offsetof(DiscoveryScanParams, mode) == 12 && offsetof(DiscoveryScanParams, age_filter) == 16 &&
              offsetof(DiscoveryScanParams, fallback_param) == 20 && offsetof(DiscoveryScanParams, band) == 24 &&
              offsetof(DiscoveryScanParams, cache_flag) == 28 && offsetof(DiscoveryScanParams, fresh_flag) == 29 &&
              offsetof(DiscoveryScanParams, unread) == kDiscoveryScanParamsSize);

// The lists of a discovery request, back to back in a buffer each. Bytes after the last whole entry are ignored.
struct DiscoveryChannelEntry {
  uint32_t channel;
};
static_assert(sizeof(DiscoveryChannelEntry) == 4);

struct DiscoverySsidEntry {
  uint16_t reserved;  // not read
  uint16_t length;    // octets; above 32 counts as 32
  uint8_t ssid[32];
};
static_assert(sizeof(DiscoverySsidEntry) == 36 && offsetof(DiscoverySsidEntry, length) == 2 &&
              offsetof(DiscoverySsidEntry, ssid) == 4);

struct DiscoveryMacEntry {
  uint32_t lo24;  // low 24 bits
  uint32_t hi24;  // high 24 bits
};
static_assert(sizeof(DiscoveryMacEntry) == 8 && offsetof(DiscoveryMacEntry, hi24) == 4);

// A node of a one-shot ranging request. A choice out of range counts as its default.
struct RangingNodeRecord {
  uint32_t lo24;  // the node's address: low 24 bits
  uint32_t hi24;  // high 24 bits
  int32_t value1;
  int32_t value2;
  int32_t value3;
  uint32_t choice1;     // 1 to 5, else 0
  uint32_t secondLo24;  // the node's second address
  uint32_t secondHi24;
  uint32_t choice2;  // 0 to 3, else 1
  uint32_t choice3;  // 1 to 4, else 0
  uint32_t choice4;  // 1 to 3, else 0
  int32_t value4;
  uint8_t byte1;
  uint8_t byte2;
  uint8_t reserved[2];  // not read
};
static_assert(sizeof(RangingNodeRecord) == 52 && offsetof(RangingNodeRecord, value1) == 8 &&
              offsetof(RangingNodeRecord, choice1) == 20 && offsetof(RangingNodeRecord, secondLo24) == 24 &&
              offsetof(RangingNodeRecord, choice2) == 32 && offsetof(RangingNodeRecord, value4) == 44 &&
              offsetof(RangingNodeRecord, byte1) == 48 && offsetof(RangingNodeRecord, byte2) == 49);

// A node of a periodic ranging request.
struct PeriodicRangingNodeRecord {
  RangingNodeRecord node;
  int32_t value5;
  int32_t value6;
  uint8_t byte3;
  uint8_t reserved[3];  // not read
};
static_assert(sizeof(PeriodicRangingNodeRecord) == 64 && offsetof(PeriodicRangingNodeRecord, value5) == 52 &&
              offsetof(PeriodicRangingNodeRecord, value6) == 56 && offsetof(PeriodicRangingNodeRecord, byte3) == 60);

// A ranging request's parameters, in its second buffer.
struct RangingScanParams {
  int64_t ts;
};
static_assert(sizeof(RangingScanParams) == 8);

// `scanStatus` of a result whose response was missing or of the other service's type.
inline constexpr uint32_t SCAN_STATUS_BAD_RESPONSE = 5;

// First buffer of a discovery result.
struct DiscoveryResultHeader {
  uint64_t opaque64;    // the response's 64-bit value; 0 for a bad response
  uint32_t opaque32;    // the response's 32-bit value; 0 for a bad response
  uint32_t scanStatus;  // the response's status, or SCAN_STATUS_BAD_RESPONSE
};
static_assert(sizeof(DiscoveryResultHeader) == 16 && offsetof(DiscoveryResultHeader, opaque64) == 0 &&
              offsetof(DiscoveryResultHeader, opaque32) == 8 && offsetof(DiscoveryResultHeader, scanStatus) == 12);

// First buffer of a ranging result.
struct RangingResultHeader {
  uint32_t scanStatus;  // the response's status, or SCAN_STATUS_BAD_RESPONSE
};
static_assert(sizeof(RangingResultHeader) == 4);

// A MAC address.
struct WifiMacAddress {
  uint32_t lo24;  // low 24 bits; bits 24 to 31 are 0
  uint32_t hi24;  // high 24 bits
};
static_assert(sizeof(WifiMacAddress) == 8 && offsetof(WifiMacAddress, lo24) == 0 &&
              offsetof(WifiMacAddress, hi24) == 4);

// One measurement. Reserved bytes, and fields that its kind of measurement does not set, are 0.
struct WifiScanMeasurement {
  uint32_t bssidLo24;  // the BSSID, laid out as a WifiMacAddress
  uint32_t bssidHi24;
  uint64_t scanValue08;
  uint32_t scanValue10;
  uint32_t scanValue14;
  uint32_t scanValue18;
  uint32_t scanValue1C;
  uint32_t scanValue20;
  uint32_t scanValue24;
  uint32_t scanValue28;
  uint32_t scanValue2C;
  uint32_t scanValue30;
  uint32_t scanValue34;
  uint16_t scanValue38;
  uint16_t scanValue3A;
  uint16_t firstInfoIndex;  // in the info records: this measurement's first (low 16 bits)
  uint16_t infoCount;       // how many are its own
  uint32_t byteListOffset;  // in the byte array: its byte list, also when that is empty
  uint32_t byteListLength;  // bytes
  uint32_t element1Offset;  // in the byte array: its first optional element; 0 when absent
  uint32_t element1Length;  // bytes, with the 2 of the element's header; 0 when absent
  uint32_t element2Offset;  // the same for its second optional element
  uint32_t element2Length;
  uint32_t beaconElementsOffset;  // in the byte array: a full beacon's elements
  uint32_t beaconElementsLength;  // bytes, all elements with their headers
  uint32_t reserved60;
  uint32_t firstMacIndex;  // in the MAC address records: a ranging measurement's first
  uint32_t macCount;       // how many are its own
  uint16_t reserved6C;
  uint16_t scanValue6E;
  uint16_t scanValue70;
  uint8_t ssidValid;    // 1 when the SSID holds a value
  uint8_t ssidCopied;   // 1 when `ssidLength` and `ssid` have it
  uint16_t ssidLength;  // octets
  uint8_t ssid[32];     // octets, not text
  uint8_t scanValue96;
  uint8_t scanValue97;
  uint8_t scanValue98;
  uint8_t scanValue99;
  uint8_t scanValue9A;
  uint8_t scanValue9B;
  uint8_t scanValue9C;
  uint8_t scanValue9D;
  uint8_t scanValue9E;
  uint8_t reserved9F;
};
#define KESD_AT(record, field, offset) static_assert(offsetof(record, field) == (offset))
KESD_AT(WifiScanMeasurement, bssidLo24, 0x00);
KESD_AT(WifiScanMeasurement, bssidHi24, 0x04);
KESD_AT(WifiScanMeasurement, scanValue08, 0x08);
KESD_AT(WifiScanMeasurement, scanValue10, 0x10);
KESD_AT(WifiScanMeasurement, scanValue14, 0x14);
KESD_AT(WifiScanMeasurement, scanValue18, 0x18);
KESD_AT(WifiScanMeasurement, scanValue1C, 0x1C);
KESD_AT(WifiScanMeasurement, scanValue20, 0x20);
KESD_AT(WifiScanMeasurement, scanValue24, 0x24);
KESD_AT(WifiScanMeasurement, scanValue28, 0x28);
KESD_AT(WifiScanMeasurement, scanValue2C, 0x2C);
KESD_AT(WifiScanMeasurement, scanValue30, 0x30);
KESD_AT(WifiScanMeasurement, scanValue34, 0x34);
KESD_AT(WifiScanMeasurement, scanValue38, 0x38);
KESD_AT(WifiScanMeasurement, scanValue3A, 0x3A);
KESD_AT(WifiScanMeasurement, firstInfoIndex, 0x3C);
KESD_AT(WifiScanMeasurement, infoCount, 0x3E);
KESD_AT(WifiScanMeasurement, byteListOffset, 0x40);
KESD_AT(WifiScanMeasurement, byteListLength, 0x44);
KESD_AT(WifiScanMeasurement, element1Offset, 0x48);
KESD_AT(WifiScanMeasurement, element1Length, 0x4C);
KESD_AT(WifiScanMeasurement, element2Offset, 0x50);
KESD_AT(WifiScanMeasurement, element2Length, 0x54);
KESD_AT(WifiScanMeasurement, beaconElementsOffset, 0x58);
KESD_AT(WifiScanMeasurement, beaconElementsLength, 0x5C);
KESD_AT(WifiScanMeasurement, firstMacIndex, 0x64);
KESD_AT(WifiScanMeasurement, macCount, 0x68);
KESD_AT(WifiScanMeasurement, scanValue6E, 0x6E);
KESD_AT(WifiScanMeasurement, scanValue70, 0x70);
KESD_AT(WifiScanMeasurement, ssidValid, 0x72);
KESD_AT(WifiScanMeasurement, ssidCopied, 0x73);
KESD_AT(WifiScanMeasurement, ssidLength, 0x74);
KESD_AT(WifiScanMeasurement, ssid, 0x76);
KESD_AT(WifiScanMeasurement, scanValue96, 0x96);
KESD_AT(WifiScanMeasurement, scanValue97, 0x97);
KESD_AT(WifiScanMeasurement, scanValue98, 0x98);
KESD_AT(WifiScanMeasurement, scanValue99, 0x99);
KESD_AT(WifiScanMeasurement, scanValue9A, 0x9A);
KESD_AT(WifiScanMeasurement, scanValue9B, 0x9B);
KESD_AT(WifiScanMeasurement, scanValue9C, 0x9C);
KESD_AT(WifiScanMeasurement, scanValue9D, 0x9D);
KESD_AT(WifiScanMeasurement, scanValue9E, 0x9E);
static_assert(sizeof(WifiScanMeasurement) == 160);
static_assert(std::has_unique_object_representations_v<WifiScanMeasurement>);  // no padding: no byte goes unset

// One entry of a measurement's info list.
struct WifiMeasurementInfo {
  uint32_t infoValue00;
  uint32_t infoValue04;
  uint32_t infoValue08;
  uint32_t infoValue0C;  // a 16-bit member, widened with zeros
  uint64_t infoValue10;
  uint64_t infoValue18;
  uint16_t infoValue20;
  uint16_t infoValue22;
  uint32_t infoValue24;
  uint32_t infoValue28;
  uint32_t infoValue2C;
  uint8_t infoValue30;
  uint8_t infoValue31;
  uint8_t infoValue32;
  uint8_t infoValue33;
  uint32_t infoValue34;
  uint8_t infoValue38;
  uint8_t infoValue39;
  uint8_t infoValue3A;
  uint8_t infoValue3B;
  uint32_t reserved3C;
};
KESD_AT(WifiMeasurementInfo, infoValue00, 0x00);
KESD_AT(WifiMeasurementInfo, infoValue04, 0x04);
KESD_AT(WifiMeasurementInfo, infoValue08, 0x08);
KESD_AT(WifiMeasurementInfo, infoValue0C, 0x0C);
KESD_AT(WifiMeasurementInfo, infoValue10, 0x10);
KESD_AT(WifiMeasurementInfo, infoValue18, 0x18);
KESD_AT(WifiMeasurementInfo, infoValue20, 0x20);
KESD_AT(WifiMeasurementInfo, infoValue22, 0x22);
KESD_AT(WifiMeasurementInfo, infoValue24, 0x24);
KESD_AT(WifiMeasurementInfo, infoValue28, 0x28);
KESD_AT(WifiMeasurementInfo, infoValue2C, 0x2C);
KESD_AT(WifiMeasurementInfo, infoValue30, 0x30);
KESD_AT(WifiMeasurementInfo, infoValue31, 0x31);
KESD_AT(WifiMeasurementInfo, infoValue32, 0x32);
KESD_AT(WifiMeasurementInfo, infoValue33, 0x33);
KESD_AT(WifiMeasurementInfo, infoValue34, 0x34);
KESD_AT(WifiMeasurementInfo, infoValue38, 0x38);
KESD_AT(WifiMeasurementInfo, infoValue39, 0x39);
KESD_AT(WifiMeasurementInfo, infoValue3A, 0x3A);
KESD_AT(WifiMeasurementInfo, infoValue3B, 0x3B);
#undef KESD_AT
static_assert(sizeof(WifiMeasurementInfo) == 64);
static_assert(std::has_unique_object_representations_v<WifiMeasurementInfo>);

// The records of one discovery response.
struct CommonResponseData {
  zv_loc_fw::vector<WifiScanMeasurement> scanMeasurements;  // in the order of the response's measurements
  zv_loc_fw::vector<WifiMeasurementInfo> measurementInfos;  // grouped by measurement, in the same order
  zv_loc_fw::vector<signed char> byteData;                  // byte lists and elements, in the same order
};

// The records of one ranging response.
struct RangingData : CommonResponseData {
  zv_loc_fw::vector<WifiMacAddress> wifiMacAddresses;  // grouped by measurement, in the same order
};

#endif  // KESD_MARSHAL_RECORDS_H_
