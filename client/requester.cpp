#include "client/requester.h"

namespace kesctl {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kWaitMargin{5'000};
constexpr milliseconds kWaitWithoutTimeout{60'000};
static_assert(kWaitWithoutTimeout > milliseconds(wifi::kDefaultTimeoutMs) + kWaitMargin &&
              kWaitWithoutTimeout > milliseconds(wifi::kDefaultRangingTimeoutMs) + kWaitMargin);

}  // namespace

Requester::Requester(std::string socketPath, int64_t timeoutMs)
    : path(std::move(socketPath)),
      patience(timeoutMs > 0 ? milliseconds(timeoutMs) + kWaitMargin : kWaitWithoutTimeout) {}

kes::Result<kes::Client*> Requester::Connect() {
  if (!client) {
    kes::Result<kes::Client> connected = kes::Client::Connect(path);
    if (!connected) return connected.GetError();
    client = std::move(*connected);
  }
  return &*client;
}

}  // namespace kesctl
