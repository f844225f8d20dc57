// The source whose air is the machine's own radio.
#ifndef KESD_HOST_VEXO_CLIENT_RADIO_SOURCE_H_
#define KESD_HOST_VEXO_CLIENT_RADIO_SOURCE_H_

#include <memory>
#include <string>
#include <vector>

#include "host/vexo_client/nl80211/radio.h"
#include "host/vexo_client/scheduler.h"
#include "host/vexo_client/source.h"

namespace vexo_host {

class RadioSource final : public MeasurementSource {
 public:
  explicit RadioSource(Scheduler& someScheduler) : scheduler(someScheduler) {}

  // Loads what talks to the radio of the network interface, which need not be there yet. False with the reason when
  // that fails. Call it once, first. Throws std::bad_alloc.
  bool Open(const std::string& interface, std::string& error);

  wifi::SourceKind Kind() const noexcept override { return wifi::SourceKind::kRadio; }
  bool StartScan(std::shared_ptr<const DiscoveryQuery> query, ScanDone done) noexcept override {
    return radio->StartScan(std::move(query), std::move(done));
  }
  bool StartRanging(std::shared_ptr<const RangingQuery> query, RangingDone done) noexcept override {
    return radio->StartRanging(std::move(query), std::move(done));
  }

 private:
  void Report(nl80211::ScanRequests served, std::vector<Bss> found) noexcept;
  void Report(RangingDone done, wifi::ScanStatus status, std::vector<RangedPeer> peers) noexcept;

  Scheduler& scheduler;
  std::unique_ptr<nl80211::Radio> radio;
};

}  // namespace vexo_host

#endif  // KESD_HOST_VEXO_CLIENT_RADIO_SOURCE_H_
