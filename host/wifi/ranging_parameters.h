// What the parameters of a ranging request mean to the host's location client library: those of an IEEE 802.11 fine
// timing measurement (IEEE Std 802.11-2020, 9.4.2.167 and 11.21.6). The daemon passes them on unread, apart from
// replacing choices out of range by their defaults. 0 lets the library choose, unless a field says otherwise.
#ifndef KESD_HOST_WIFI_RANGING_PARAMETERS_H_
#define KESD_HOST_WIFI_RANGING_PARAMETERS_H_

#include <cstdint>

namespace wifi {

// `ts`: milliseconds until the request, or each round of a periodic one, is answered with what there is; 0 and below
// stand for this.
inline constexpr int64_t kDefaultRangingTimeoutMs = 10'000;

// `choice1`. The daemon makes other values kChoose.
enum class RangingBandwidth : uint32_t { kChoose = 0, k20MHz = 1, k40MHz = 2, k80MHz = 3, k160MHz = 4, k320MHz = 5 };

// `choice2`: the number of bursts is 2 to this power, 0 to 3; 0 is one burst. The daemon makes other values this.
inline constexpr uint32_t kDefaultBurstExponent = 1;

// `choice3`. The daemon makes other values kChoose.
enum class RangingPreamble : uint32_t { kChoose = 0, kLegacy = 1, kHt = 2, kVht = 3, kHe = 4 };

// `choice4`. The daemon makes other values kChoose.
enum class RangingProtocol : uint32_t { kChoose = 0, kEdca = 1, kTriggerBased = 2, kNonTriggerBased = 3 };

// A node of a request, typed. Its second address is another address of the same device, reported with the first; 0 is
// none.
struct RangingParameters {
  int32_t frequencyMhz = 0;        // centre of the peer's primary channel
  int32_t centreFrequencyMhz = 0;  // centre of its whole bandwidth
  int32_t timeoutMs = 0;           // for this peer
  RangingBandwidth bandwidth = RangingBandwidth::kChoose;
  uint32_t burstExponent = kDefaultBurstExponent;
  RangingPreamble preamble = RangingPreamble::kChoose;
  RangingProtocol protocol = RangingProtocol::kChoose;
  int32_t burstPeriod = 0;     // from burst to burst, units of 100 ms
  uint8_t framesPerBurst = 0;  // 1 to 31
  uint8_t retries = 0;         // of a request that is not answered
};

// `node` is a RangingNodeRecord, as a client sends it, or a zv_loc_fw::VEXONodeInfo, as the library gets it.
template <typename Node>
void StoreRangingParameters(const RangingParameters& parameters, Node& node) {
  node.value1 = parameters.frequencyMhz;
  node.value2 = parameters.centreFrequencyMhz;
  node.value3 = parameters.timeoutMs;
  node.choice1 = static_cast<uint32_t>(parameters.bandwidth);
  node.choice2 = parameters.burstExponent;
  node.choice3 = static_cast<uint32_t>(parameters.preamble);
  node.choice4 = static_cast<uint32_t>(parameters.protocol);
  node.value4 = parameters.burstPeriod;
  node.byte1 = parameters.framesPerBurst;
  node.byte2 = parameters.retries;
}

template <typename Node>
RangingParameters LoadRangingParameters(const Node& node) {
  RangingParameters parameters;
  parameters.frequencyMhz = node.value1;
  parameters.centreFrequencyMhz = node.value2;
  parameters.timeoutMs = node.value3;
  parameters.bandwidth = static_cast<RangingBandwidth>(node.choice1);
  parameters.burstExponent = node.choice2;
  parameters.preamble = static_cast<RangingPreamble>(node.choice3);
  parameters.protocol = static_cast<RangingProtocol>(node.choice4);
  parameters.burstPeriod = node.value4;
  parameters.framesPerBurst = node.byte1;
  parameters.retries = node.byte2;
  return parameters;
}

// `value5` of a periodic node: milliseconds from the start of one round to the start of the next. The nodes of a
// request are measured together, at the shortest interval among them, kept between these two.
inline constexpr int32_t kMinRangingIntervalMs = 100;
inline constexpr int32_t kMaxRangingIntervalMs = 3'600'000;

// `value6` of a periodic node: the number of rounds, the largest among the nodes, kept between 1 and this. Nobody can
// call a periodic request off, so it has an end.
inline constexpr int32_t kMaxRangingRounds = 1'000;

// `byte3` of a periodic node makes no difference.

}  // namespace wifi

#endif  // KESD_HOST_WIFI_RANGING_PARAMETERS_H_
