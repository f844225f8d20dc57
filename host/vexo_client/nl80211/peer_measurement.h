// The kernel's peer measurement of type FTM: what a radio can do, what it is asked, what it reports.
#ifndef KESD_HOST_VEXO_CLIENT_NL80211_PEER_MEASUREMENT_H_
#define KESD_HOST_VEXO_CLIENT_NL80211_PEER_MEASUREMENT_H_

#include <netlink/attr.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>

#include "host/vexo_client/nl80211/netlink.h"
#include "host/wifi/ranging_values.h"

namespace vexo_host::nl80211 {

inline constexpr size_t kMaxPeersAtOnce = 16;  // whatever the driver takes: so many fit into a message

struct FtmCapabilities {
  size_t maxPeers = 1;      // at once, 1 to kMaxPeersAtOnce
  uint32_t preambles = 0;   // bits NL80211_PREAMBLE_*
  uint32_t bandwidths = 0;  // bits NL80211_CHAN_WIDTH_*
  uint32_t maxBurstExponent = 15;
  uint32_t maxFramesPerBurst = 31;
  bool asap = false;
};

// What a radio says of itself in NL80211_ATTR_PEER_MEASUREMENTS; nothing when it cannot measure.
std::optional<FtmCapabilities> ReadFtmCapabilities(nlattr* nest);

// A measurement as the kernel takes it.
struct FtmRequest {
  uint64_t address = 0;
  uint32_t frequencyMhz = 0;        // of the primary channel
  uint32_t centreFrequencyMhz = 0;  // of the whole width
  uint32_t width = 0;               // NL80211_CHAN_WIDTH_*
  uint32_t preamble = 0;            // NL80211_PREAMBLE_*
  bool asap = false;
  bool triggerBased = false, nonTriggerBased = false;
  uint8_t burstExponent = 0;
  uint16_t burstPeriod = 0;  // 100 ms; 0 leaves it to the radio
  uint8_t framesPerBurst = 0;
  uint8_t retries = 0;
};

// Makes NL80211_CMD_PEER_MEASUREMENT_START of at most kMaxPeersAtOnce requests. Throws std::bad_alloc.
Message StartMessage(const Netlink& netlink, uint32_t interface, std::chrono::milliseconds timeout,
                     std::span<const FtmRequest> requests);

struct FtmResult {
  uint64_t address = 0;
  bool isFinal = false;
  bool isOneBurst = false;     // of several, each with a result
  wifi::RangingValues values;  // but for burstsAsked; burstsAnswered is 0 where the result does not tell
};

// Calls `take` for each result in the NL80211_ATTR_PEER_MEASUREMENTS of a message. Malformed ones are left out.
void ReadFtmResults(nlattr* nest, const std::function<void(const FtmResult&)>& take);

// Adds what another burst gave to what the bursts before it gave.
void AddBurst(wifi::RangingValues& sum, const wifi::RangingValues& burst);

}  // namespace vexo_host::nl80211

#endif  // KESD_HOST_VEXO_CLIENT_NL80211_PEER_MEASUREMENT_H_
