#include "host/vexo_client/nl80211/scan_turns.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <utility>

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

ScanTurns::ScanTurns(std::string someName, ScanReport someReport, Netlink& radioCommands)
    : name(std::move(someName)), report(std::move(someReport)), commands(radioCommands) {}

ScanTurns::~ScanTurns() {
  if (state == State::kScanning) Abort();
}

int ScanTurns::Open() {
  int error = events.emplace().Open();
  if (error == 0) error = events->Join(NL80211_MULTICAST_GROUP_SCAN);
  if (error == 0) error = events->Join(NL80211_MULTICAST_GROUP_CONFIG);
  if (error != 0) events.reset();
  return error;
}

ScanStatus ScanTurns::Add(const std::shared_ptr<ScanRequest>& request, const DiscoveryQuery& query,
                          const Interface& radio) {
  const auto plans = PlansFor(query, radio.frequenciesMhz, radio.maxScanSsids);
  // No channel that the radio may listen on is admitted; or so many SSIDs that everybody else would wait too long.
  if (plans.empty()) return ScanStatus::kUnsupported;
  if (plans.size() > kMaxScansOfARequest) return ScanStatus::kInvalidRequest;
  queue.Add(request, plans, radio.maxScanSsids);
  return ScanStatus::kOk;
}

std::optional<ScanTurns::Clock::time_point> ScanTurns::Due() const {
  if (state != State::kIdle) return due;
  return queue.IsWaiting() ? std::optional(Clock::time_point()) : std::nullopt;
}

void ScanTurns::TakeEvents() { TakeEvents(false); }

void ScanTurns::Continue(Clock::time_point now) {
  if (state != State::kIdle && now < due) return;
  switch (state) {  // what was to come by `due` did not
    case State::kIdle:
      Begin(now);
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

// Begins the scan that has waited longest.
void ScanTurns::Begin(Clock::time_point now) {
  if (queue.Begin(now) == nullptr) return;
  begun = now;
  retries = 0;
  Trigger();
}

// Asks for the current scan.
void ScanTurns::Trigger() {
  int error = 0;
  const ScanPlan& plan = queue.Current()->plan;
  const Clock::time_point now = Clock::now();
  ScanStatus status = ScanStatus::kFailed;
  try {
    status = FindInterface(name, commands, scanned);
    if (status == ScanStatus::kOk) error = commands.Ask(TriggerMessage(commands, scanned.index, plan));
  } catch (const std::bad_alloc&) {
    error = ENOMEM;
  }
  if (error == EBUSY && now - begun < kOthersInAll) {
    state = State::kWaiting;
    due = now + kOthersTime;
  } else if (error != 0) {
    const std::string& why = commands.Explanation();
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

// `hasJustBegun`: the ends of others' scans are still among the events, before the beginning of our own, which the
// kernel tells before it acknowledges the command.
void ScanTurns::TakeEvents(bool hasJustBegun) {
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
void ScanTurns::ScanEnded(bool aborted) {
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

int ScanTurns::Abort() try {
  Message message = commands.New(NL80211_CMD_ABORT_SCAN);
  if (nla_put_u32(message.get(), NL80211_ATTR_IFINDEX, scanned.index) != 0) return ENOMEM;
  return commands.Ask(std::move(message));
} catch (const std::bad_alloc&) {
  return ENOMEM;
}

// Answers with what the scan heard.
void ScanTurns::Finish() {
  std::vector<Bss> found;
  // Of this scan only: the kernel keeps older entries too.
  const int error = ReadScanResults(commands, scanned.index, queue.Since() - kClockSlack, found);
  ScanStatus status = StatusOf(error, name);
  // Of a scan whose end was never told, nothing heard says nothing about what there is.
  if (status == ScanStatus::kOk && state == State::kAborting && found.empty()) status = ScanStatus::kFailed;
  if (error != 0) zv_loc_fw::log_warning(kTag, "%s: no scan results: %s\n", name.c_str(), strerrordesc_np(error));
  End(status, std::move(found));
}

void ScanTurns::End(ScanStatus status, std::vector<Bss> found) {
  state = State::kIdle;
  const auto served = queue.End(status);
  if (!served.empty()) report(served, std::move(found));
}

}  // namespace vexo_host::nl80211
