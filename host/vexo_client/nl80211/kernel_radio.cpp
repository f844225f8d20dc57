#include "host/vexo_client/nl80211/kernel_radio.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>
#include <iterator>
#include <new>
#include <system_error>
#include <utility>

#include "host/fenksocket/poll_timeout.h"
#include "host/vexo_client/nl80211/scan_results.h"
#include "platform/log.h"

namespace vexo_host::nl80211 {
namespace {

using std::chrono::milliseconds;
using wifi::ScanStatus;

constexpr char kTag[] = "vexo_client";

constexpr int kPauseWithoutMemoryMs = 100;
// Before its timeout a ranging request is answered, so that what was measured arrives in time; at most a tenth of it.
constexpr milliseconds kReportTime{100};

}  // namespace

KernelRadio::KernelRadio(std::string someName, const RadioReports& reports)
    : name(std::move(someName)),
      report(reports.scan),
      rangingReport(reports.ranging),
      scans(name, reports.scan, commands),
      ranging(name, reports.ranging) {}

KernelRadio::~KernelRadio() {
  {
    const kesd::MutexLock lock(mutex);
    stopping = true;
  }
  eventfd_write(wake.Get(), 1);
  if (thread.joinable()) thread.join();
}

bool KernelRadio::Start() {
  wake.Reset(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  if (!wake.IsOpen()) return false;
  try {
    thread = std::thread([this] { Run(); });
  } catch (const std::system_error&) {
    return false;
  }
  return true;
}

bool KernelRadio::StartScan(std::shared_ptr<const DiscoveryQuery> query, ScanDone done) noexcept try {
  auto request = std::make_shared<ScanRequest>(ScanRequest{std::move(done)});
  {
    const kesd::MutexLock lock(mutex);
    inbox.push_back({std::move(query), std::move(request)});
  }
  eventfd_write(wake.Get(), 1);
  return true;
} catch (const std::bad_alloc&) {
  return false;
}

bool KernelRadio::StartRanging(std::shared_ptr<const RangingQuery> query, RangingDone done) noexcept try {
  const Clock::time_point deadline = Clock::now() + query->timeout - std::min(query->timeout / 10, kReportTime);
  {
    const kesd::MutexLock lock(mutex);
    rangingInbox.push_back({std::move(query), std::move(done), deadline});
  }
  eventfd_write(wake.Get(), 1);
  return true;
} catch (const std::bad_alloc&) {
  return false;
}

void KernelRadio::Run() {
  while (TakeWanted()) {
    try {
      Serve();
    } catch (const std::bad_alloc&) {
      zv_loc_fw::log_error(kTag, "%s: no memory for the radio\n", name.c_str());
      poll(nullptr, 0, kPauseWithoutMemoryMs);
    }
  }
}

void KernelRadio::Serve() {
  pollfd ready[] = {{wake.Get(), POLLIN, 0}, {scans.Descriptor(), POLLIN, 0}, {ranging.Descriptor(), POLLIN, 0}};
  auto deadline = scans.Due();
  if (const auto due = ranging.Due()) deadline = deadline ? std::min(*deadline, *due) : due;
  if (poll(ready, std::size(ready), fenk::PollTimeout(deadline)) < 0 && errno != EINTR) {
    zv_loc_fw::log_error(kTag, "%s: cannot wait for the radio: %s\n", name.c_str(), strerrordesc_np(errno));
  }
  eventfd_t ignored;
  if ((ready[0].revents & POLLIN) != 0) (void)eventfd_read(wake.Get(), &ignored);
  if (ready[1].revents != 0) scans.TakeEvents();
  scans.Continue(Clock::now());
  if (ready[2].revents != 0) ranging.TakeResults();
  ranging.Continue(Clock::now());
}

// False when it is time to end.
bool KernelRadio::TakeWanted() {
  std::vector<Wanted> taken;
  std::vector<RangingRequest> takenRanging;
  {
    const kesd::MutexLock lock(mutex);
    if (stopping) return false;
    taken.swap(inbox);
    takenRanging.swap(rangingInbox);
  }
  if (taken.empty() && takenRanging.empty()) return true;
  Interface radio;
  const ScanStatus status = LookUpRadio(radio);
  for (Wanted& wanted : taken) Take(std::move(wanted), status, radio);
  if (!takenRanging.empty()) Take(std::move(takenRanging), status, radio);
  return true;
}

ScanStatus KernelRadio::LookUpRadio(Interface& found) try {
  return OpenNetlink() ? LookUp(name, commands, found) : ScanStatus::kUnavailable;
} catch (const std::bad_alloc&) {
  return ScanStatus::kFailed;
}

void KernelRadio::Take(Wanted wanted, ScanStatus status, const Interface& radio) {
  try {
    if (status == ScanStatus::kOk) status = scans.Add(wanted.request, *wanted.query, radio);
  } catch (const std::bad_alloc&) {
    status = ScanStatus::kFailed;
  }
  if (status == ScanStatus::kOk) return;
  wanted.request->status = status;
  report({&wanted.request, 1}, {});
}

void KernelRadio::Take(std::vector<RangingRequest> wanted, ScanStatus status, const Interface& radio) {
  if (status == ScanStatus::kOk && !radio.ftm) status = ScanStatus::kUnsupported;
  std::vector<Bss> known;
  // Without it only peers whose channel is given are measured.
  if (status == ScanStatus::kOk) (void)ReadScanResults(commands, radio.index, Clock::time_point::min(), known);
  for (RangingRequest& request : wanted) {
    ScanStatus refusal = status;
    try {
      if (refusal == ScanStatus::kOk) {
        ranging.Add(request, *radio.ftm, known);
        continue;
      }
    } catch (const std::bad_alloc&) {
      refusal = ScanStatus::kFailed;
    }
    rangingReport(std::move(request.done), refusal, {});
  }
}

bool KernelRadio::OpenNetlink() {
  if (isOpen) return true;
  int error = commands.Open();
  if (error == 0) error = scans.Open();
  isOpen = error == 0;
  if (isOpen) return true;
  commands = Netlink();
  zv_loc_fw::log_error(kTag, "%s: the kernel's nl80211 is not to be had: %s\n", name.c_str(), strerrordesc_np(error));
  return false;
}

Radio* vexo_open_radio(const char* name, const RadioReports* reports) try {
  auto radio = std::make_unique<KernelRadio>(name, *reports);
  return radio->Start() ? radio.release() : nullptr;
} catch (const std::exception&) {
  return nullptr;
}

}  // namespace vexo_host::nl80211
