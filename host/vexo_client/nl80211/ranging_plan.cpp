#include "host/vexo_client/nl80211/ranging_plan.h"

#include <linux/nl80211.h>

#include <algorithm>
#include <array>
#include <limits>

#include "host/vexo_client/discovery_query.h"
#include "host/wifi/channel_layout.h"
#include "host/wifi/channels.h"
#include "host/wifi/information_elements.h"
#include "host/wifi/phy.h"
#include "host/wifi/ranging_parameters.h"

namespace vexo_host::nl80211 {
namespace {

using wifi::RangingBandwidth;
using wifi::RangingParameters;
using wifi::RangingPreamble;
using wifi::RangingProtocol;

constexpr uint32_t kMaxBurstExponent = 3;
constexpr uint32_t kStandardFrames = 8, kMaxFrames = 31;  // in a burst
constexpr uint8_t kStandardRetries = 3;

// Each preamble, worst first, as the request, the kernel and the air know it.
struct PreambleKind {
  RangingPreamble asked;
  nl80211_preamble kernel;
  uint32_t widestMhz;
};
constexpr std::array<PreambleKind, 4> kPreambles{{{RangingPreamble::kLegacy, NL80211_PREAMBLE_LEGACY, 20},
                                                  {RangingPreamble::kHt, NL80211_PREAMBLE_HT, 40},
                                                  {RangingPreamble::kVht, NL80211_PREAMBLE_VHT, 160},
                                                  {RangingPreamble::kHe, NL80211_PREAMBLE_HE, 160}}};
constexpr size_t kLegacy = 0, kHt = 1, kVht = 2, kHe = 3;  // places in it

size_t BestPreambleOf(wifi::Phy phy) {
  switch (phy) {
    case wifi::Phy::kHt:
      return kHt;
    case wifi::Phy::kVht:
      return kVht;
    case wifi::Phy::kHe:
    case wifi::Phy::kEht:
      return kHe;
    default:
      return kLegacy;
  }
}

// The best one that the radio has up to `wanted`; `wanted` where it has none, which the kernel then refuses.
size_t PreambleOfRadio(size_t wanted, uint32_t radio) {
  for (size_t place = wanted + 1; place-- > 0;) {
    if ((radio >> kPreambles[place].kernel & 1) != 0) return place;
  }
  return wanted;
}

// A channel, and where the 40 MHz channel around it lies: in the 2.4 GHz band on either side.
struct Primary {
  uint32_t frequencyMhz;
  int secondaryMhz;  // +20 or -20; 0 if unknown
};

// The centre of the channel of this width around the primary one; 0 when there is none, or nobody knows where.
uint32_t CentreOf(const Primary& primary, uint32_t widthMhz) {
  if (widthMhz == 20) return primary.frequencyMhz;
  if (wifi::Is2GHz(primary.frequencyMhz)) {
    if (widthMhz != 40 || primary.secondaryMhz == 0) return 0;
    return primary.frequencyMhz + static_cast<uint32_t>(primary.secondaryMhz / 2);
  }
  if (wifi::ChannelOfFrequency(primary.frequencyMhz) < (wifi::Is6GHz(primary.frequencyMhz) ? 1 : 36)) return 0;
  const wifi::ChannelLayout layout = wifi::LayoutOf(primary.frequencyMhz);
  if (widthMhz == 40) return layout.secondaryAbove ? primary.frequencyMhz + 10 : primary.frequencyMhz - 10;
  const uint32_t channel = widthMhz == 80 ? layout.centre80 : layout.centre160;
  return (wifi::Is6GHz(primary.frequencyMhz) ? 5950 : 5000) + 5 * channel;
}

int SecondaryOf(const RangingParameters& parameters, const Bss* known) {
  const int64_t aside = int64_t{parameters.centreFrequencyMhz} - parameters.frequencyMhz;
  if (parameters.frequencyMhz > 0 && (aside == 10 || aside == -10)) return static_cast<int>(2 * aside);
  const auto ht = known != nullptr ? wifi::FindElement(known->elements, wifi::kElementHtOperation) : std::nullopt;
  if (!ht || ht->payload.size() < 2) return 0;
  const int offset = ht->payload[1] & 3;
  return offset == 1 ? 20 : (offset == 3 ? -20 : 0);
}

uint32_t MhzOf(wifi::ChannelWidth width) {
  switch (width) {
    case wifi::ChannelWidth::k40:
      return 40;
    case wifi::ChannelWidth::k80:
    case wifi::ChannelWidth::k80Plus80:
      return 80;
    case wifi::ChannelWidth::k160:
    case wifi::ChannelWidth::k320:
      return 160;
    default:
      return 20;
  }
}

uint32_t AskedMhz(RangingBandwidth bandwidth) {
  const auto code = static_cast<uint32_t>(bandwidth);
  return code == 0 || code > static_cast<uint32_t>(RangingBandwidth::k320MHz) ? 0 : 10u << code;
}

// Of the peer's whole channel: the one that the node's centre belongs to, else what the peer says, else what is asked.
uint32_t WholeMhz(const Primary& primary, const RangingParameters& parameters, const Bss* known) {
  for (const uint32_t width : {20u, 40u, 80u, 160u}) {
    const uint32_t centre = CentreOf(primary, width);
    if (centre != 0 && static_cast<int64_t>(centre) == parameters.centreFrequencyMhz) return width;
  }
  if (known != nullptr) return MhzOf(wifi::ChannelWidthOf(known->elements, known->frequencyMhz));
  return std::max(20u, AskedMhz(parameters.bandwidth));
}

nl80211_chan_width KernelWidth(uint32_t mhz, bool isLegacy) {
  switch (mhz) {
    case 40:
      return NL80211_CHAN_WIDTH_40;
    case 80:
      return NL80211_CHAN_WIDTH_80;
    case 160:
      return NL80211_CHAN_WIDTH_160;
    default:
      return isLegacy ? NL80211_CHAN_WIDTH_20_NOHT : NL80211_CHAN_WIDTH_20;
  }
}

// The widest up to `widestMhz` that the radio has.
void SetChannel(const Primary& primary, uint32_t widestMhz, bool isLegacy, uint32_t radio, FtmRequest& request) {
  request.frequencyMhz = request.centreFrequencyMhz = primary.frequencyMhz;
  request.width = KernelWidth(20, isLegacy);
  const auto has = [radio](nl80211_chan_width width) { return (radio >> width & 1) != 0; };
  for (const uint32_t mhz : {160u, 80u, 40u}) {
    const uint32_t centre = mhz <= widestMhz ? CentreOf(primary, mhz) : 0;
    if (centre == 0 || !has(KernelWidth(mhz, isLegacy))) continue;
    request.centreFrequencyMhz = centre;
    request.width = KernelWidth(mhz, isLegacy);
    return;
  }
  // Both 20 MHz ones are the same on the air.
  if (!has(KernelWidth(20, isLegacy)) && has(KernelWidth(20, !isLegacy))) request.width = KernelWidth(20, !isLegacy);
}

size_t WantedPreamble(const RangingParameters& parameters, const Bss* known, bool is6GHz, uint32_t wholeMhz) {
  const bool needsHe = is6GHz || parameters.protocol == RangingProtocol::kTriggerBased ||
                       parameters.protocol == RangingProtocol::kNonTriggerBased;
  size_t best = wholeMhz > 40 ? kVht : kHt;
  if (known != nullptr) best = BestPreambleOf(wifi::PhyOf(known->elements, known->frequencyMhz));
  if (needsHe) best = kHe;
  const auto asked = std::find_if(kPreambles.begin(), kPreambles.end(),
                                  [&](const PreambleKind& kind) { return kind.asked == parameters.preamble; });
  if (asked == kPreambles.end()) return best;
  const auto place = static_cast<size_t>(asked - kPreambles.begin());
  return known != nullptr ? std::min(place, best) : place;
}

}  // namespace

std::optional<FtmRequest> PlanFor(const zv_loc_fw::VEXONodeInfo& node, const Bss* known,
                                  const FtmCapabilities& capabilities) {
  const RangingParameters parameters = wifi::LoadRangingParameters(node);
  FtmRequest request;
  request.address = AddressBits(node.address);

  uint32_t frequencyMhz = known != nullptr ? known->frequencyMhz : 0;
  if (parameters.frequencyMhz > 0) frequencyMhz = static_cast<uint32_t>(parameters.frequencyMhz);
  if (frequencyMhz == 0) return std::nullopt;
  if (known != nullptr && known->frequencyMhz != frequencyMhz) known = nullptr;  // it has moved since

  const Primary primary{frequencyMhz, SecondaryOf(parameters, known)};
  const uint32_t wholeMhz = WholeMhz(primary, parameters, known);
  const size_t preamble =
      PreambleOfRadio(WantedPreamble(parameters, known, wifi::Is6GHz(frequencyMhz), wholeMhz), capabilities.preambles);
  request.preamble = kPreambles[preamble].kernel;
  uint32_t widestMhz = std::min(wholeMhz, kPreambles[preamble].widestMhz);
  if (const uint32_t asked = AskedMhz(parameters.bandwidth); asked != 0) widestMhz = std::min(widestMhz, asked);
  SetChannel(primary, widestMhz, preamble == kLegacy, capabilities.bandwidths, request);

  request.asap = capabilities.asap;
  request.triggerBased = parameters.protocol == RangingProtocol::kTriggerBased;
  request.nonTriggerBased = parameters.protocol == RangingProtocol::kNonTriggerBased;
  const uint32_t exponent =
      parameters.burstExponent <= kMaxBurstExponent ? parameters.burstExponent : wifi::kDefaultBurstExponent;
  request.burstExponent = static_cast<uint8_t>(std::min(exponent, capabilities.maxBurstExponent));
  request.burstPeriod =
      static_cast<uint16_t>(std::clamp<int32_t>(parameters.burstPeriod, 0, std::numeric_limits<uint16_t>::max()));
  const uint32_t frames = parameters.framesPerBurst == 0 ? kStandardFrames : parameters.framesPerBurst;
  request.framesPerBurst = static_cast<uint8_t>(std::min({frames, kMaxFrames, capabilities.maxFramesPerBurst}));
  request.retries = parameters.retries == 0 ? kStandardRetries : parameters.retries;
  return request;
}

}  // namespace vexo_host::nl80211
