#include "host/vexo_client/nl80211/scanning_radio.h"

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
using std::chrono::seconds;
using wifi::ScanStatus;

constexpr char kTag[] = "vexo_client";

// An end event can get lost. Radios listen passively to a channel for about 110 ms, and may go home in between.
constexpr seconds kScanTime{3};
constexpr milliseconds kScanTimeOfAChannel{300};
constexpr seconds kAbortTime{2};
// Somebody else's scan ends with an event, which can get lost too. Nobody scans for longer than this in one go.
constexpr seconds kOthersTime{3};
constexpr seconds kOthersInAll{60};
constexpr int kMaxRetries = 2;
constexpr seconds kEventPause{1};  // for what may come all the same once events were lost, or the interface went
constexpr size_t kMaxScansOfARequest = 16;
constexpr int kPauseWithoutMemoryMs = 100;
// Before its timeout a ranging request is answered, so that what was measured arrives in time; at most a tenth of it.
constexpr milliseconds kReportTime{100};
constexpr milliseconds kClockSlack{20};  // of the time at which the driver says that it received a frame

Message TriggerMessage(const Netlink& netlink, uint32_t interface, const ScanPlan& plan) {
  Message message = netlink.New(NL80211_CMD_TRIGGER_SCAN);
  nl_msg* const to = message.get();
  bool fits = nla_put_u32(to, NL80211_ATTR_IFINDEX, interface) == 0;
  nlattr* nest = nla_nest_start(to, NL80211_ATTR_SCAN_FREQUENCIES);
  fits = fits && nest != nullptr;
  int number = 0;
  for (const uint32_t frequency : plan.frequenciesMhz) fits = fits && nla_put_u32(to, ++number, frequency) == 0;
  if (fits) nla_nest_end(to, nest);
  if (!plan.IsPassive()) {
    nest = nla_nest_start(to, NL80211_ATTR_SCAN_SSIDS);
    fits = fits && nest != nullptr;
    number = 0;
    for (const std::string& ssid : plan.ssids) {
      fits = fits && nla_put(to, ++number, static_cast<int>(ssid.size()), ssid.data()) == 0;
    }
    if (fits) nla_nest_end(to, nest);
  }
  if (plan.bssid != 0) {
    uint8_t octets[6];
    for (size_t i = 0; i < sizeof(octets); ++i) octets[i] = static_cast<uint8_t>(plan.bssid >> (8 * (5 - i)));
    fits = fits && nla_put(to, NL80211_ATTR_MAC, sizeof(octets), octets) == 0 &&
           nla_put(to, NL80211_ATTR_BSSID, sizeof(octets), octets) == 0;
  }
  if (plan.colocated) {
    fits = fits && nla_put_u32(to, NL80211_ATTR_SCAN_FLAGS, NL80211_SCAN_FLAG_COLOCATED_6GHZ) == 0;
  }
  if (!fits) throw std::bad_alloc();
  return message;
}

}  // namespace

ScanningRadio::ScanningRadio(std::string someName, const RadioReports& reports)
    : name(std::move(someName)), report(reports.scan), rangingReport(reports.ranging), ranging(name, reports.ranging) {}

ScanningRadio::~ScanningRadio() {
  {
    const kesd::MutexLock lock(mutex);
    stopping = true;
  }
  eventfd_write(wake.Get(), 1);
  if (thread.joinable()) thread.join();
}

bool ScanningRadio::Start() {
  wake.Reset(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  if (!wake.IsOpen()) return false;
  try {
    thread = std::thread([this] { Run(); });
  } catch (const std::system_error&) {
    return false;
  }
  return true;
}

bool ScanningRadio::StartScan(std::shared_ptr<const DiscoveryQuery> query, ScanDone done) noexcept try {
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

bool ScanningRadio::StartRanging(std::shared_ptr<const RangingQuery> query, RangingDone done) noexcept try {
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

void ScanningRadio::Run() {
  while (TakeWanted()) {
    try {
      Serve();
    } catch (const std::bad_alloc&) {
      zv_loc_fw::log_error(kTag, "%s: no memory for the radio\n", name.c_str());
      poll(nullptr, 0, kPauseWithoutMemoryMs);
    }
  }
  if (state == State::kScanning) Abort();
}

void ScanningRadio::Serve() {
  if (state == State::kIdle) Begin();
  pollfd ready[] = {
      {wake.Get(), POLLIN, 0}, {events ? events->Descriptor() : -1, POLLIN, 0}, {ranging.Descriptor(), POLLIN, 0}};
  auto deadline = ranging.Due();
  if (state == State::kIdle && queue.IsWaiting()) due = Clock::now();  // the last one was refused: on with the next
  if (state != State::kIdle || queue.IsWaiting()) deadline = deadline ? std::min(*deadline, due) : due;
  if (poll(ready, std::size(ready), fenk::PollTimeout(deadline)) < 0 && errno != EINTR) {
    zv_loc_fw::log_error(kTag, "%s: cannot wait for the radio: %s\n", name.c_str(), strerrordesc_np(errno));
  }
  eventfd_t ignored;
  if ((ready[0].revents & POLLIN) != 0) (void)eventfd_read(wake.Get(), &ignored);
  if (ready[1].revents != 0) TakeEvents(false);
  if (state != State::kIdle && Clock::now() >= due) Continue(Clock::now());
  if (ready[2].revents != 0) ranging.TakeResults();
  ranging.Continue(Clock::now());
}

// False when it is time to end.
bool ScanningRadio::TakeWanted() {
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

ScanStatus ScanningRadio::LookUpRadio(Interface& found) try {
  return OpenNetlink() ? LookUp(name, *commands, found) : ScanStatus::kUnavailable;
} catch (const std::bad_alloc&) {
  return ScanStatus::kFailed;
}

void ScanningRadio::Take(Wanted wanted, ScanStatus status, const Interface& radio) {
  try {
    if (status == ScanStatus::kOk) {
      const auto plans = PlansFor(*wanted.query, radio.frequenciesMhz, radio.maxScanSsids);
      if (!plans.empty() && plans.size() <= kMaxScansOfARequest) {
        queue.Add(wanted.request, plans, radio.maxScanSsids);
        return;
      }
      // No channel that the radio may listen on is admitted; or so many SSIDs that everybody else would wait too long.
      status = plans.empty() ? ScanStatus::kUnsupported : ScanStatus::kInvalidRequest;
    }
  } catch (const std::bad_alloc&) {
    status = ScanStatus::kFailed;
  }
  wanted.request->status = status;
  report({&wanted.request, 1}, {});
}

void ScanningRadio::Take(std::vector<RangingRequest> wanted, ScanStatus status, const Interface& radio) {
  if (status == ScanStatus::kOk && !radio.ftm) status = ScanStatus::kUnsupported;
  std::vector<Bss> known;
  // Without it only peers whose channel is given are measured.
  if (status == ScanStatus::kOk) (void)ReadScanResults(*commands, radio.index, Clock::time_point::min(), known);
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

bool ScanningRadio::OpenNetlink() {
  if (commands) return true;
  int error = 0;
  if (error = commands.emplace().Open(); error == 0) error = events.emplace().Open();
  if (error == 0) error = events->Join(NL80211_MULTICAST_GROUP_SCAN);
  if (error == 0) error = events->Join(NL80211_MULTICAST_GROUP_CONFIG);
  if (error == 0) return true;
  commands.reset();
  events.reset();
  zv_loc_fw::log_error(kTag, "%s: the kernel's nl80211 is not to be had: %s\n", name.c_str(), strerrordesc_np(error));
  return false;
}

// Begins the scan that has waited longest.
void ScanningRadio::Begin() {
  if (queue.Begin(begun = Clock::now()) == nullptr) return;
  retries = 0;
  Trigger();
}

// Asks for the current scan.
void ScanningRadio::Trigger() {
  int error = 0;
  const ScanPlan& plan = queue.Current()->plan;
  const Clock::time_point now = Clock::now();
  ScanStatus status = ScanStatus::kFailed;
  try {
    status = FindInterface(name, *commands, scanned);
    if (status == ScanStatus::kOk) error = commands->Ask(TriggerMessage(*commands, scanned.index, plan));
  } catch (const std::bad_alloc&) {
    error = ENOMEM;
  }
  if (error == EBUSY && now - begun < kOthersInAll) {
    state = State::kWaiting;
    due = now + kOthersTime;
  } else if (error != 0) {
    const std::string& why = commands->Explanation();
    zv_loc_fw::log_warning(kTag, "%s: the kernel refuses to scan: %s%s%s\n", name.c_str(), strerrordesc_np(error),
                           why.empty() ? "" : ": ", why.c_str());
    End(StatusOf(error, name));
  } else if (status != ScanStatus::kOk) {
    End(status);
  } else {
    state = State::kScanning;
    due = now + kScanTime + kScanTimeOfAChannel * plan.frequenciesMhz.size();
    TakeEvents(true);
  }
}

// What was to come by `due` did not.
void ScanningRadio::Continue(Clock::time_point now) {
  switch (state) {
    case State::kIdle:
      break;
    case State::kWaiting:
      Trigger();
      break;
    case State::kScanning:
      zv_loc_fw::log_warning(kTag, "%s: a scan does not end, it is aborted\n", name.c_str());
      state = State::kAborting;
      queue.Close();
      due = now + kAbortTime;
      if (Abort() != 0) Finish();  // nothing runs: its end was missed
      break;
    case State::kAborting:
      Finish();
      break;
  }
}

// `hasJustBegun`: the ends of others' scans are still among the events, before the beginning of our own, which the
// kernel tells before it acknowledges the command.
void ScanningRadio::TakeEvents(bool hasJustBegun) {
  struct {
    bool hasJustBegun, ended = false, aborted = false, gone = false;
  } seen{hasJustBegun};
  const int error = events->Receive([this, &seen](uint8_t command, const Attributes& attributes) {
    const nlattr* const wiphy = attributes[NL80211_ATTR_WIPHY];
    if (wiphy == nullptr || nla_get_u32(wiphy) != scanned.wiphy) return;
    const nlattr* const index = attributes[NL80211_ATTR_IFINDEX];
    const bool isOurs = index != nullptr && nla_get_u32(index) == scanned.index;
    if (command == NL80211_CMD_TRIGGER_SCAN && seen.hasJustBegun) seen.ended = false;
    if (command == NL80211_CMD_NEW_SCAN_RESULTS || command == NL80211_CMD_SCAN_ABORTED) {
      if (!seen.ended) seen.aborted = command == NL80211_CMD_SCAN_ABORTED;
      seen.ended = true;
    }
    if (command == NL80211_CMD_DEL_WIPHY || (command == NL80211_CMD_DEL_INTERFACE && isOurs)) seen.gone = true;
  });
  if (seen.ended) {
    ScanEnded(seen.aborted);
  } else if ((state == State::kWaiting && error != 0) || (state != State::kIdle && seen.gone)) {
    due = std::min(due, Clock::now() + kEventPause);  // the end that is waited for may be lost, or never be told
  }
}

// A scan on the radio came to its end; there is never more than one.
void ScanningRadio::ScanEnded(bool aborted) {
  switch (state) {
    case State::kIdle:
      break;
    case State::kWaiting:
      Trigger();
      break;
    case State::kScanning:
      if (aborted && retries++ < kMaxRetries) {
        Trigger();
      } else if (aborted) {
        End(ScanStatus::kFailed);
      } else {
        Finish();
      }
      break;
    case State::kAborting:
      Finish();
      break;
  }
}

int ScanningRadio::Abort() try {
  Message message = commands->New(NL80211_CMD_ABORT_SCAN);
  if (nla_put_u32(message.get(), NL80211_ATTR_IFINDEX, scanned.index) != 0) return ENOMEM;
  return commands->Ask(std::move(message));
} catch (const std::bad_alloc&) {
  return ENOMEM;
}

// Answers with what the scan heard.
void ScanningRadio::Finish() {
  std::vector<Bss> found;
  // Of this scan only: the kernel keeps older entries too.
  const int error = ReadScanResults(*commands, scanned.index, queue.Since() - kClockSlack, found);
  ScanStatus status = StatusOf(error, name);
  // Of a scan whose end was never told, nothing heard says nothing about what there is.
  if (status == ScanStatus::kOk && state == State::kAborting && found.empty()) status = ScanStatus::kFailed;
  if (error != 0) zv_loc_fw::log_warning(kTag, "%s: no scan results: %s\n", name.c_str(), strerrordesc_np(error));
  End(status, std::move(found));
}

void ScanningRadio::End(ScanStatus status, std::vector<Bss> found) {
  state = State::kIdle;
  const auto served = queue.End(status);
  if (!served.empty()) report(served, std::move(found));
}

Radio* vexo_open_radio(const char* name, const RadioReports* reports) try {
  auto radio = std::make_unique<ScanningRadio>(name, *reports);
  return radio->Start() ? radio.release() : nullptr;
} catch (const std::exception&) {
  return nullptr;
}

}  // namespace vexo_host::nl80211
