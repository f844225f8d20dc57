#include "discovery/discovery_result.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "ipc/services.h"
#include "marshal/records.h"
#include "tests/scripted_platform.h"
#include "tests/test_measurements.h"

namespace {

using FullBeacon = scripted::Measurement<zv_loc_fw::VEXOFullBeaconScanMeasurement>;
using Log = std::vector<std::string>;
using zv_loc_fw::VEXODiscoveryScanResponse;

DiscoveryResultHeader HeaderOf(const scripted::Callback& callback) {
  DiscoveryResultHeader header = {};
  if (!callback.buffers.empty() && callback.buffers[0].size() == sizeof(header)) {
    std::memcpy(&header, callback.buffers[0].data(), sizeof(header));
  }
  return header;
}

TEST(DiscoveryResult, DeliversFullBeaconsInOrderAndWarnsOfWhatElseIsThere) {
  FullBeacon first, second;
  first.bssid.setMac(1, 1);
  first.AddInfos(2, 0);
  first.beaconElements.push_back(first.Element(0, 4));
  second.bssid.setMac(2, 2);
  second.byteList.push_back(9);
  zv_loc_fw::VEXOScanMeasurement plain;
  zv_loc_fw::VEXORangingScanMeasurement ranging;
  VEXODiscoveryScanResponse response(0xFFFFFFFF);
  response.scanStatus = 5;
  response.opaque32 = 0x89ABCDEF;
  response.opaque64 = 0x0123456789ABCDEF;
  for (zv_loc_fw::VEXOScanMeasurement* entry :
       std::initializer_list<zv_loc_fw::VEXOScanMeasurement*>{&first, &plain, nullptr, &ranging, &second}) {
    response.measurements.push_back(entry);
  }
  scripted::TakeLog();
  scripted::Callback callback;
  discovery::ResponseReceived(&response, callback.AsObject());

  scripted::ExpectDelivery(callback, kDeliverDiscoveryResultCounts, {16, 320, 128, 7});
  EXPECT_EQ(HeaderOf(callback).opaque64, 0x0123456789ABCDEFu);
  EXPECT_EQ(HeaderOf(callback).opaque32, 0x89ABCDEFu);
  EXPECT_EQ(HeaderOf(callback).scanStatus, 5u);
  WifiScanMeasurement records[2];
  std::memcpy(records, callback.buffers[1].data(), sizeof(records));
  EXPECT_EQ(records[0].bssidHi24, 1u);
  EXPECT_EQ(records[1].bssidHi24, 2u);
  EXPECT_EQ(records[1].firstInfoIndex, 2);
  EXPECT_EQ(records[1].beaconElementsOffset, 7u) << "also of an empty list";
  EXPECT_EQ(records[1].beaconElementsLength, 0u);
  EXPECT_EQ(
      scripted::TakeLog(),
      (Log{"D kesd DiscoveryScan: ResponseReceived Id = -1\n", "D kesd DiscoveryScan: scanStatus 5, 5 measurements\n",
           "W kesd DiscoveryScan: Unexpected measurement type 0\n", "W kesd DiscoveryScan: Null measurement\n",
           "W kesd DiscoveryScan: Unexpected measurement type 2\n"}));
}

TEST(DiscoveryResult, AnswersAMissingOrForeignResponseWithStatusFive) {
  zv_loc_fw::VEXORangingScanResponse foreign(7);
  for (zv_loc_fw::VEXOResponse* response :
       {static_cast<zv_loc_fw::VEXOResponse*>(nullptr), static_cast<zv_loc_fw::VEXOResponse*>(&foreign)}) {
    scripted::TakeLog();
    scripted::Callback callback;
    discovery::ResponseReceived(response, callback.AsObject());
    scripted::ExpectDelivery(callback, kDeliverDiscoveryResultCounts, {16, 0, 0, 0});
    EXPECT_EQ(HeaderOf(callback).opaque64 + HeaderOf(callback).opaque32, 0u);
    EXPECT_EQ(HeaderOf(callback).scanStatus, SCAN_STATUS_BAD_RESPONSE);
    EXPECT_EQ(scripted::TakeLog(), Log{"W kesd DiscoveryScan: Bad response received\n"});
  }
}

}  // namespace
