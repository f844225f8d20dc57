#include "ranging/ranging_result.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "ipc/services.h"
#include "marshal/records.h"
#include "tests/scripted_platform.h"
#include "tests/test_measurements.h"

namespace {

using Plain = scripted::Measurement<zv_loc_fw::VEXOScanMeasurement>;
using Ranging = scripted::Measurement<zv_loc_fw::VEXORangingScanMeasurement>;
using Log = std::vector<std::string>;
using zv_loc_fw::VEXORangingScanResponse;

uint32_t StatusOf(const scripted::Callback& callback) {
  uint32_t status = 0;
  if (!callback.buffers.empty()) std::memcpy(&status, callback.buffers[0].data(), sizeof(status));
  return status;
}

TEST(RangingResult, DeliversRangingAndPlainMeasurementsInOrderAndWarnsOfWhatElseIsThere) {
  Ranging first, last;
  Plain plain;
  zv_loc_fw::VEXOFullBeaconScanMeasurement beacon;
  first.bssid.setMac(1, 1);
  first.macList.push_back({});
  first.AddInfos(1, 0);
  plain.bssid.setMac(2, 2);
  plain.element1 = plain.Element(1, 4);
  last.bssid.setMac(3, 3);
  last.macList.push_back({});
  last.macList.push_back(last.bssid);
  last.macList[0].setMac(0xA1A2A3, 0xB1B2B3);
  VEXORangingScanResponse response(0x80000000);
  response.scanStatus = 5;
  for (zv_loc_fw::VEXOScanMeasurement* entry :
       std::initializer_list<zv_loc_fw::VEXOScanMeasurement*>{&first, &beacon, &plain, nullptr, &last}) {
    response.measurements.push_back(entry);
  }
  scripted::TakeLog();
  scripted::Callback callback;
  ranging::ResponseReceived(&response, callback.AsObject());

  scripted::ExpectDelivery(callback, kDeliverRangingResultCounts, {4, 480, 64, 6, 24});
  EXPECT_EQ(StatusOf(callback), 5u);
  WifiScanMeasurement records[3];
  std::memcpy(records, callback.buffers[1].data(), sizeof(records));
  for (uint32_t i = 0; i < 3; ++i) EXPECT_EQ(records[i].bssidHi24, i + 1);
  EXPECT_EQ(records[1].macCount, 0u);
  EXPECT_EQ(records[2].firstMacIndex, 1u);
  EXPECT_EQ(records[2].macCount, 2u);
  WifiMacAddress addresses[3];
  std::memcpy(addresses, callback.buffers[4].data(), sizeof(addresses));
  EXPECT_EQ(addresses[1].hi24, 0xA1A2A3u);
  EXPECT_EQ(addresses[1].lo24, 0xB1B2B3u);
  EXPECT_EQ(addresses[2].lo24, 3u);
  EXPECT_EQ(scripted::TakeLog(),
            (Log{"D kesd RangingScan: ResponseReceived Request Id = -2147483648, 5 measurements\n",
                 "W kesd RangingScan: Unexpected measurement type 1\n", "W kesd RangingScan: Null measurement\n"}));
}

TEST(RangingResult, AnswersAMissingOrForeignResponseWithStatusFive) {
  zv_loc_fw::VEXODiscoveryScanResponse foreign(7);
  for (zv_loc_fw::VEXOResponse* response :
       {static_cast<zv_loc_fw::VEXOResponse*>(nullptr), static_cast<zv_loc_fw::VEXOResponse*>(&foreign)}) {
    scripted::TakeLog();
    scripted::Callback callback;
    ranging::ResponseReceived(response, callback.AsObject());
    scripted::ExpectDelivery(callback, kDeliverRangingResultCounts, {4, 0, 0, 0, 0});
    EXPECT_EQ(StatusOf(callback), SCAN_STATUS_BAD_RESPONSE);
    EXPECT_EQ(scripted::TakeLog(), Log{"W kesd RangingScan: Bad response received\n"});
  }
}

}  // namespace
