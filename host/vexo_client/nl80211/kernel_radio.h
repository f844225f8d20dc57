// The radio's own thread, which talks to the kernel; nobody else does while it runs.
#ifndef KESD_HOST_VEXO_CLIENT_NL80211_KERNEL_RADIO_H_
#define KESD_HOST_VEXO_CLIENT_NL80211_KERNEL_RADIO_H_

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "host/fenksocket/unique_fd.h"
#include "host/vexo_client/nl80211/interface.h"
#include "host/vexo_client/nl80211/netlink.h"
#include "host/vexo_client/nl80211/radio.h"
#include "host/vexo_client/nl80211/ranging_turns.h"
#include "host/vexo_client/nl80211/scan_turns.h"
#include "support/mutex.h"

namespace vexo_host::nl80211 {

class KernelRadio final : public Radio {
 public:
  KernelRadio(std::string someName, const RadioReports& reports);
  ~KernelRadio() override;

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

  void Run();
  void Serve();
  bool TakeWanted() KESD_EXCLUDES(mutex);
  wifi::ScanStatus LookUpRadio(Interface& found);
  void Take(Wanted wanted, wifi::ScanStatus status, const Interface& radio);
  void Take(std::vector<RangingRequest> wanted, wifi::ScanStatus status, const Interface& radio);
  bool OpenNetlink();

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
  Netlink commands;
  bool isOpen = false;  // commands and scans are
  ScanTurns scans;
  RangingTurns ranging;
};

}  // namespace vexo_host::nl80211

#endif  // KESD_HOST_VEXO_CLIENT_NL80211_KERNEL_RADIO_H_
