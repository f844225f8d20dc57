// Turns the location client library's measurements into the flat records of records.h.
//
// Each function appends one measurement's records to an aggregate that the calling thread owns; a null measurement
// appends nothing. The measurement is only read. An append that finds no memory is logged by the array and leaves
// its entry missing, while the references in the record still describe what was meant.
#ifndef KESD_MARSHAL_MEASUREMENT_MARSHAL_H_
#define KESD_MARSHAL_MEASUREMENT_MARSHAL_H_

#include "marshal/records.h"
#include "platform/vexo_measurement.h"

// What every measurement has: its scan record, info records, byte list and two optional elements.
void MarshalCommon(CommonResponseData& data, const zv_loc_fw::VEXOScanMeasurement* measurement);

// The same, and the beacon's elements.
void MarshalFullBeacon(CommonResponseData& data, const zv_loc_fw::VEXOFullBeaconScanMeasurement* measurement);

// The same as MarshalCommon, and the list of MAC addresses.
void MarshalRanging(RangingData& data, const zv_loc_fw::VEXORangingScanMeasurement* measurement);

#endif  // KESD_MARSHAL_MEASUREMENT_MARSHAL_H_
