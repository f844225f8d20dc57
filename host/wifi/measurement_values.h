// What the values mean that the daemon relays unread: the host's location client library writes them into its
// objects, the client reads them out of the result records, and both do it here. Units stand beside each field.
#ifndef KESD_HOST_WIFI_MEASUREMENT_VALUES_H_
#define KESD_HOST_WIFI_MEASUREMENT_VALUES_H_

#include <cstdint>
#include <limits>

namespace wifi {

// `scanStatus` of a response.
enum class ScanStatus : uint32_t {
  kOk = 0,
  kFailed = 1,          // the source began and could not finish
  kTimedOut = 2,        // the request's timeout passed first
  kUnsupported = 3,     // this source never serves such a request
  kUnavailable = 4,     // the source cannot be read at the moment
  kBadResponse = 5,     // the daemon's own: the library's response was missing or of the wrong type
  kInvalidRequest = 6,  // a parameter that no source can serve, such as a channel that does not exist
  // Why a radio of the machine cannot serve at the moment.
  kInterfaceGone = 7,    // there is no network interface of its name
  kInterfaceDown = 8,    // its interface is not up
  kRadioBlocked = 9,     // by rfkill: a switch, a key or a program has turned radios off
  kWrongInterface = 10,  // its interface is none of a radio, or of a type that cannot scan
  kNotPermitted = 11     // the daemon lacks the capability CAP_NET_ADMIN
};

// What measures: the 32-bit value of a discovery response that the daemon relays as `opaque32`.
enum class SourceKind : uint32_t {
  kUnknown = 0,  // none could be made, or the daemon had no response
  kScene = 1,    // a neighbourhood that is made up
  kCapture = 2,  // a file of what was heard before
  kRadio = 3     // the machine's own
};

inline constexpr int32_t kSignalUnknown = std::numeric_limits<int32_t>::min();

// The values that every measurement carries beside its BSSID, SSID and elements.
struct ScanValues {
  uint64_t timestampUs = 0;            // Timestamp field of the beacon or probe response (9.4.1.10); 0 if unknown
  uint32_t takenAtMs = 0;              // when it was taken: milliseconds of CLOCK_BOOTTIME modulo 2^32
  uint32_t frequencyMhz = 0;           // centre of the primary channel; 0 if unknown
  int32_t signalMbm = kSignalUnknown;  // 1/100 dBm
  uint16_t beaconIntervalTu = 0;       // time units of 1024 us (9.4.1.3)
  uint16_t capability = 0;             // Capability Information field (9.4.1.4)
};

// `measurement` is a zv_loc_fw::VEXOScanMeasurement; its members are named after their offsets.
template <typename Measurement>
void StoreScanValues(const ScanValues& values, Measurement& measurement) {
  measurement.valueF8 = values.timestampUs;
  measurement.valueF0 = values.takenAtMs;
  measurement.value10 = values.frequencyMhz;
  measurement.valueA0 = static_cast<uint32_t>(values.signalMbm);
  measurement.valueA4 = values.beaconIntervalTu;
  measurement.valueA6 = values.capability;
}

// `record` is the WifiScanMeasurement that the daemon made of such a measurement.
template <typename Record>
ScanValues LoadScanValues(const Record& record) {
  ScanValues values;
  values.timestampUs = record.scanValue08;
  values.takenAtMs = record.scanValue10;
  values.frequencyMhz = record.scanValue14;
  values.signalMbm = static_cast<int32_t>(record.scanValue18);
  values.beaconIntervalTu = record.scanValue38;
  values.capability = record.scanValue3A;
  return values;
}

// How old a measurement was at `nowUs`, microseconds of CLOCK_BOOTTIME; at most 24 days, and 0 when it was taken later.
inline uint32_t AgeMs(const ScanValues& values, uint64_t nowUs) {
  const auto age = static_cast<int32_t>(static_cast<uint32_t>(nowUs / 1'000) - values.takenAtMs);
  return age > 0 ? static_cast<uint32_t>(age) : 0;
}

}  // namespace wifi

#endif  // KESD_HOST_WIFI_MEASUREMENT_VALUES_H_
