// A radio of this machine. This is the interface of libvexo_nl80211.so, which the location client library loads when
// its source is a radio, so that nobody else pays for the library that talks to the kernel.
#ifndef KESD_HOST_VEXO_CLIENT_NL80211_RADIO_H_
#define KESD_HOST_VEXO_CLIENT_NL80211_RADIO_H_

#include <functional>
#include <memory>
#include <span>
#include <vector>

#include "host/vexo_client/bss.h"
#include "host/vexo_client/discovery_query.h"
#include "host/vexo_client/nl80211/scan_queue.h"
#include "host/vexo_client/ranging_query.h"
#include "host/vexo_client/source.h"
#include "host/wifi/measurement_values.h"

namespace vexo_host::nl80211 {

using ScanRequests = std::span<const std::shared_ptr<ScanRequest>>;

// What one scan found, for all whom it serves. On the radio's thread: it must not wait. Throws nothing.
using ScanReport = std::function<void(ScanRequests served, std::vector<Bss> found)>;

// How a request's peers were measured, for the client's ranging. The same goes for it.
using RangingReport = std::function<void(RangingDone done, wifi::ScanStatus status, std::vector<RangedPeer> peers)>;

struct RadioReports {
  ScanReport scan;
  RangingReport ranging;
};

class Radio {
 public:
  // Ends a scan and a measurement of its own that run; requests that were not answered are dropped.
  virtual ~Radio() = default;

  // Any thread; neither waits. False when there is no memory.
  virtual bool StartScan(std::shared_ptr<const DiscoveryQuery> query, ScanDone done) noexcept = 0;
  virtual bool StartRanging(std::shared_ptr<const RangingQuery> query, RangingDone done) noexcept = 0;
};

// The radio with the network interface `name`, which need not be there yet. Null when there is no memory, or no thread.
extern "C" Radio* vexo_open_radio(const char* name, const RadioReports* reports);

}  // namespace vexo_host::nl80211

#endif  // KESD_HOST_VEXO_CLIENT_NL80211_RADIO_H_
