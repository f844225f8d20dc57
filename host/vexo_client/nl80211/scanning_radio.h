// The radio's own thread, which alone talks to the kernel: scans and measures one at a time, and waits for their ends.
#ifndef KESD_HOST_VEXO_CLIENT_NL80211_SCANNING_RADIO_H_
#define KESD_HOST_VEXO_CLIENT_NL80211_SCANNING_RADIO_H_

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "host/fenksocket/unique_fd.h"
#include "host/vexo_client/nl80211/interface.h"
#include "host/vexo_client/nl80211/netlink.h"
#include "host/vexo_client/nl80211/radio.h"
#include "host/vexo_client/nl80211/ranging_turns.h"
#include "host/vexo_client/nl80211/scan_queue.h"
#include "support/mutex.h"

namespace vexo_host::nl80211 {

class ScanningRadio final : public Radio {
 public:
  ScanningRadio(std::string someName, const RadioReports& reports);
  ~ScanningRadio() override;

  // False when there is no thread or no descriptor for it. Call it once, first.
  bool Start();

  bool StartScan(std::shared_ptr<const DiscoveryQuery> query, ScanDone done) noexcept override KESD_EXCLUDES(mutex);
  bool StartRanging(std::shared_ptr<const RangingQuery> query, RangingDone done) noexcept override KESD_EXCLUDES(mutex);

 private:
  using Clock = std::chrono::steady_clock;

  struct Wanted {
    std::shared_ptr<const DiscoveryQuery> query;
    std::shared_ptr<ScanRequest> request;
  };

  enum class State {
    kIdle,      // no scan is current
    kWaiting,   // for somebody else's scan to end
    kScanning,  // a scan of our own runs
    kAborting,  // one was told to end
  };

  void Run();
  void Serve();
  bool TakeWanted() KESD_EXCLUDES(mutex);
  wifi::ScanStatus LookUpRadio(Interface& found);
  void Take(Wanted wanted, wifi::ScanStatus status, const Interface& radio);
  void Take(std::vector<RangingRequest> wanted, wifi::ScanStatus status, const Interface& radio);
  bool OpenNetlink();

  void Begin();
  void Trigger();
  void Continue(Clock::time_point now);
  void TakeEvents(bool hasJustBegun);
  void ScanEnded(bool aborted);
  int Abort();
  void Finish();
  void End(wifi::ScanStatus status, std::vector<Bss> found = {});

  const std::string name;
  const ScanReport report;
  const RangingReport rangingReport;
  fenk::UniqueFd wake;
  std::thread thread;

  kesd::Mutex mutex;
  std::vector<Wanted> inbox KESD_GUARDED_BY(mutex);
  std::vector<RangingRequest> rangingInbox KESD_GUARDED_BY(mutex);
  bool stopping KESD_GUARDED_BY(mutex) = false;

  // The thread's own.
  RangingTurns ranging;
  std::optional<Netlink> commands, events;
  Interface scanned;  // index and radio of the current scan; the interface may be made anew meanwhile
  ScanQueue queue;
  State state = State::kIdle;
  Clock::time_point begun;  // when the current scan was first asked for
  Clock::time_point due;    // unless idle: when the state is looked at again, whatever came
  int retries = 0;          // of the current scan, after somebody ended it
};

}  // namespace vexo_host::nl80211

#endif  // KESD_HOST_VEXO_CLIENT_NL80211_SCANNING_RADIO_H_
