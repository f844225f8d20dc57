// What a ranging result says of a peer: the host's location client library writes it into the one info object of each
// ranging measurement, the client reads it out of the info record, and both do it here.
#ifndef KESD_HOST_WIFI_RANGING_VALUES_H_
#define KESD_HOST_WIFI_RANGING_VALUES_H_

#include <cstdint>

#include "host/wifi/measurement_values.h"

namespace wifi {

// How the measurement of one peer ended. Without kSuccess, distance and round-trip time say nothing.
enum class RangingStatus : uint32_t {
  kSuccess = 0,
  kFailed = 1,             // and nothing more is known
  kNoResponse = 2,         // it is there and did not answer
  kUnknownPeer = 3,        // nobody with this address was heard
  kNotCapable = 4,         // it does not answer fine timing measurement requests
  kRejected = 5,           // it refused the request
  kWrongChannel = 6,       // it is not on the frequency asked for
  kBusy = 7,               // it asks to be tried again later
  kInvalidTimestamp = 8,   // its time stamps cannot be used
  kChangedParameters = 9,  // it answered with parameters that cannot be used
  kNotMeasured = 10,       // the request ended before its turn came
};

struct RangingValues {
  RangingStatus status = RangingStatus::kFailed;
  int32_t distanceMm = 0;              // may be negative: noise at a short distance
  uint32_t distanceStdMm = 0;          // standard deviation
  int64_t rttPs = 0;                   // mean round-trip time, picoseconds; may be negative
  uint64_t rttVariancePs2 = 0;         // its variance, square picoseconds
  uint16_t burstsAsked = 0;            // measurement bursts
  uint16_t burstsAnswered = 0;         // of those, how many gave a result
  int32_t signalMbm = kSignalUnknown;  // mean over the frames received, 1/100 dBm
};

// `info` is a zv_loc_fw::MeasurementInfoObject; its members are named after their offsets.
template <typename Info>
void StoreRangingValues(const RangingValues& values, Info& info) {
  info.value00 = static_cast<uint32_t>(values.status);
  info.value04 = static_cast<uint32_t>(values.distanceMm);
  info.value08 = values.distanceStdMm;
  info.value10 = static_cast<uint64_t>(values.rttPs);
  info.value18 = values.rttVariancePs2;
  info.value20 = values.burstsAsked;
  info.value24 = values.burstsAnswered;
  info.value28 = static_cast<uint32_t>(values.signalMbm);
}

// `record` is the WifiMeasurementInfo that the daemon made of such an object.
template <typename Record>
RangingValues LoadRangingValues(const Record& record) {
  RangingValues values;
  values.status = static_cast<RangingStatus>(record.infoValue00);
  values.distanceMm = static_cast<int32_t>(record.infoValue04);
  values.distanceStdMm = record.infoValue08;
  values.rttPs = static_cast<int64_t>(record.infoValue10);
  values.rttVariancePs2 = record.infoValue18;
  values.burstsAsked = record.infoValue20;
  values.burstsAnswered = record.infoValue22;
  values.signalMbm = static_cast<int32_t>(record.infoValue24);
  return values;
}

}  // namespace wifi

#endif  // KESD_HOST_WIFI_RANGING_VALUES_H_
