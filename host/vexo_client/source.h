// Where measurements come from.
#ifndef KESD_HOST_VEXO_CLIENT_SOURCE_H_
#define KESD_HOST_VEXO_CLIENT_SOURCE_H_

#include <functional>
#include <memory>
#include <vector>

#include "host/vexo_client/discovery_query.h"
#include "host/vexo_client/ranging_query.h"
#include "host/vexo_client/shared_bss.h"
#include "host/wifi/measurement_values.h"

namespace vexo_host {

// Called exactly once for each measurement that was started, unless the source ends before, on a thread of the
// scheduler and never from inside the call that started it. It reports to the listener, so it may block for long: one
// that has several to call hands each to the scheduler. It throws nothing.
using ScanDone = std::function<void(wifi::ScanStatus status, BssList found)>;
using RangingDone = std::function<void(wifi::ScanStatus status, std::vector<RangedPeer> peers)>;

// Any thread may call any method. None waits for a measurement: a request must never hold up another. False when there
// was no memory to start it; `done` is then never called.
class MeasurementSource {
 public:
  virtual ~MeasurementSource() = default;

  // What clients are told of it.
  virtual wifi::SourceKind Kind() const noexcept = 0;

  // Listens on the channels that `query` admits at least. What else it hears it may report: the caller filters.
  [[nodiscard]] virtual bool StartScan(std::shared_ptr<const DiscoveryQuery> query, ScanDone done) noexcept = 0;

  // Measures the distance to each node once. With kOk, `peers` has an entry for each node, in their order, and also
  // with kTimedOut, which says that not all were measured; else none.
  [[nodiscard]] virtual bool StartRanging(std::shared_ptr<const RangingQuery> query, RangingDone done) noexcept = 0;
};

}  // namespace vexo_host

#endif  // KESD_HOST_VEXO_CLIENT_SOURCE_H_
