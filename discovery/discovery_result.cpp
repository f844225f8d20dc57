#include "discovery/discovery_result.h"

#include <cstddef>

#include "dispatcher/buffers.h"
#include "ipc/services.h"
#include "marshal/measurement_marshal.h"
#include "marshal/records.h"
#include "platform/log.h"

using zv_loc_fw::log_debug;
using zv_loc_fw::log_warning;

namespace discovery {
namespace {

constexpr char kTag[] = "kesd";

void Deliver(Object callback, DiscoveryResultHeader header, const CommonResponseData& data) {
  ObjectArg args[] = {{.buffer = {&header, sizeof(header)}},
                      ArrayBuffer(data.scanMeasurements),
                      ArrayBuffer(data.measurementInfos),
                      ArrayBuffer(data.byteData)};
  (void)callback.invoke(callback.context, kDeliverResult, args, kDeliverDiscoveryResultCounts);
}

void Marshal(CommonResponseData& data, const zv_loc_fw::VEXOScanMeasurement* measurement) {
  if (measurement == nullptr) {
    log_warning(kTag, "DiscoveryScan: Null measurement\n");
    return;
  }
  const int32_t type = measurement->getMeasurementType();
  if (type != zv_loc_fw::MEASUREMENT_TYPE_FULL_BEACON) {
    log_warning(kTag, "DiscoveryScan: Unexpected measurement type %d\n", type);
    return;
  }
  MarshalFullBeacon(data, static_cast<const zv_loc_fw::VEXOFullBeaconScanMeasurement*>(measurement));
}

}  // namespace

void ResponseReceived(zv_loc_fw::VEXOResponse* response, Object callback) {
  CommonResponseData data;
  if (response == nullptr || response->getResponseType() != zv_loc_fw::RESPONSE_TYPE_DISCOVERY_SCAN) {
    log_warning(kTag, "DiscoveryScan: Bad response received\n");
    Deliver(callback, {.opaque64 = 0, .opaque32 = 0, .scanStatus = SCAN_STATUS_BAD_RESPONSE}, data);
    return;
  }
  auto& scan = static_cast<zv_loc_fw::VEXODiscoveryScanResponse&>(*response);
  log_debug(kTag, "DiscoveryScan: ResponseReceived Id = %d\n", static_cast<int>(scan.getRequestId()));
  log_debug(kTag, "DiscoveryScan: scanStatus %d, %zu measurements\n", static_cast<int>(scan.scanStatus),
            std::size_t{scan.measurements.count});
  for (uint32_t i = 0; i < scan.measurements.count; ++i) Marshal(data, scan.measurements[i]);
  Deliver(callback, {.opaque64 = scan.opaque64, .opaque32 = scan.opaque32, .scanStatus = scan.scanStatus}, data);
}

}  // namespace discovery
