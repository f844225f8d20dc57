// The daemon with its libraries and a client in one process, on a real socket: memory that runs out anywhere on a
// request's road, and a service that ends anywhere on it.
#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <optional>
#include <string>

#include "client/client.h"
#include "host/vexo_client/capture/capture_writer.h"
#include "tests/faults/daemon.h"
#include "tests/faults/fault_sweep.h"

namespace {

using faults::Daemon;
using faults::EndTheService;
using faults::Fault;
using faults::FaultWindow;
using faults::Require;
using kes::ErrorKind;
using wifi::ScanStatus;

constexpr std::chrono::seconds kPatience{20};
constexpr int64_t kNoTimeout = 3'600'000;
constexpr kes::MacAddress kFirst{0x02, 0xA0, 0xC9, 0x11, 0x45, 0x01}, kSecond{0x02, 0xA0, 0xC9, 0x11, 0x45, 0x05},
    kCaptured{2, 0, 0, 0, 0, 1};

// False: a client has learnt at once that memory was short somewhere, or that the service has ended.
bool NotWhole(const kes::Error& error) {
  for (const ErrorKind kind : {ErrorKind::kDisconnected, ErrorKind::kNoSocket,
                               ErrorKind::kProtocol,  // the connection ended before the daemon said a word
                               ErrorKind::kRejected, ErrorKind::kLimit, ErrorKind::kOutOfMemory}) {
    if (error.kind == kind) return false;
  }
  std::fprintf(stderr, "error %d: %s\n", static_cast<int>(error.kind), error.message.c_str());
  Require(false, "a client learns of it at once");
  return false;
}

// `measurements`, `status`: what it has when all is well.
template <typename Scan>
bool Await(kes::Result<Scan> scan, std::size_t measurements, ScanStatus status) {
  if (!scan) return NotWhole(scan.GetError());
  const auto result = scan->Wait(fenk::Clock::now() + kPatience, -1);
  if (!result) return NotWhole(result.GetError());
  bool whole = result->status == status && result->measurements.size() == measurements;
  for (const auto& measurement : result->measurements) {
    whole = whole && !measurement.incomplete;
    Require(measurement.bssid == kFirst || measurement.bssid == kSecond || measurement.bssid == kCaptured,
            "nothing else is delivered");
  }
  // A request whose list found no memory asks for less, or filters less.
  Require(result->measurements.size() <= 2, "no more is delivered than there is");
  Require(whole || result->status == status || result->status == ScanStatus::kFailed ||
              result->status == ScanStatus::kTimedOut || result->status == ScanStatus::kInvalidRequest ||
              result->status == ScanStatus::kUnavailable,
          "the status tells of a failure");
  return whole;
}

// A request from start to result: whether that is whole.
using Question = std::function<bool(kes::Client&)>;

Question Discovery(const kes::DiscoveryRequest& request, std::size_t measurements,
                   ScanStatus status = ScanStatus::kOk) {
  return [=](kes::Client& client) { return Await(client.StartDiscovery(request), measurements, status); };
}

Question Ranging(const kes::RangingRequest& request) {
  return [=](kes::Client& client) {
    const bool whole = Await(client.StartRanging(request), request.nodes.size(), ScanStatus::kOk);
    Require(!request.periodic || !whole || faults::lastRound.Wait(fenk::Clock::now() + kPatience), "every round ends");
    return whole;
  };
}

const kes::RangingRequest kTwoNodes{.nodes = {{.mac = kFirst}, {.mac = kSecond, .secondMac = kFirst}},
                                    .timeoutMs = kNoTimeout};

const Question kCacheOnly = Discovery({.mode = wifi::RequestMode::kCacheOnly}, 0);

// Once memory is back, the next request works; only a connection may have ended meanwhile.
void RequireThatTheNextWorks(const Daemon& daemon, std::optional<kes::Client>& client, const Question& ask) {
  if (client && ask(*client)) return;
  client.reset();
  auto again = daemon.Connect();
  Require(static_cast<bool>(again), "the daemon can be reached again");
  Require(ask(*again), "the next request is answered in full");
}

kes::Client StartAndConnect(Daemon& daemon) {
  Require(daemon.Start(), "the service starts");
  daemon.Serve();
  auto client = daemon.Connect();
  Require(static_cast<bool>(client), "a client can connect");
  return std::move(*client);
}

struct Scene {
  const char* source = "scene:aps=2,delay=0";
  bool warm = true;  // the daemon has its client
  bool cacheFilled = false;
};

// One request, with the fault anywhere between its start and its result. `next`: what is asked after it.
void SweepRequest(const char* name, const Scene& scene, const Question& ask, const Question& next) {
  const auto road = [&](const Fault& fault) {
    Daemon daemon(scene.source);
    std::optional<kes::Client> client(StartAndConnect(daemon));
    if (scene.warm) Require(kCacheOnly(*client), "the daemon warms up");
    if (scene.cacheFilled) Require(Discovery({}, 2)(*client), "the cache is filled");
    bool whole = false;
    {
      const FaultWindow window(fault);
      whole = ask(*client);
    }
    if (fault.failures == 0 && fault.event == nullptr) Require(whole, "the result is whole");
    if (fault.event == nullptr) RequireThatTheNextWorks(daemon, client, next);
  };
  faults::Run(name, {.road = road, .event = EndTheService, .mayEndTheProcess = !scene.warm});
}

void SweepRequest(const char* name, const Scene& scene, const Question& ask) { SweepRequest(name, scene, ask, ask); }

TEST(DaemonFaults, WhileTheServiceStarts) {
  faults::Run("start", {.road = [](const Fault& fault) {
                Daemon daemon("scene:aps=2,delay=0");
                bool started = false;
                {
                  const FaultWindow window(fault);
                  started = daemon.Start();
                }
                Require(started || daemon.Start(), "the service starts when memory is back");
                daemon.Serve();
                std::optional<kes::Client> none;
                RequireThatTheNextWorks(daemon, none, Discovery({}, 2));
              }});
}

TEST(DaemonFaults, WhileAClientConnects) {
  const auto road = [](const Fault& fault) {
    Daemon daemon("scene:aps=2,delay=0");
    Require(daemon.Start(), "the service starts");
    daemon.Serve();
    std::optional<kes::Client> client;
    {
      const FaultWindow window(fault);
      auto connected = daemon.Connect();
      if (connected) {
        client = std::move(*connected);
      } else {
        NotWhole(connected.GetError());
      }
    }
    if (fault.event == nullptr) RequireThatTheNextWorks(daemon, client, Discovery({}, 2));
  };
  faults::Run("connect", {.road = road, .event = EndTheService});
}

TEST(DaemonFaults, DuringTheFirstRequest) { SweepRequest("first request", {.warm = false}, Discovery({}, 2)); }

TEST(DaemonFaults, DuringAFreshScan) {
  SweepRequest("fresh scan", {}, Discovery({}, 2));
  const std::vector<uint8_t> ssid = {'L', 'i', 'n', 'd', 'e', 'n', ' ', '1', '2'};
  SweepRequest("fresh scan with lists", {.cacheFilled = true},
               Discovery({.channels = {1, 36}, .ssids = {ssid}, .bssids = {kSecond}}, 1));
}

TEST(DaemonFaults, DuringARequestOfTheCache) {
  SweepRequest("cache only", {.cacheFilled = true}, Discovery({.mode = wifi::RequestMode::kCacheOnly}, 2));
  const Question fallback = Discovery({.mode = wifi::RequestMode::kCacheFallback, .fallbackBelow = 2}, 2);
  SweepRequest("cache with fallback, from the cache", {.cacheFilled = true}, fallback);
  SweepRequest("cache with fallback, from a scan", {}, fallback);
}

TEST(DaemonFaults, DuringARequestThatTimesOut) {
  SweepRequest("timed out", {.source = "scene:aps=2,delay=600000"},
               Discovery({.timeoutMs = 1}, 0, ScanStatus::kTimedOut));
}

TEST(DaemonFaults, DuringRanging) {
  const Question once = Ranging(kTwoNodes);
  SweepRequest("ranging", {}, once);
  kes::RangingRequest periodic = kTwoNodes;
  periodic.periodic = kes::PeriodicRanging{100, 2};
  SweepRequest("periodic ranging", {}, Ranging(periodic), once);
}

void SweepCapture(const char* name, const vexo_host::test::Bytes& file, ScanStatus status) {
  const vexo_host::test::TemporaryDirectory directory;
  const std::string source = "capture:" + directory.Write("capture", file);
  SweepRequest(name, {.source = source.c_str()}, Discovery({}, status == ScanStatus::kOk, status));
}

TEST(DaemonFaults, DuringAScanOfACapture) {
  using namespace vexo_host::test;
  const Bytes beacon = Beacon(1, Ssid("a network") + Element(3, {6}));
  SweepCapture("pcap", Pcap(kBare, {{beacon}, {beacon}}), ScanStatus::kOk);
  SweepCapture("pcap of another link type", Pcap(kEthernet, {{beacon}}), ScanStatus::kUnavailable);
}

TEST(DaemonFaults, DuringAScanOfACaptureOfTheNextGeneration) {
  using namespace vexo_host::test;
  const Bytes start = SectionHeader() + Interface(kBare), damaged = Block(6, Bytes(8));
  const Bytes packet = EnhancedPacket({Beacon(1, Ssid("a network") + Element(3, {6}))});
  SweepCapture("pcapng", start + packet + packet, ScanStatus::kOk);
  SweepCapture("pcapng, damaged", start + packet + damaged, ScanStatus::kOk);
  SweepCapture("pcapng, damaged at once", start + damaged, ScanStatus::kUnavailable);
}

// One request is pending and another one is aborted; then the service ends, and the process.
void AbortAndEnd(const Fault& fault, bool inTheEnd) {
  Daemon daemon("scene:aps=2,delay=600000");
  std::optional<kes::Client> client(StartAndConnect(daemon));
  Require(kCacheOnly(*client), "the daemon warms up");
  auto pending = client->StartRanging(kTwoNodes);
  Require(static_cast<bool>(pending), "a request can be sent");
  const auto abortAnother = [&] {
    auto aborted = client->StartDiscovery({.timeoutMs = kNoTimeout});
    if (!aborted) return (void)NotWhole(aborted.GetError());
    const auto none = aborted->Wait(fenk::Clock::now(), -1);
    Require(!none, "nothing is delivered yet");
    if (none.GetError().kind != ErrorKind::kTimedOut) NotWhole(none.GetError());
    aborted->Abort();
  };
  if (inTheEnd) {
    abortAnother();
    static std::optional<FaultWindow> untilTheLastHandler;
    untilTheLastHandler.emplace(fault);
    return daemon.End();
  }
  {
    const FaultWindow window(fault);
    abortAnother();
  }
  if (fault.event != nullptr) return;
  RequireThatTheNextWorks(daemon, client, kCacheOnly);
}

TEST(DaemonFaults, WhileARequestIsAborted) {
  faults::Run("abort", {.road = [](const Fault& fault) { AbortAndEnd(fault, false); }, .event = EndTheService});
}

TEST(DaemonFaults, WhileEverythingEnds) {
  faults::Run("end", {.road = [](const Fault& fault) { AbortAndEnd(fault, true); }});
}

}  // namespace
