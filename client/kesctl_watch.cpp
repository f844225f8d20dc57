#include "client/kesctl_watch.h"

#include <poll.h>
#include <sys/epoll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <span>
#include <system_error>

#include "client/console.h"
#include "client/session.h"
#include "client/terminal.h"
#include "client/watch_display.h"

namespace kesctl {
namespace {

using std::chrono::milliseconds;

// Waits, in one place, for whatever the user may do meanwhile.
class Attention {
 public:
  Attention(Interrupts& caught, WatchDisplay& shown)
      : interrupts(caught), display(shown), events(epoll_create1(EPOLL_CLOEXEC)) {
    if (!events.IsOpen()) throw std::system_error(errno, std::generic_category(), "cannot wait for events");
    for (const int fd : {interrupts.WakeDescriptor(), display.KeyDescriptor()}) {
      epoll_event event{};
      event.events = EPOLLIN;
      if (fd >= 0) (void)epoll_ctl(events.Get(), EPOLL_CTL_ADD, fd, &event);
    }
  }

  // Readable when there is something to do.
  int WakeDescriptor() const { return events.Get(); }

  // Does it. False when the user ends it all, now or before.
  bool GoesOn() {
    goesOn = goesOn && Interrupts::Caught() == 0 && display.Serve(interrupts) && Interrupts::Caught() == 0;
    return goesOn;
  }

  bool WaitUntil(fenk::Clock::time_point time) {
    while (GoesOn()) {
      const auto left = std::chrono::ceil<milliseconds>(time - fenk::Clock::now());
      if (left.count() <= 0) return true;
      pollfd event{events.Get(), POLLIN, 0};
      (void)poll(&event, 1, static_cast<int>(left.count()));
    }
    return false;
  }

 private:
  Interrupts& interrupts;
  WatchDisplay& display;
  const fenk::UniqueFd events;
  bool goesOn = true;
};

kes::Result<kes::DiscoveryResult> Scan(Requester& requester, const kes::DiscoveryRequest& request,
                                       Attention& attention) {
  return requester.Run(&kes::Client::StartDiscovery, request,
                       [&](kes::DiscoveryScan& scan, fenk::Clock::time_point deadline) {
                         for (;;) {
                           auto result = scan.Wait(deadline, attention.WakeDescriptor());
                           const bool isWoken = !result && result.GetError().kind == kes::ErrorKind::kWoken;
                           if (!isWoken || !attention.GoesOn()) return result;
                         }
                       });
}

// Until the user ends it, enough results were shown, or a failure. Returns the exit code but for the user's end, or why
// there was no first result.
kes::Result<int> Watch(const WatchOptions& options, WatchDisplay& display, Attention& attention) {
  Requester requester(options.socketPath, options.request.timeoutMs);
  int exitCode = kExitDelivered;
  fenk::Clock::time_point start = fenk::Clock::now();
  for (uint32_t shown = 0; attention.WaitUntil(start);) {
    start = std::max(start, fenk::Clock::now());
    const kes::Result<kes::DiscoveryResult> result = Scan(requester, options.request, attention);
    if (!attention.GoesOn()) break;
    std::string trouble;
    if (result) {
      ++shown;
      if (result->status != wifi::ScanStatus::kOk) trouble = EndSentences(result->status, WordsFor(result->status));
      if (exitCode == kExitDelivered) exitCode = ExitCodeOf(result->status);
    } else if (result.GetError().kind == kes::ErrorKind::kWoken) {
      continue;  // a signal came while it connected, and was served
    } else if (shown == 0) {
      return result.GetError();
    } else {
      trouble = Explain(result.GetError(), options.socketPath).what + "; trying again.";
    }
    if (!display.Show(result ? &*result : nullptr, trouble)) return int{kExitRefused};
    if (result && shown == options.count) break;
    start += milliseconds(options.intervalMs);
  }
  return exitCode;
}

std::unique_ptr<WatchDisplay> MakeDisplay(const WatchOptions& options, bool isLive) {
  if (isLive) return std::make_unique<LiveDisplay>(milliseconds(options.intervalMs));
  return std::make_unique<LineDisplay>(options.json || isatty(STDOUT_FILENO) == 0);
}

}  // namespace

int RunWatch(const WatchOptions& options) {
  constexpr int kEnding[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};
  constexpr int kOfTerminals[] = {SIGTSTP, SIGCONT, SIGWINCH};
  const bool isLive = IsCapableTerminal() && !options.json;
  Interrupts interrupts(kEnding, std::span(kOfTerminals).first(isLive ? 3 : 0), &Terminal::GiveBack);
  const kes::Result<int> end = [&] {
    const std::unique_ptr<WatchDisplay> display = MakeDisplay(options, isLive);
    Attention attention(interrupts, *display);
    kes::Result<int> exitCode = Watch(options, *display, attention);
    if (exitCode) display->End();
    return exitCode;
  }();  // the terminal is as it was found
  if (const int signal = Interrupts::Caught()) return kExitInterrupted + signal;
  return end ? *end : Fail(end.GetError(), options.socketPath);
}

}  // namespace kesctl
