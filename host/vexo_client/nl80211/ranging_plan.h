// What the kernel is to be asked, so that a node of a ranging request is measured.
#ifndef KESD_HOST_VEXO_CLIENT_NL80211_RANGING_PLAN_H_
#define KESD_HOST_VEXO_CLIENT_NL80211_RANGING_PLAN_H_

#include <optional>

#include "host/vexo_client/bss.h"
#include "host/vexo_client/nl80211/peer_measurement.h"
#include "platform/vexo_types.h"

namespace vexo_host::nl80211 {

// `known`: the peer as it was last heard, or null. What the node leaves open is what the peer, as far as it is known,
// and the radio are both capable of; preamble and bandwidth are also lowered to that. Nothing when neither the node nor
// `known` tells the peer's channel.
std::optional<FtmRequest> PlanFor(const zv_loc_fw::VEXONodeInfo& node, const Bss* known,
                                  const FtmCapabilities& capabilities);

}  // namespace vexo_host::nl80211

#endif  // KESD_HOST_VEXO_CLIENT_NL80211_RANGING_PLAN_H_
