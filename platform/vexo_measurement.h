// The location client library's measurements. Their bodies live in libvexo_client.so; the daemon reads most
// members by their position, so every position is asserted. A member that the daemon relays without knowing its
// meaning is named after its offset.
#ifndef KESD_PLATFORM_VEXO_MEASUREMENT_H_
#define KESD_PLATFORM_VEXO_MEASUREMENT_H_

#include <cstddef>
#include <cstdint>

#include "platform/vexo_types.h"
#include "support/vector.h"

namespace zv_loc_fw {

// An information element (IEEE Std 802.11-2020, 9.4.2) as the library holds it.
struct ElementObject {
  uint8_t id;
  uint8_t length;  // octets at `payload`
  const uint8_t* payload;
};
static_assert(sizeof(ElementObject) == 16 && offsetof(ElementObject, id) == 0 && offsetof(ElementObject, length) == 1 &&
              offsetof(ElementObject, payload) == 8);

// One entry of a measurement's info list.
struct MeasurementInfoObject {
  uint32_t value00;
  uint32_t value04;
  uint32_t value08;
  uint64_t value10;
  uint64_t value18;
  uint16_t value20;
  uint16_t value22;
  uint16_t value24;
  uint32_t value28;
  uint32_t value2C;
  uint32_t value30;
  uint8_t value34;
  uint8_t value35;
  uint8_t value36;
  uint8_t value37;
  uint32_t value38;
  uint8_t value3C;
  uint8_t value3D;
  uint8_t value3E;
  uint8_t value3F;
};
static_assert(sizeof(MeasurementInfoObject) == 0x40);
static_assert(offsetof(MeasurementInfoObject, value08) == 0x08 && offsetof(MeasurementInfoObject, value10) == 0x10 &&
              offsetof(MeasurementInfoObject, value20) == 0x20 && offsetof(MeasurementInfoObject, value22) == 0x22 &&
              offsetof(MeasurementInfoObject, value24) == 0x24 && offsetof(MeasurementInfoObject, value28) == 0x28 &&
              offsetof(MeasurementInfoObject, value34) == 0x34 && offsetof(MeasurementInfoObject, value38) == 0x38 &&
              offsetof(MeasurementInfoObject, value3C) == 0x3C && offsetof(MeasurementInfoObject, value3F) == 0x3F);

// What getMeasurementType answers.
inline constexpr int32_t MEASUREMENT_TYPE_PLAIN = 0;
inline constexpr int32_t MEASUREMENT_TYPE_FULL_BEACON = 1;
inline constexpr int32_t MEASUREMENT_TYPE_RANGING = 2;

class VEXOScanMeasurement {
 public:
  VEXOScanMeasurement();
  VEXOScanMeasurement(const VEXOScanMeasurement&) = delete;
  VEXOScanMeasurement& operator=(const VEXOScanMeasurement&) = delete;
  virtual ~VEXOScanMeasurement();
  virtual int32_t getMeasurementType() const;

  VEXOMacAddress bssid;
  uint32_t value10;
  uint8_t reserved14[0x2C];
  uint8_t value40;
  uint8_t value41;
  uint8_t reserved42[2];
  uint32_t value44;
  uint32_t value48;
  VEXOSsid ssid;
  uint8_t reserved70[8];
  uint8_t value78;
  uint8_t value79;
  uint8_t reserved7A[6];
  vector<MeasurementInfoObject*> infoList;
  uint32_t value98;
  uint8_t value9C;
  uint8_t value9D;
  uint8_t reserved9E[2];
  uint32_t valueA0;
  uint16_t valueA4;
  uint16_t valueA6;
  uint32_t valueA8;
  uint8_t reservedAC[4];
  vector<signed char> byteList;
  uint16_t valueC8;
  uint16_t valueCA;
  uint8_t valueCC;
  uint8_t valueCD;
  uint8_t valueCE;
  uint8_t reservedCF;
  ElementObject* element1;  // may be null
  ElementObject* element2;  // may be null
  uint8_t reservedE0[8];
  uint32_t valueE8;
  uint32_t valueEC;
  uint32_t valueF0;
  uint32_t valueF4;
  uint64_t valueF8;
};

class VEXOFullBeaconScanMeasurement : public VEXOScanMeasurement {
 public:
  VEXOFullBeaconScanMeasurement();
  ~VEXOFullBeaconScanMeasurement() override;
  int32_t getMeasurementType() const override;

  uint8_t vendorExtraByte;  // the first byte of a 64-bit member
  uint8_t reserved101[15];
  vector<ElementObject*> beaconElements;  // in the beacon's order; an entry may be null
};

class VEXORangingScanMeasurement : public VEXOScanMeasurement {
 public:
  VEXORangingScanMeasurement();
  ~VEXORangingScanMeasurement() override;
  int32_t getMeasurementType() const override;

  uint8_t reserved100[16];
  vector<VEXOMacAddress> macList;
};

// Positions in polymorphic classes: every compiler of the platform lays these out as the Itanium C++ ABI says.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
#define KESD_AT(member, offset) static_assert(offsetof(VEXOScanMeasurement, member) == (offset))
KESD_AT(bssid, 0x08);
KESD_AT(value10, 0x10);
KESD_AT(value40, 0x40);
KESD_AT(value41, 0x41);
KESD_AT(value44, 0x44);
KESD_AT(value48, 0x48);
KESD_AT(ssid, 0x4C);
KESD_AT(value78, 0x78);
KESD_AT(value79, 0x79);
KESD_AT(infoList, 0x80);
KESD_AT(value98, 0x98);
KESD_AT(value9C, 0x9C);
KESD_AT(value9D, 0x9D);
KESD_AT(valueA0, 0xA0);
KESD_AT(valueA4, 0xA4);
KESD_AT(valueA6, 0xA6);
KESD_AT(valueA8, 0xA8);
KESD_AT(byteList, 0xB0);
KESD_AT(valueC8, 0xC8);
KESD_AT(valueCA, 0xCA);
KESD_AT(valueCC, 0xCC);
KESD_AT(valueCD, 0xCD);
KESD_AT(valueCE, 0xCE);
KESD_AT(element1, 0xD0);
KESD_AT(element2, 0xD8);
KESD_AT(valueE8, 0xE8);
KESD_AT(valueEC, 0xEC);
KESD_AT(valueF0, 0xF0);
KESD_AT(valueF4, 0xF4);
KESD_AT(valueF8, 0xF8);
#undef KESD_AT
static_assert(sizeof(VEXOScanMeasurement) == 0x100);
static_assert(offsetof(VEXOFullBeaconScanMeasurement, vendorExtraByte) == 0x100 &&
              offsetof(VEXOFullBeaconScanMeasurement, beaconElements) == 0x110);
static_assert(offsetof(VEXORangingScanMeasurement, macList) == 0x110);
static_assert(offsetof(vector<ElementObject*>, data) == 0x08 && offsetof(vector<ElementObject*>, capacity) == 0x10 &&
              offsetof(vector<ElementObject*>, count) == 0x14);
#pragma GCC diagnostic pop

}  // namespace zv_loc_fw

#endif  // KESD_PLATFORM_VEXO_MEASUREMENT_H_
