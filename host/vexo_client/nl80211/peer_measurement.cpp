#include "host/vexo_client/nl80211/peer_measurement.h"

#include <linux/nl80211.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <initializer_list>
#include <limits>
#include <new>
#include <utility>

namespace vexo_host::nl80211 {
namespace {

using wifi::RangingStatus;

constexpr int kAddressSize = 6;
constexpr double kMmPerPs = 0.299792458 / 2;  // of a round trip: there and back at the speed of light
constexpr double kMaxMm = std::numeric_limits<int32_t>::max();

// The attributes nested in a nest, whose payloads are as long at least as the types that `types` gives some of them.
template <size_t max>
class Nest {
 public:
  Nest(nlattr* nest, std::initializer_list<std::pair<int, uint16_t>> types) {
    std::array<nla_policy, max + 1> policy{};
    for (const auto& [type, kind] : types) policy[static_cast<size_t>(type)].type = kind;
    isThere = nest != nullptr && nla_parse_nested(attributes.data(), max, nest, policy.data()) == 0;
    if (!isThere) attributes.fill(nullptr);
  }
  bool IsThere() const { return isThere; }
  nlattr* operator[](int type) const { return attributes[static_cast<size_t>(type)]; }

 private:
  std::array<nlattr*, max + 1> attributes{};
  bool isThere = false;
};

// Fills a message; after the first attribute that does not fit nothing more is put in.
class Writer {
 public:
  explicit Writer(nl_msg* message) : to(message) {}
  bool Fits() const { return fits; }

  void U8(int type, uint8_t value) { fits = fits && nla_put_u8(to, type, value) == 0; }
  void U16(int type, uint16_t value) { fits = fits && nla_put_u16(to, type, value) == 0; }
  void U32(int type, uint32_t value) { fits = fits && nla_put_u32(to, type, value) == 0; }
  void Flag(int type, bool value) { fits = fits && (!value || nla_put_flag(to, type) == 0); }
  void Address(int type, uint64_t address) {
    uint8_t octets[kAddressSize];
    for (int i = 0; i < kAddressSize; ++i) octets[i] = static_cast<uint8_t>(address >> (8 * (kAddressSize - 1 - i)));
    fits = fits && nla_put(to, type, kAddressSize, octets) == 0;
  }
  template <typename Function>
  void Nest(int type, const Function& inside) {
    nlattr* const nest = fits ? nla_nest_start(to, type | NLA_F_NESTED) : nullptr;
    fits = nest != nullptr;
    if (fits) inside();
    if (fits) nla_nest_end(to, nest);
  }

 private:
  nl_msg* const to;
  bool fits = true;
};

void WriteFtm(const FtmRequest& request, Writer& out) {
  out.Flag(NL80211_PMSR_FTM_REQ_ATTR_ASAP, request.asap);
  out.U32(NL80211_PMSR_FTM_REQ_ATTR_PREAMBLE, request.preamble);
  out.U8(NL80211_PMSR_FTM_REQ_ATTR_NUM_BURSTS_EXP, request.burstExponent);
  if (request.burstPeriod != 0) out.U16(NL80211_PMSR_FTM_REQ_ATTR_BURST_PERIOD, request.burstPeriod);
  out.U8(NL80211_PMSR_FTM_REQ_ATTR_FTMS_PER_BURST, request.framesPerBurst);
  out.U8(NL80211_PMSR_FTM_REQ_ATTR_NUM_FTMR_RETRIES, request.retries);
  out.Flag(NL80211_PMSR_FTM_REQ_ATTR_TRIGGER_BASED, request.triggerBased);
  out.Flag(NL80211_PMSR_FTM_REQ_ATTR_NON_TRIGGER_BASED, request.nonTriggerBased);
}

void WritePeer(const FtmRequest& request, Writer& out) {
  out.Address(NL80211_PMSR_PEER_ATTR_ADDR, request.address);
  out.Nest(NL80211_PMSR_PEER_ATTR_CHAN, [&] {
    out.U32(NL80211_ATTR_WIPHY_FREQ, request.frequencyMhz);
    out.U32(NL80211_ATTR_CHANNEL_WIDTH, request.width);
    out.U32(NL80211_ATTR_CENTER_FREQ1, request.centreFrequencyMhz);
  });
  out.Nest(NL80211_PMSR_PEER_ATTR_REQ, [&] {
    out.Nest(NL80211_PMSR_REQ_ATTR_DATA, [&] { out.Nest(NL80211_PMSR_TYPE_FTM, [&] { WriteFtm(request, out); }); });
  });
}

RangingStatus StatusOfFailure(const nlattr* reason) {
  if (reason == nullptr) return RangingStatus::kFailed;
  switch (nla_get_u32(reason)) {
    case NL80211_PMSR_FTM_FAILURE_NO_RESPONSE:
      return RangingStatus::kNoResponse;
    case NL80211_PMSR_FTM_FAILURE_REJECTED:
      return RangingStatus::kRejected;
    case NL80211_PMSR_FTM_FAILURE_WRONG_CHANNEL:
      return RangingStatus::kWrongChannel;
    case NL80211_PMSR_FTM_FAILURE_PEER_NOT_CAPABLE:
      return RangingStatus::kNotCapable;
    case NL80211_PMSR_FTM_FAILURE_INVALID_TIMESTAMP:
      return RangingStatus::kInvalidTimestamp;
    case NL80211_PMSR_FTM_FAILURE_PEER_BUSY:
      return RangingStatus::kBusy;
    case NL80211_PMSR_FTM_FAILURE_BAD_CHANGED_PARAMS:
      return RangingStatus::kChangedParameters;
    default:
      return RangingStatus::kFailed;
  }
}

using FtmResponse = Nest<NL80211_PMSR_FTM_RESP_ATTR_MAX>;

// Time and distance follow from each other where the driver gives one of them; nothing else in `values` is touched
// when it gives none.
RangingStatus ReadDistance(const FtmResponse& ftm, wifi::RangingValues& values) {
  const nlattr* const rtt = ftm[NL80211_PMSR_FTM_RESP_ATTR_RTT_AVG];
  const nlattr* const distance = ftm[NL80211_PMSR_FTM_RESP_ATTR_DIST_AVG];
  if (rtt == nullptr && distance == nullptr) return RangingStatus::kFailed;
  const auto signedOf = [](const nlattr* value) { return static_cast<int64_t>(nla_get_u64(value)); };
  const double mm =
      distance != nullptr ? static_cast<double>(signedOf(distance)) : static_cast<double>(signedOf(rtt)) * kMmPerPs;
  const double ps = rtt != nullptr ? static_cast<double>(signedOf(rtt)) : mm / kMmPerPs;
  if (std::abs(mm) > kMaxMm || std::abs(ps) > kMaxMm / kMmPerPs) return RangingStatus::kInvalidTimestamp;
  values.distanceMm = static_cast<int32_t>(std::lround(mm));
  values.rttPs = rtt != nullptr ? signedOf(rtt) : std::llround(ps);

  const nlattr* const variance = ftm[NL80211_PMSR_FTM_RESP_ATTR_RTT_VARIANCE];
  const nlattr* const distanceVariance = ftm[NL80211_PMSR_FTM_RESP_ATTR_DIST_VARIANCE];
  double deviationMm = 0, variancePs2 = 0;
  if (distanceVariance != nullptr) {
    deviationMm = std::sqrt(static_cast<double>(nla_get_u64(distanceVariance)));
    variancePs2 = deviationMm * deviationMm / (kMmPerPs * kMmPerPs);
  }
  if (variance != nullptr) {
    variancePs2 = static_cast<double>(nla_get_u64(variance));
    if (distanceVariance == nullptr) deviationMm = std::sqrt(variancePs2) * kMmPerPs;
  }
  constexpr double kMaxVariance = 4e18;
  values.distanceStdMm = static_cast<uint32_t>(std::lround(std::min(deviationMm, kMaxMm)));
  values.rttVariancePs2 = static_cast<uint64_t>(std::llround(std::min(variancePs2, kMaxVariance)));
  return RangingStatus::kSuccess;
}

std::optional<FtmResult> ReadResult(nlattr* nest) {
  const Nest<NL80211_PMSR_PEER_ATTR_MAX> peer(nest, {{NL80211_PMSR_PEER_ATTR_RESP, NLA_NESTED}});
  const nlattr* const address = peer[NL80211_PMSR_PEER_ATTR_ADDR];
  if (address == nullptr || nla_len(address) != kAddressSize) return std::nullopt;
  const Nest<NL80211_PMSR_RESP_ATTR_MAX> response(
      peer[NL80211_PMSR_PEER_ATTR_RESP],
      {{NL80211_PMSR_RESP_ATTR_STATUS, NLA_U32}, {NL80211_PMSR_RESP_ATTR_DATA, NLA_NESTED}});
  if (response[NL80211_PMSR_RESP_ATTR_STATUS] == nullptr) return std::nullopt;
  const Nest<NL80211_PMSR_TYPE_MAX> data(response[NL80211_PMSR_RESP_ATTR_DATA], {{NL80211_PMSR_TYPE_FTM, NLA_NESTED}});
  const FtmResponse ftm(data[NL80211_PMSR_TYPE_FTM], {{NL80211_PMSR_FTM_RESP_ATTR_FAIL_REASON, NLA_U32},
                                                      {NL80211_PMSR_FTM_RESP_ATTR_BURST_INDEX, NLA_U32},
                                                      {NL80211_PMSR_FTM_RESP_ATTR_NUM_BURSTS_EXP, NLA_U8},
                                                      {NL80211_PMSR_FTM_RESP_ATTR_RSSI_AVG, NLA_U32},
                                                      {NL80211_PMSR_FTM_RESP_ATTR_RTT_AVG, NLA_U64},
                                                      {NL80211_PMSR_FTM_RESP_ATTR_RTT_VARIANCE, NLA_U64},
                                                      {NL80211_PMSR_FTM_RESP_ATTR_DIST_AVG, NLA_U64},
                                                      {NL80211_PMSR_FTM_RESP_ATTR_DIST_VARIANCE, NLA_U64}});
  FtmResult result;
  const auto* const octets = static_cast<const uint8_t*>(nla_data(address));
  for (int i = 0; i < kAddressSize; ++i) result.address = result.address << 8 | octets[i];
  result.isFinal = response[NL80211_PMSR_RESP_ATTR_FINAL] != nullptr;
  const nlattr* const burst = ftm[NL80211_PMSR_FTM_RESP_ATTR_BURST_INDEX];  // there with 0 where all bursts are in one
  result.isOneBurst = !result.isFinal || (burst != nullptr && nla_get_u32(burst) != 0);

  wifi::RangingValues& values = result.values;
  if (const nlattr* const signal = ftm[NL80211_PMSR_FTM_RESP_ATTR_RSSI_AVG]) {
    constexpr int32_t kMbmPerHalfDbm = 50, kFar = 1'000;
    const auto halfDbm = static_cast<int32_t>(nla_get_u32(signal));
    if (halfDbm >= -kFar && halfDbm <= kFar) values.signalMbm = halfDbm * kMbmPerHalfDbm;
  }
  switch (nla_get_u32(response[NL80211_PMSR_RESP_ATTR_STATUS])) {
    case NL80211_PMSR_STATUS_SUCCESS:
      values.status = ReadDistance(ftm, values);
      break;
    case NL80211_PMSR_STATUS_TIMEOUT:
      values.status = RangingStatus::kNoResponse;
      break;
    case NL80211_PMSR_STATUS_FAILURE:
      values.status = StatusOfFailure(ftm[NL80211_PMSR_FTM_RESP_ATTR_FAIL_REASON]);
      break;
    default:  // the radio itself refused
      values.status = RangingStatus::kFailed;
      break;
  }
  if (values.status != RangingStatus::kSuccess) return result;
  if (result.isOneBurst) {
    values.burstsAnswered = 1;
  } else if (const nlattr* const exponent = ftm[NL80211_PMSR_FTM_RESP_ATTR_NUM_BURSTS_EXP]) {
    constexpr uint8_t kMaxExponent = 14;  // 15 leaves the number open
    if (nla_get_u8(exponent) <= kMaxExponent) values.burstsAnswered = static_cast<uint16_t>(1u << nla_get_u8(exponent));
  }
  return result;
}

}  // namespace

std::optional<FtmCapabilities> ReadFtmCapabilities(nlattr* nest) {
  const Nest<NL80211_PMSR_ATTR_MAX> all(
      nest, {{NL80211_PMSR_ATTR_MAX_PEERS, NLA_U32}, {NL80211_PMSR_ATTR_TYPE_CAPA, NLA_NESTED}});
  const Nest<NL80211_PMSR_TYPE_MAX> types(all[NL80211_PMSR_ATTR_TYPE_CAPA], {{NL80211_PMSR_TYPE_FTM, NLA_NESTED}});
  const Nest<NL80211_PMSR_FTM_CAPA_ATTR_MAX> ftm(types[NL80211_PMSR_TYPE_FTM],
                                                 {{NL80211_PMSR_FTM_CAPA_ATTR_PREAMBLES, NLA_U32},
                                                  {NL80211_PMSR_FTM_CAPA_ATTR_BANDWIDTHS, NLA_U32},
                                                  {NL80211_PMSR_FTM_CAPA_ATTR_MAX_BURSTS_EXPONENT, NLA_U32},
                                                  {NL80211_PMSR_FTM_CAPA_ATTR_MAX_FTMS_PER_BURST, NLA_U32}});
  if (!ftm.IsThere()) return std::nullopt;
  FtmCapabilities read;
  if (const nlattr* const value = all[NL80211_PMSR_ATTR_MAX_PEERS]) {
    read.maxPeers = std::clamp<size_t>(nla_get_u32(value), 1, kMaxPeersAtOnce);
  }
  const auto take = [&ftm](int type, uint32_t& into) {
    if (ftm[type] != nullptr) into = nla_get_u32(ftm[type]);
  };
  take(NL80211_PMSR_FTM_CAPA_ATTR_PREAMBLES, read.preambles);
  take(NL80211_PMSR_FTM_CAPA_ATTR_BANDWIDTHS, read.bandwidths);
  take(NL80211_PMSR_FTM_CAPA_ATTR_MAX_BURSTS_EXPONENT, read.maxBurstExponent);
  take(NL80211_PMSR_FTM_CAPA_ATTR_MAX_FTMS_PER_BURST, read.maxFramesPerBurst);
  read.asap = ftm[NL80211_PMSR_FTM_CAPA_ATTR_ASAP] != nullptr;
  return read;
}

Message StartMessage(const Netlink& netlink, uint32_t interface, std::chrono::milliseconds timeout,
                     std::span<const FtmRequest> requests) {
  Message message = netlink.New(NL80211_CMD_PEER_MEASUREMENT_START);
  Writer out(message.get());
  out.U32(NL80211_ATTR_IFINDEX, interface);
  constexpr int64_t kMostMs = std::numeric_limits<int32_t>::max();
  out.U32(NL80211_ATTR_TIMEOUT, static_cast<uint32_t>(std::clamp<int64_t>(timeout.count(), 1, kMostMs)));
  out.Nest(NL80211_ATTR_PEER_MEASUREMENTS, [&] {
    out.Nest(NL80211_PMSR_ATTR_PEERS, [&] {
      int number = 0;
      for (const FtmRequest& request : requests) out.Nest(++number, [&] { WritePeer(request, out); });
    });
  });
  if (!out.Fits()) throw std::bad_alloc();
  return message;
}

void ReadFtmResults(nlattr* nest, const std::function<void(const FtmResult&)>& take) {
  const Nest<NL80211_PMSR_ATTR_MAX> all(nest, {{NL80211_PMSR_ATTR_PEERS, NLA_NESTED}});
  if (all[NL80211_PMSR_ATTR_PEERS] == nullptr) return;
  nlattr* peer = nullptr;
  int rest = 0;
  nla_for_each_nested(peer, all[NL80211_PMSR_ATTR_PEERS], rest) {
    if (const std::optional<FtmResult> result = ReadResult(peer)) take(*result);
  }
}

void AddBurst(wifi::RangingValues& sum, const wifi::RangingValues& burst) {
  if (burst.status != RangingStatus::kSuccess) {
    if (sum.burstsAnswered == 0) sum = burst;
    return;
  }
  if (sum.burstsAnswered == 0) {
    sum = burst;
    return;
  }
  const double before = sum.burstsAnswered;
  const auto mean = [before](auto earlier, auto latest) {
    return std::llround((static_cast<double>(earlier) * before + static_cast<double>(latest)) / (before + 1));
  };
  sum.distanceMm = static_cast<int32_t>(mean(sum.distanceMm, burst.distanceMm));
  sum.distanceStdMm = static_cast<uint32_t>(mean(sum.distanceStdMm, burst.distanceStdMm));
  sum.rttPs = mean(sum.rttPs, burst.rttPs);
  sum.rttVariancePs2 = static_cast<uint64_t>(mean(sum.rttVariancePs2, burst.rttVariancePs2));
  if (burst.signalMbm != wifi::kSignalUnknown) {
    const bool isFirst = sum.signalMbm == wifi::kSignalUnknown;
    sum.signalMbm = isFirst ? burst.signalMbm : static_cast<int32_t>(mean(sum.signalMbm, burst.signalMbm));
  }
  ++sum.burstsAnswered;
}

}  // namespace vexo_host::nl80211
