#include "client/session.h"

namespace kesctl {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kWaitMargin{5'000};
constexpr milliseconds kWaitWithoutTimeout{60'000};
static_assert(kWaitWithoutTimeout > milliseconds(wifi::kDefaultTimeoutMs) + kWaitMargin &&
              kWaitWithoutTimeout > milliseconds(wifi::kDefaultRangingTimeoutMs) + kWaitMargin);

}  // namespace

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

Session::Session(std::string path, std::string_view what, int64_t timeoutMs)
    : socketPath(std::move(path)),
      activity(what),
      patience(timeoutMs > 0 ? milliseconds(timeoutMs) + kWaitMargin : kWaitWithoutTimeout) {}

kes::Result<kes::Client*> Session::Connect() {
  if (!client) {
    kes::Result<kes::Client> connected = kes::Client::Connect(socketPath);
    if (!connected) return connected.GetError();
    client = std::move(*connected);
  }
  return &*client;
}

void Session::SayInterrupted() {
  Complain("interrupted; the request was aborted.");
  failure = kExitInterrupted + signal;
}

bool Session::Show(std::string_view text, wifi::ScanStatus status, const StatusWords& words) {
  if (!PrintResult(text)) {
    failure = kExitRefused;
    return false;
  }
  if (status != wifi::ScanStatus::kOk) {
    Complain("the request ended with status " + std::to_string(static_cast<uint32_t>(status)) + " (" +
             std::string(words.name) + "). " + std::string(words.advice));
    if (badStatus == kExitDelivered) badStatus = ExitCodeOf(status);
  }
  return true;
}

}  // namespace kesctl
