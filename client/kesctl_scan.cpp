#include "client/kesctl_scan.h"

#include <algorithm>
#include <optional>

#include "client/client.h"
#include "client/console.h"
#include "client/interrupts.h"
#include "client/scan_json.h"
#include "client/scan_table.h"
#include "client/words.h"

namespace kesctl {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kWaitMargin{5'000};
constexpr milliseconds kWaitWithoutTimeout{60'000};
constexpr milliseconds kProgressInterval{100};
static_assert(kWaitWithoutTimeout > milliseconds(wifi::kDefaultTimeoutMs) + kWaitMargin);

// Waits for the result; while a person watches, in short turns that each move the progress line on.
kes::Result<kes::DiscoveryResult> WaitWithProgress(kes::DiscoveryScan& scan, milliseconds patience, int wakeFd) {
  ProgressLine progress("Scanning,");
  const fenk::Clock::time_point deadline = fenk::Clock::now() + patience;
  for (;;) {
    const fenk::Clock::time_point turn = progress.IsShown() ? fenk::Clock::now() + kProgressInterval : deadline;
    kes::Result<kes::DiscoveryResult> result = scan.Wait(std::min(turn, deadline), wakeFd);
    const bool turnEnded = !result && result.GetError().kind == kes::ErrorKind::kTimedOut;
    if (!turnEnded || fenk::Clock::now() >= deadline) return result;
    progress.Update();
  }
}

// Runs the request from connect to result. A caught signal ends it in between; its request is then aborted.
kes::Result<kes::DiscoveryResult> Scan(const ScanOptions& options, int wakeFd) {
  kes::Result<kes::Client> client = kes::Client::Connect(options.socketPath);
  if (!client) return client.GetError();
  kes::Result<kes::DiscoveryScan> scan = client->StartDiscovery(options.request);
  if (!scan) return scan.GetError();
  const milliseconds patience =
      options.request.timeoutMs > 0 ? milliseconds(options.request.timeoutMs) + kWaitMargin : kWaitWithoutTimeout;
  kes::Result<kes::DiscoveryResult> result = WaitWithProgress(*scan, patience, wakeFd);
  scan->Abort();
  return result;
}

int ExitCodeOf(wifi::ScanStatus status) {
  switch (status) {
    case wifi::ScanStatus::kOk:
      return kExitDelivered;
    case wifi::ScanStatus::kTimedOut:
      return kExitTimedOut;
    default:
      return kExitRefused;
  }
}

}  // namespace

int RunScan(const ScanOptions& options) {
  std::optional<Interrupts> interrupts(std::in_place);
  const kes::Result<kes::DiscoveryResult> result = Scan(options, interrupts->WakeDescriptor());
  const int signal = interrupts->Caught();
  interrupts.reset();  // from here on a signal ends the process as usual

  if (!result && signal != 0) {
    Complain("interrupted; the scan was aborted.");
    return kExitInterrupted + signal;
  }
  if (!result) return Fail(result.GetError(), options.socketPath);

  const TableStyle style{WantsColour(), options.elements};
  if (!PrintResult(options.json ? ScanJson(*result) : ScanTable(*result, style))) return kExitRefused;
  if (result->status != wifi::ScanStatus::kOk) {
    const StatusWords words = WordsFor(result->status);
    Complain("the scan ended with status " + std::to_string(static_cast<uint32_t>(result->status)) + " (" +
             std::string(words.name) + "). " + std::string(words.advice));
  }
  return ExitCodeOf(result->status);
}

}  // namespace kesctl
