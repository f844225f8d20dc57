// The requests that wait for a radio, which scans once at a time.
#ifndef KESD_HOST_VEXO_CLIENT_NL80211_SCAN_QUEUE_H_
#define KESD_HOST_VEXO_CLIENT_NL80211_SCAN_QUEUE_H_

#include <chrono>
#include <deque>
#include <memory>
#include <vector>

#include "host/vexo_client/nl80211/scan_plan.h"
#include "host/vexo_client/source.h"

namespace vexo_host::nl80211 {

// A discovery request, which its last scan answers with what was heard since the first one began.
struct ScanRequest {
  ScanDone done;
  wifi::ScanStatus status = wifi::ScanStatus::kOk;  // of its scans so far: the first that is not kOk
  size_t scansLeft = 0;
  std::chrono::steady_clock::time_point since = std::chrono::steady_clock::time_point::max();
};

// A scan, running or waiting, and whom it serves.
struct ScanTurn {
  ScanPlan plan;
  std::vector<std::shared_ptr<ScanRequest>> requests;
};

// Not thread-safe.
class ScanQueue {
 public:
  // A plan that the running or a waiting scan covers joins it; else it widens a waiting one where one scan serves both;
  // else it waits behind the others. Throws std::bad_alloc.
  void Add(const std::shared_ptr<ScanRequest>& request, const std::vector<ScanPlan>& plans, size_t maxSsids);

  // The scan that runs, or is about to; null when there is none.
  const ScanTurn* Current() const { return hasCurrent ? &turns.front() : nullptr; }

  // Makes the longest waiting scan the current one, from `now` on; null when none waits. There must be no current one.
  const ScanTurn* Begin(std::chrono::steady_clock::time_point now);

  bool IsWaiting() const { return turns.size() > (hasCurrent ? 1U : 0U); }

  // Nobody joins the current scan any more.
  void Close() { isOpen = false; }

  // Since when the current scan's requests want to know what was heard.
  std::chrono::steady_clock::time_point Since() const;

  // Ends the current scan, and gives those whose last one it was.
  std::vector<std::shared_ptr<ScanRequest>> End(wifi::ScanStatus status);

 private:
  void Add(const std::shared_ptr<ScanRequest>& request, const ScanPlan& plan, size_t maxSsids);

  std::deque<ScanTurn> turns;
  bool hasCurrent = false;                      // the first one
  bool isOpen = true;                           // to join it
  std::chrono::steady_clock::time_point begun;  // it
};

}  // namespace vexo_host::nl80211

#endif  // KESD_HOST_VEXO_CLIENT_NL80211_SCAN_QUEUE_H_
