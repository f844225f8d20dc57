#include "client/session.h"

namespace kesctl {

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
    : requester(std::move(path), timeoutMs), activity(what) {}

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
    Complain(EndSentences(status, words));
    if (badStatus == kExitDelivered) badStatus = ExitCodeOf(status);
  }
  return true;
}

}  // namespace kesctl
