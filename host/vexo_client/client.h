// The host's location client: takes requests, asks the source, answers the listener.
#ifndef KESD_HOST_VEXO_CLIENT_CLIENT_H_
#define KESD_HOST_VEXO_CLIENT_CLIENT_H_

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <new>
#include <optional>
#include <utility>
#include <vector>

#include "host/vexo_client/heap_use.h"
#include "host/vexo_client/in_flight.h"
#include "host/vexo_client/measurement_cache.h"
#include "host/vexo_client/scheduler.h"
#include "host/vexo_client/source.h"
#include "platform/vexo_client.h"

namespace vexo_host {

class DiscoveryRequest;

// Every accepted request is answered, at the latest when its timeout has passed, by one report (a periodic one by one
// for each round) on a thread of the scheduler. Several reports may be in progress at once.
class Client final : public zv_loc_fw::VEXOClient {
 public:
  using SourceMaker = std::function<std::unique_ptr<MeasurementSource>(Scheduler&)>;

  // Requests accepted and not answered, or still held by the source. Each costs about a kilobyte, plus its lists.
  static constexpr uint32_t kMaxRequestsInFlight = 65'536;

  // Nodes of one ranging request: what the daemon's records can number. And those of all requests in flight; each costs
  // about 60 bytes, and 500 more during a round.
  static constexpr uint32_t kMaxRangingNodes = 65'536;
  static constexpr uint32_t kMaxRangingNodesInFlight = 1'048'576;

  // What Send answers; sendRequest hands it out unchanged.
  enum SendResult : int32_t { kAccepted = 0, kUnknownKind = -1, kTooMany = -2, kNoMemory = -3 };

  // Null when a thread or memory is not to be had. `listener` must outlive the client.
  static std::unique_ptr<Client> Create(zv_loc_fw::VEXOClientListener& listener,
                                        const SourceMaker& makeSource) noexcept;
  // Not to be called from a report: it waits for those in progress.
  ~Client() override;

  SendResult Send(const zv_loc_fw::VEXORequest& request) noexcept;

 private:
  struct Discovery;
  struct Ranging;
  using DiscoveryPointer = std::shared_ptr<Discovery>;
  using RangingPointer = std::shared_ptr<Ranging>;
  using AnswerPointer = std::shared_ptr<Answer>;
  using TimePoint = Scheduler::Clock::time_point;

  explicit Client(zv_loc_fw::VEXOClientListener& someListener) : listener(someListener) {}

  bool Settle(Answer& answer);
  SendResult SendDiscovery(const DiscoveryRequest& request, Place place);
  bool StartScan(const DiscoveryPointer& discovery) noexcept;
  void TakeScan(Discovery& discovery, wifi::ScanStatus status, BssList found) noexcept;
  void AnswerFromCacheOrScan(const DiscoveryPointer& discovery) noexcept;
  BssList Cached(const Discovery& discovery);
  void ReportCached(Discovery& discovery, wifi::ScanStatus status) noexcept;
  void Report(Discovery& discovery, wifi::ScanStatus status, BssList candidates) noexcept;

  template <typename Request>
  SendResult TakeRanging(const Request& request, Place place);
  SendResult SendRanging(const RangingPointer& ranging);
  bool StartRound(const RangingPointer& ranging, TimePoint start) noexcept;
  void Report(const RangingPointer& ranging, wifi::ScanStatus status, const std::vector<RangedPeer>& peers) noexcept;

  // Both run `task` on a thread of the scheduler. Nothing and false when there is no memory for it.
  template <typename Task>
  std::optional<Scheduler::TaskId> Schedule(TimePoint when, Task&& task) noexcept try {
    return scheduler.At(when, std::forward<Task>(task));
  } catch (const std::bad_alloc&) {
    return std::nullopt;
  }
  template <typename Task>
  bool ScheduleNow(Task&& task) noexcept try {
    return scheduler.Now(std::forward<Task>(task));
  } catch (const std::bad_alloc&) {
    return false;
  }

  zv_loc_fw::VEXOClientListener& listener;
  std::atomic<uint32_t> inFlight = 0;
  std::atomic<uint32_t> nodesInFlight = 0;
  MeasurementCache cache;
  Scheduler scheduler;
  HeapUse heap{scheduler};
  std::unique_ptr<MeasurementSource> source;
};

}  // namespace vexo_host

#endif  // KESD_HOST_VEXO_CLIENT_CLIENT_H_
