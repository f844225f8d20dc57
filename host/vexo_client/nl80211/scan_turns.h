// The discovery requests that wait for a radio, which scans once at a time.
#ifndef KESD_HOST_VEXO_CLIENT_NL80211_SCAN_TURNS_H_
#define KESD_HOST_VEXO_CLIENT_NL80211_SCAN_TURNS_H_

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/vexo_client/nl80211/interface.h"
#include "host/vexo_client/nl80211/netlink.h"
#include "host/vexo_client/nl80211/radio.h"
#include "host/vexo_client/nl80211/scan_queue.h"

namespace vexo_host::nl80211 {

// Has the kernel make the scans of the queue, one after the other, and waits for their ends. Not thread-safe.
class ScanTurns {
 public:
  using Clock = std::chrono::steady_clock;

  // `radioCommands` outlives this.
  ScanTurns(std::string someName, ScanReport someReport, Netlink& radioCommands);
  ~ScanTurns();  // ends a scan that runs
  ScanTurns(const ScanTurns&) = delete;
  ScanTurns& operator=(const ScanTurns&) = delete;

  // Hears from now on what the kernel tells of scans. 0, or an errno. Before anything else.
  int Open();

  // kOk, or why the radio cannot serve the request; then nothing was added, as when it throws std::bad_alloc.
  wifi::ScanStatus Add(const std::shared_ptr<ScanRequest>& request, const DiscoveryQuery& query,
                       const Interface& radio);

  // What is to be waited for: TakeEvents when the descriptor, unless it is -1, has something, and Continue then and
  // when it is due.
  int Descriptor() const { return events ? events->Descriptor() : -1; }
  std::optional<Clock::time_point> Due() const;
  void TakeEvents();
  void Continue(Clock::time_point now);

 private:
  enum class State {
    kIdle,      // no scan is current
    kWaiting,   // for somebody else's scan to end
    kScanning,  // a scan of our own runs
    kAborting,  // one was told to end
  };

  void Begin(Clock::time_point now);
  void Trigger();
  void TakeEvents(bool hasJustBegun);
  void ScanEnded(bool aborted);
  int Abort();
  void Finish();
  void End(wifi::ScanStatus status, std::vector<Bss> found = {});

  const std::string name;
  const ScanReport report;
  Netlink& commands;
  std::optional<Netlink> events;
  Interface scanned;  // index and radio of the current scan; the interface may be made anew meanwhile
  ScanQueue queue;
  State state = State::kIdle;
  Clock::time_point begun;  // when the current scan was first asked for
  Clock::time_point due;    // unless idle: when the state is looked at again, whatever came
  int retries = 0;          // of the current scan, after somebody ended it
};

}  // namespace vexo_host::nl80211

#endif  // KESD_HOST_VEXO_CLIENT_NL80211_SCAN_TURNS_H_
