#include "client/doctor_checks.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <system_error>

#include "client/daemon_search.h"
#include "client/socket_access.h"
#include "client/socket_connect.h"
#include "client/text.h"
#include "host/fenksocket/limits.h"

namespace kesctl {
namespace {

constexpr int64_t kScanTimeoutMs = 30'000;  // more than all channels take a radio

class Stopwatch {
 public:
  // "0.4 ms", "2.3 s".
  std::string Words() const {
    const std::chrono::duration<double, std::milli> elapsed = std::chrono::steady_clock::now() - start;
    char text[32];
    const bool isShort = elapsed.count() < 1000;
    std::snprintf(text, sizeof text, isShort ? "%.1f ms" : "%.1f s", elapsed.count() / (isShort ? 1 : 1000));
    return text;
  }

 private:
  const std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
};

Finding Ok(std::string detail) { return {.detail = std::move(detail)}; }

Finding Skipped(std::string detail) { return {.verdict = Verdict::kSkipped, .detail = std::move(detail)}; }

Finding Failed(int exitCode, std::string detail, std::string advice) {
  return {Verdict::kFailed, std::move(detail), std::move(advice), exitCode};
}

Finding Failed(const kes::Error& error, const Examination& examination) {
  const Failure failure = Explain(error, examination.socketPath);
  return Failed(failure.exitCode, error.message, std::string(failure.advice));
}

Finding Failed(wifi::ScanStatus status, const StatusWords& words) {
  const std::string detail =
      "ended with status " + std::to_string(static_cast<uint32_t>(status)) + " (" + std::string(words.name) + ')';
  if (status == wifi::ScanStatus::kTimedOut) {  // there is no option that gives it longer
    return Failed(ExitCodeOf(status), detail,
                  "The daemon's measurement source is slow or hangs; its log may tell why.");
  }
  return Failed(ExitCodeOf(status), detail, std::string(words.advice));
}

Finding LookAtSocket(Examination& examination) {
  const std::string& path = examination.socketPath;
  const std::size_t slash = path.rfind('/');
  const std::string folder = slash == std::string::npos ? "." : path.substr(0, std::max<std::size_t>(slash, 1));
  struct stat status {};
  struct stat folderStatus {};
  if (stat(path.c_str(), &status) != 0) {
    const int code = errno;
    if (code == EACCES) return Skipped("cannot be seen from here");  // by whom, the next check tells
    const bool isFolderThere = stat(folder.c_str(), &folderStatus) == 0;
    const std::string what = isFolderThere ? path : "the folder " + folder;
    return Failed(kExitNoDaemon, what + ": " + std::generic_category().message(code), HowToStart(path));
  }
  if (!S_ISSOCK(status.st_mode)) {
    return Failed(kExitNoDaemon, path + " is not a socket", "Name the daemon's socket with --socket PATH.");
  }
  if (stat(folder.c_str(), &folderStatus) != 0) return Ok(path + ' ' + Ownership(status));
  return Ok(path + ' ' + Ownership(status) + ", in a folder of " + Ownership(folderStatus));
}

Finding LookAtPermission(Examination& examination) {
  const std::string& path = examination.socketPath;
  const std::optional<Barrier> barrier = FindBarrier(path);
  if (!barrier && access(path.c_str(), W_OK) != 0 && errno == EACCES) {
    return Failed(kExitNoDaemon, Whoami() + " may not reach " + path,
                  "A folder that cannot be entered lies in between, behind a link or above the current one: name the "
                  "socket by its whole path.");
  }
  if (!barrier) return Ok(Whoami() + " may connect");
  return Failed(kExitNoDaemon,
                Whoami() + " may not " + (barrier->IsFolder() ? "enter " : "use ") + barrier->path + ", " +
                    Ownership(barrier->status),
                WayPast(*barrier));
}

Finding LookForListener(Examination& examination) {
  const kes::Result<fenk::UniqueFd> socket = examination.session.Interruptibly<fenk::UniqueFd>(
      [&](int) { return kes::ConnectToSocket(examination.socketPath, fenk::kClientLimits.answerDeadline); });
  if (!socket) {
    Finding finding = Failed(socket.GetError(), examination);
    if (socket.GetError().kind == kes::ErrorKind::kRefused) finding.advice = HowToStart(examination.socketPath);
    return finding;
  }
  ucred listener{};
  socklen_t size = sizeof listener;
  if (getsockopt(socket->Get(), SOL_SOCKET, SO_PEERCRED, &listener, &size) != 0) return Ok("somebody listens");
  return Ok(ProcessWords(listener.pid) + " of " + UserName(listener.uid) + " listens");
}

Finding GreetDaemon(Examination& examination) {
  const Stopwatch stopwatch;
  const kes::Result<kes::Client*> client = examination.session.TryConnect();
  if (client) return Ok("answered within " + stopwatch.Words());
  Finding finding = Failed(client.GetError(), examination);
  if (client.GetError().kind == kes::ErrorKind::kTimedOut) {
    finding.advice = "It is busy or hangs: look into its log, and start it again.";
  }
  return finding;
}

std::string Describe(wifi::SourceKind source) {
  const std::string name = SourceName(source);
  switch (source) {
    case wifi::SourceKind::kScene:
      return name + ", a neighbourhood that is made up";
    case wifi::SourceKind::kCapture:
      return name + ", a file of what was heard before";
    case wifi::SourceKind::kRadio:
      return name + ", the daemon's own";
    case wifi::SourceKind::kUnknown:
      break;
  }
  return name + ", of no kind that this kesctl knows";
}

// By a request for the cache, which is answered at once, whatever state the source is in.
Finding AskForSource(Examination& examination) {
  kes::DiscoveryRequest request;
  request.mode = wifi::RequestMode::kCacheOnly;
  const auto result = examination.session.Try(&kes::Client::StartDiscovery, request);
  if (!result) return Failed(result.GetError(), examination);
  if (result->source == wifi::SourceKind::kUnknown) return Skipped("the daemon's Wi-Fi library does not tell");
  return Ok(Describe(result->source));
}

Finding Scan(Examination& examination) {
  kes::DiscoveryRequest request;
  request.timeoutMs = kScanTimeoutMs;
  const Stopwatch stopwatch;
  auto result = examination.session.Try(&kes::Client::StartDiscovery, request);
  if (!result) return Failed(result.GetError(), examination);
  if (result->status != wifi::ScanStatus::kOk) return Failed(result->status, WordsFor(result->status));
  examination.heard = std::move(result->measurements);
  const std::size_t count = examination.heard.size();
  return Ok(std::to_string(count) + (count == 1 ? " access point in " : " access points in ") + stopwatch.Words());
}

// Whether it says that it answers fine timing measurement requests (IEEE Std 802.11-2020, 9.4.2.26).
bool SaysItAnswersRanging(const kes::Measurement& measurement) {
  constexpr std::size_t kBit = 70;
  const auto capabilities = wifi::FindElement(measurement.elements, wifi::kElementExtendedCapabilities);
  return capabilities && capabilities->payload.size() > kBit / 8 &&
         (capabilities->payload[kBit / 8] >> kBit % 8 & 1) != 0;
}

Finding Range(Examination& examination) {
  const kes::Measurement* nearest = nullptr;
  for (const kes::Measurement& measurement : examination.heard) {
    if (!SaysItAnswersRanging(measurement)) continue;
    if (nearest == nullptr || measurement.values.signalMbm > nearest->values.signalMbm) nearest = &measurement;
  }
  if (nearest == nullptr) return Skipped("no peer nearby answers ranging");
  kes::RangingRequest request;
  kes::RangingNode& node = request.nodes.emplace_back();
  node.mac = nearest->bssid;
  node.parameters.frequencyMhz = static_cast<int32_t>(nearest->values.frequencyMhz);
  const Stopwatch stopwatch;
  const auto result = examination.session.Try(&kes::Client::StartRanging, request);
  if (!result) return Failed(result.GetError(), examination);
  const StatusWords words = RangingWordsFor(result->status);
  // Most radios cannot, and nothing is wrong with them.
  if (result->status == wifi::ScanStatus::kUnsupported) return Skipped(std::string(words.advice));
  if (result->status != wifi::ScanStatus::kOk) return Failed(result->status, words);
  const std::string peer = MacText(nearest->bssid);
  const wifi::RangingValues ranging =
      result->measurements.empty() ? wifi::RangingValues{} : result->measurements[0].ranging;
  if (ranging.status != wifi::RangingStatus::kSuccess) {
    return Failed(kExitRefused, peer + ": " + RangingStatusName(ranging.status),
                  "It says that it answers; go nearer, or try another peer: kesctl range MAC");
  }
  char metres[32];
  std::snprintf(metres, sizeof metres, "%.2f m to ", ranging.distanceMm / 1000.0);
  return Ok(metres + peer + " in " + stopwatch.Words());
}

}  // namespace

Examination::Examination(const std::string& path) : socketPath(path), session(path, "Looking,", kScanTimeoutMs) {}

std::span<const Check> DoctorChecks() {
  static constexpr Check kChecks[] = {
      {"socket", LookAtSocket}, {"permission", LookAtPermission}, {"listener", LookForListener},
      {"daemon", GreetDaemon},  {"source", AskForSource},         {"scan", Scan},
      {"ranging", Range},
  };
  return kChecks;
}

}  // namespace kesctl
