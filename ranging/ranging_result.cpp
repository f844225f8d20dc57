#include "ranging/ranging_result.h"

#include "dispatcher/buffers.h"
#include "ipc/services.h"
#include "marshal/measurement_marshal.h"
#include "marshal/records.h"
#include "platform/log.h"

using zv_loc_fw::log_debug;
using zv_loc_fw::log_warning;

namespace ranging {
namespace {

constexpr char kTag[] = "kesd";

void Deliver(Object callback, RangingResultHeader header, const RangingData& data) {
  ObjectArg args[] = {{.buffer = {&header, sizeof(header)}},
                      ArrayBuffer(data.scanMeasurements),
                      ArrayBuffer(data.measurementInfos),
                      ArrayBuffer(data.byteData),
                      ArrayBuffer(data.wifiMacAddresses)};
  (void)callback.invoke(callback.context, kDeliverResult, args, kDeliverRangingResultCounts);
}

void Marshal(RangingData& data, const zv_loc_fw::VEXOScanMeasurement* measurement) {
  if (measurement == nullptr) {
    log_warning(kTag, "RangingScan: Null measurement\n");
    return;
  }
  switch (const int32_t type = measurement->getMeasurementType()) {
    case zv_loc_fw::MEASUREMENT_TYPE_PLAIN:
      return MarshalCommon(data, measurement);
    case zv_loc_fw::MEASUREMENT_TYPE_RANGING:
      return MarshalRanging(data, static_cast<const zv_loc_fw::VEXORangingScanMeasurement*>(measurement));
    default:
      log_warning(kTag, "RangingScan: Unexpected measurement type %d\n", type);
  }
}

}  // namespace

void ResponseReceived(zv_loc_fw::VEXOResponse* response, Object callback) {
  RangingData data;
  if (response == nullptr || response->getResponseType() != zv_loc_fw::RESPONSE_TYPE_RANGING_SCAN) {
    log_warning(kTag, "RangingScan: Bad response received\n");
    Deliver(callback, {.scanStatus = SCAN_STATUS_BAD_RESPONSE}, data);
    return;
  }
  auto& scan = static_cast<zv_loc_fw::VEXORangingScanResponse&>(*response);
  log_debug(kTag, "RangingScan: ResponseReceived Request Id = %d, %d measurements\n",
            static_cast<int>(scan.getRequestId()), static_cast<int>(scan.measurements.count));
  for (uint32_t i = 0; i < scan.measurements.count; ++i) Marshal(data, scan.measurements[i]);
  Deliver(callback, {.scanStatus = scan.scanStatus}, data);
}

}  // namespace ranging
