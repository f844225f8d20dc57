// What the services make, and say, of the library's responses.
#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <vector>

#include "discovery/discovery_result.h"
#include "marshal/records.h"
#include "platform/vexo_response.h"
#include "ranging/ranging_result.h"
#include "tests/scripted_platform.h"

namespace {

using Log = std::vector<std::string>;
using Handler = void (*)(zv_loc_fw::VEXOResponse*, Object);

// Expects a delivery of `header` and of so many bytes in the buffers behind it. The rest of it Fuzz.marshal sees.
void ExpectResult(Handler handler, zv_loc_fw::VEXOResponse* response, const std::vector<uint8_t>& header,
                  const std::vector<size_t>& sizes, const Log& log) {
  scripted::TakeLog();
  scripted::Callback callback;
  handler(response, callback.AsObject());
  EXPECT_EQ(callback.op, 0u);
  ASSERT_EQ(callback.buffers.size(), 1 + sizes.size());
  EXPECT_EQ(callback.buffers[0], header);
  for (size_t i = 0; i < sizes.size(); ++i) EXPECT_EQ(callback.buffers[1 + i].size(), sizes[i]);
  EXPECT_EQ(scripted::TakeLog(), log);
}

TEST(ScanResults, HoldTheServicesMeasurementsAndTheLogNamesTheOthers) {
  zv_loc_fw::VEXOScanMeasurement plain;
  zv_loc_fw::VEXOFullBeaconScanMeasurement beacon;
  zv_loc_fw::VEXORangingScanMeasurement ranged;
  ranged.macList.push_back({});
  zv_loc_fw::VEXODiscoveryScanResponse scan(0xFFFFFFFF);
  scan.opaque32 = 0x89ABCDEF;
  scan.opaque64 = 0x0123456789ABCDEF;
  zv_loc_fw::VEXORangingScanResponse distances(0x80000000);
  scan.scanStatus = distances.scanStatus = 6;
  for (zv_loc_fw::VEXOScanMeasurement* entry :
       std::initializer_list<zv_loc_fw::VEXOScanMeasurement*>{&beacon, &plain, nullptr, &ranged, &beacon}) {
    scan.measurements.push_back(entry);
    distances.measurements.push_back(entry);
  }
  ExpectResult(
      discovery::ResponseReceived, &scan, scripted::BytesOf(DiscoveryResultHeader{0x0123456789ABCDEF, 0x89ABCDEF, 6}),
      {2 * 160, 0, 0},
      {"D kesd DiscoveryScan: ResponseReceived Id = -1\n", "D kesd DiscoveryScan: scanStatus 6, 5 measurements\n",
       "W kesd DiscoveryScan: Unexpected measurement type 0\n", "W kesd DiscoveryScan: Null measurement\n",
       "W kesd DiscoveryScan: Unexpected measurement type 2\n"});
  ExpectResult(ranging::ResponseReceived, &distances, scripted::BytesOf(RangingResultHeader{6}), {2 * 160, 0, 0, 8},
               {"D kesd RangingScan: ResponseReceived Request Id = -2147483648, 5 measurements\n",
                "W kesd RangingScan: Unexpected measurement type 1\n", "W kesd RangingScan: Null measurement\n",
                "W kesd RangingScan: Unexpected measurement type 1\n"});

  ExpectResult(discovery::ResponseReceived, &distances,
               scripted::BytesOf(DiscoveryResultHeader{0, 0, SCAN_STATUS_BAD_RESPONSE}), {0, 0, 0},
               {"W kesd DiscoveryScan: Bad response received\n"});
  ExpectResult(ranging::ResponseReceived, &scan, scripted::BytesOf(RangingResultHeader{SCAN_STATUS_BAD_RESPONSE}),
               {0, 0, 0, 0}, {"W kesd RangingScan: Bad response received\n"});
}

}  // namespace
