// What the subcommands share that ask the daemon for results: waiting with progress, signals, and the exit code.
#ifndef KESD_CLIENT_SESSION_H_
#define KESD_CLIENT_SESSION_H_

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "client/console.h"
#include "client/interrupts.h"
#include "client/requester.h"
#include "client/words.h"

namespace kesctl {

// The exit code for what a scan ended with.
int ExitCodeOf(wifi::ScanStatus status);

// Asks the daemon, one request after the other over one connection, and shows what it answers.
class Session {
 public:
  // `activity`: what the progress line says is going on. The others are the Requester's.
  Session(std::string socketPath, std::string_view activity, int64_t timeoutMs);

  // Starts a scan with `start`, a member of kes::Client, and waits for its result; connects first, unless connected.
  // Nothing when there is no result: that was said then, and is in the exit code. A first SIGINT or SIGTERM ends it and
  // aborts its request; one that comes together with a result takes effect at the next call.
  template <typename Scan, typename Request>
  auto Ask(kes::Result<Scan> (kes::Client::*start)(const Request&), const Request& request) {
    auto result = Try(start, request);
    using Answer = std::decay_t<decltype(*result)>;
    if (result) return std::optional<Answer>(std::move(*result));
    if (signal != 0) {
      SayInterrupted();
    } else {
      failure = Fail(result.GetError(), requester.SocketPath());
    }
    return std::optional<Answer>();
  }

  // The same for a caller who says itself what failed.
  template <typename Scan, typename Request>
  auto Try(kes::Result<Scan> (kes::Client::*start)(const Request&), const Request& request) {
    using Answer = std::decay_t<decltype(*std::declval<Scan&>().Wait({}, -1))>;
    return Interruptibly<Answer>([&](int wakeFd) {
      return requester.Run(start, request, [&](Scan& scan, fenk::Clock::time_point deadline) {
        return WaitWithProgress<Answer>(scan, deadline, wakeFd);
      });
    });
  }

  // Connects, unless connected. The client is the session's.
  kes::Result<kes::Client*> TryConnect() {
    return Interruptibly<kes::Client*>([this](int) { return requester.Connect(); });
  }

  // The result of `action`, which gets a descriptor that becomes readable at a first SIGINT or SIGTERM; kWoken without
  // it once there was one.
  template <typename T, typename Action>
  kes::Result<T> Interruptibly(const Action& action) {
    if (signal != 0) return kes::Error{kes::ErrorKind::kWoken, "interrupted"};
    std::optional<Interrupts> interrupts(std::in_place);
    kes::Result<T> result = action(interrupts->WakeDescriptor());
    interrupts.reset();  // from here on a signal ends the process as usual
    signal = Interrupts::Caught();
    return result;
  }

  bool IsInterrupted() const { return signal != 0; }
  void SayInterrupted();

  // Prints `text` and, when the status is not ok, what `words` say of it. False when it could not be printed.
  bool Show(std::string_view text, wifi::ScanStatus status, const StatusWords& words);

  // A failure decides, else the first status other than ok.
  int ExitCode() const { return failure != kExitDelivered ? failure : badStatus; }

 private:
  static constexpr std::chrono::milliseconds kProgressInterval{100};

  // Waits for the result; while a person watches, in short turns that each move the progress line on.
  template <typename Answer, typename Scan>
  kes::Result<Answer> WaitWithProgress(Scan& scan, fenk::Clock::time_point deadline, int wakeFd) {
    ProgressLine progress(activity);
    for (;;) {
      const fenk::Clock::time_point turn = progress.IsShown() ? fenk::Clock::now() + kProgressInterval : deadline;
      kes::Result<Answer> result = scan.Wait(std::min(turn, deadline), wakeFd);
      const bool turnEnded = !result && result.GetError().kind == kes::ErrorKind::kTimedOut;
      if (!turnEnded || fenk::Clock::now() >= deadline) return result;
      progress.Update();
    }
  }

  Requester requester;
  const std::string_view activity;
  int signal = 0;                  // caught
  int failure = kExitDelivered;    // why there is no result, or it was not written
  int badStatus = kExitDelivered;  // the first
};

}  // namespace kesctl

#endif  // KESD_CLIENT_SESSION_H_
