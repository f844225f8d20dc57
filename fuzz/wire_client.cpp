// libkes against any bytes from its daemon: whatever comes, it answers its caller, and nothing is left.
#include <sys/socket.h>

#include <thread>

#include "client/client.h"
#include "fuzz/wire_stream.h"

namespace {

using fuzz::Require;

// Sends `bytes` to the next who connects, and reads until the other closes.
void ServeOnce(int listener, const std::string& bytes) {
  const fenk::UniqueFd socket(accept4(listener, nullptr, nullptr, SOCK_CLOEXEC));
  (void)send(socket.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
  shutdown(socket.Get(), SHUT_WR);
  char ignored[4096];
  while (recv(socket.Get(), ignored, sizeof(ignored), 0) > 0) {
  }
}

template <typename Scan>
void Wait(kes::Result<Scan>& scan, bool abort) {
  if (!scan) return Require(!scan.GetError().message.empty(), "a reason");
  if (abort) scan->Abort();
  const auto result = scan->Wait(fenk::Clock::now() + std::chrono::seconds(30), -1);
  if (!result) return Require(result.GetError().kind != kes::ErrorKind::kTimedOut, "the end is noticed");
  const auto again = scan->Wait(fenk::Clock::now(), -1);
  Require(again && again->measurements.size() == result->measurements.size(), "the same result again");
}

void Run(const std::string& path, unsigned how) {
  auto client = kes::Client::Connect(path);
  if (!client) {
    using enum kes::ErrorKind;
    const kes::ErrorKind kind = client.GetError().kind;  // a peer may answer that it met a limit, or had no time
    return Require((kind == kProtocol || kind == kLimit || kind == kTimedOut) && !client.GetError().message.empty(),
                   "a reason");
  }
  if (how % 2 == 0) {
    auto scan = client->StartDiscovery({});
    Wait(scan, how & 2);
  }
  if (how % 2 != 0 || (how & 4) != 0) {
    auto scan = client->StartRanging({});
    Wait(scan, how & 2);
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  using namespace fenk::test;
  static const ListeningSocket listener;
  static const bool listens = listen(listener.Fd(), 1) == 0;
  Require(listens, "there is a socket");
  fuzz::Input input(data, size);
  const uint8_t how = input.Take<uint8_t>();
  // Most streams begin as a daemon's do: it opens services, then takes a request.
  fuzz::WireStream stream(input, 0x1000);
  if (how / 32 != 0) stream.stream = Hello().data;
  for (uint64_t i = 1; i < std::min<uint64_t>(how / 32, 4); ++i) {
    stream.stream += Reply(i, 0, 0x1000, Reference(kMine, i)).data;
  }
  const std::string bytes = stream.Take();

  const int descriptor = fuzz::NextDescriptor();
  std::thread daemon(ServeOnce, listener.Fd(), std::cref(bytes));
  Run(listener.Path(), how);
  daemon.join();
  Require(fuzz::NextDescriptor() == descriptor, "every descriptor is closed");
  return 0;
}
