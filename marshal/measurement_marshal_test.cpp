#include "marshal/measurement_marshal.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "tests/scripted_platform.h"
#include "tests/test_measurements.h"

namespace {

using Plain = scripted::Measurement<zv_loc_fw::VEXOScanMeasurement>;
using FullBeacon = scripted::Measurement<zv_loc_fw::VEXOFullBeaconScanMeasurement>;
using Ranging = scripted::Measurement<zv_loc_fw::VEXORangingScanMeasurement>;
using Bytes = std::vector<uint8_t>;

Bytes BytesOf(const CommonResponseData& data, uint32_t offset, uint32_t length) {
  if (offset > data.byteData.count || length > data.byteData.count - offset) return {};
  return {data.byteData.data + offset, data.byteData.data + offset + length};
}

// Copies the bytes [from, from + width) of an object to the same width at `to` of its record.
struct Copied {
  uint32_t from;
  uint32_t width;
  uint32_t to;
};

// Fills an object's members with bytes that differ, by position, and checks where in the record they come out.
TEST(MarshalCommon, CopiesEachValueToItsPlaceAndLeavesTheRestZero) {
  const Copied kValues[] = {{0xF8, 8, 0x08}, {0xF0, 4, 0x10}, {0x10, 4, 0x14}, {0xA0, 4, 0x18}, {0xE8, 4, 0x1C},
                            {0x44, 4, 0x20}, {0x48, 4, 0x24}, {0x98, 4, 0x28}, {0xEC, 4, 0x2C}, {0xF4, 4, 0x30},
                            {0xA8, 4, 0x34}, {0xA4, 2, 0x38}, {0xA6, 2, 0x3A}, {0xC8, 2, 0x6E}, {0xCA, 2, 0x70},
                            {0x9C, 1, 0x96}, {0x9D, 1, 0x97}, {0x79, 1, 0x98}, {0xCC, 1, 0x99}, {0xCD, 1, 0x9A},
                            {0xCE, 1, 0x9B}, {0x78, 1, 0x9C}, {0x40, 1, 0x9D}, {0x41, 1, 0x9E}};
  Plain measurement;
  measurement.bssid.setMac(0x0A0B0C, 0x0D0E0F);
  auto* object = reinterpret_cast<uint8_t*>(static_cast<zv_loc_fw::VEXOScanMeasurement*>(&measurement));
  Bytes expected(sizeof(WifiScanMeasurement));
  const uint8_t bssid[] = {0x0F, 0x0E, 0x0D, 0, 0x0C, 0x0B, 0x0A, 0};
  std::copy(std::begin(bssid), std::end(bssid), expected.begin());
  for (const Copied& value : kValues) {
    for (uint32_t i = 0; i < value.width; ++i) {
      object[value.from + i] = static_cast<uint8_t>(value.from + i) ^ 0x5A;
      expected[value.to + i] = static_cast<uint8_t>(value.from + i) ^ 0x5A;
    }
  }
  CommonResponseData data;
  MarshalCommon(data, &measurement);
  ASSERT_EQ(data.scanMeasurements.count, 1u);
  const auto* record = reinterpret_cast<const uint8_t*>(data.scanMeasurements.data);
  EXPECT_EQ(Bytes(record, record + sizeof(WifiScanMeasurement)), expected);
}

TEST(MarshalCommon, CopiesEachInfoValueToItsPlace) {
  const Copied kValues[] = {{0x00, 4, 0x00}, {0x04, 4, 0x04}, {0x08, 4, 0x08}, {0x22, 2, 0x0C}, {0x10, 8, 0x10},
                            {0x18, 8, 0x18}, {0x20, 2, 0x20}, {0x24, 2, 0x22}, {0x28, 4, 0x24}, {0x2C, 4, 0x28},
                            {0x30, 4, 0x2C}, {0x34, 4, 0x30}, {0x38, 4, 0x34}, {0x3C, 4, 0x38}};
  zv_loc_fw::MeasurementInfoObject info;
  auto* object = reinterpret_cast<uint8_t*>(&info);
  for (uint32_t i = 0; i < sizeof(info); ++i) object[i] = static_cast<uint8_t>(0xFF - i);
  Bytes expected(sizeof(WifiMeasurementInfo));
  for (const Copied& value : kValues) std::copy_n(object + value.from, value.width, expected.begin() + value.to);

  Plain measurement;
  measurement.infoList.push_back(nullptr);
  measurement.infoList.push_back(&info);
  CommonResponseData data;
  MarshalCommon(data, &measurement);
  ASSERT_EQ(data.measurementInfos.count, 2u);
  const auto* records = reinterpret_cast<const uint8_t*>(data.measurementInfos.data);
  EXPECT_EQ(Bytes(records, records + 64), Bytes(64)) << "a missing object is an all-zero record";
  EXPECT_EQ(Bytes(records + 64, records + 128), expected);
  EXPECT_EQ(data.scanMeasurements[0].infoCount, 2);
}

TEST(MarshalCommon, ReferencesCountOnFromWhatIsThere) {
  Plain first, second;
  first.AddInfos(5, 100);
  for (const int byte : {1, -2, 3}) first.byteList.push_back(static_cast<signed char>(byte));
  second.AddInfos(3, 200);
  second.element2 = second.Element(7, 3);
  CommonResponseData data;
  MarshalCommon(data, &first);
  MarshalCommon(data, nullptr);
  MarshalCommon(data, &second);
  ASSERT_EQ(data.scanMeasurements.count, 2u);
  const WifiScanMeasurement& a = data.scanMeasurements[0];
  EXPECT_EQ(BytesOf(data, a.byteListOffset, a.byteListLength), (Bytes{1, 0xFE, 3}));
  EXPECT_EQ(a.element1Offset + a.element1Length + a.element2Offset + a.element2Length, 0u);
  const WifiScanMeasurement& b = data.scanMeasurements[1];
  EXPECT_EQ(b.firstInfoIndex, 5);
  EXPECT_EQ(b.infoCount, 3);
  EXPECT_EQ(data.measurementInfos[7].infoValue00, 202u);
  EXPECT_EQ(b.byteListOffset, 3u) << "also of an empty list";
  EXPECT_EQ(b.byteListLength, 0u);
  EXPECT_EQ(b.element1Offset + b.element1Length, 0u);
  EXPECT_EQ(b.element2Offset, 3u);
  EXPECT_EQ(BytesOf(data, b.element2Offset, b.element2Length), (Bytes{7, 3, 1, 2, 3}));
  EXPECT_EQ(b.beaconElementsOffset + b.beaconElementsLength + b.firstMacIndex + b.macCount, 0u);
}

TEST(MarshalCommon, InfoIndicesAreCutTo16Bits) {
  Plain most, two;
  most.AddInfos(65535, 0);
  two.AddInfos(2, 7);
  CommonResponseData data;
  for (const Plain* measurement : {&most, &two, &two}) MarshalCommon(data, measurement);
  EXPECT_EQ(data.scanMeasurements[1].firstInfoIndex, 65535);
  EXPECT_EQ(data.scanMeasurements[2].firstInfoIndex, 1);
  EXPECT_EQ(data.measurementInfos.count, 65539u);
}

// Record 65 needs a larger block of records; when there is none, its elements and addresses arrive all the same, and
// the records that are there stay as they are.
TEST(Marshal, ARecordThatFindsNoMemoryIsMissingAndNobodyElsesIsWritten) {
  FullBeacon beacon;
  beacon.beaconElements.push_back(beacon.Element(0, 1));
  Ranging ranging;
  ranging.macList.push_back({});
  CommonResponseData beacons;
  RangingData ranges;
  for (int i = 0; i < 64; ++i) MarshalFullBeacon(beacons, &beacon);
  for (int i = 0; i < 32; ++i) MarshalRanging(ranges, &ranging);
  for (int i = 0; i < 32; ++i) MarshalCommon(ranges, &ranging);
  EXPECT_EQ(ranges.scanMeasurements[31].firstMacIndex, 31u);
  const std::string recordsBefore(reinterpret_cast<const char*>(ranges.scanMeasurements.data), 64 * 160);
  scripted::TakeLog();
  {
    const scripted::FailingMemory noMemory(0, 1);
    MarshalRanging(ranges, &ranging);
  }
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(ranges.scanMeasurements.data), 64 * 160), recordsBefore);
  EXPECT_EQ(ranges.scanMeasurements.count, 64u);
  EXPECT_EQ(ranges.wifiMacAddresses.count, 33u);
  EXPECT_EQ(scripted::TakeLog(),
            (std::vector<std::string>{"E vector insertion failed -2", "E vector index out of range\n"}));

  {
    const scripted::FailingMemory noMemory(0, 1);
    MarshalFullBeacon(beacons, &beacon);
  }
  EXPECT_EQ(beacons.scanMeasurements.count, 64u);
  EXPECT_EQ(beacons.byteData.count, 65u * 3);
  EXPECT_EQ(beacons.scanMeasurements[0].beaconElementsOffset, 0u);
}

}  // namespace
