#include "host/vexo_client/nl80211/ranging_turns.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <new>
#include <span>
#include <utility>

#include "host/vexo_client/nl80211/interface.h"
#include "host/vexo_client/nl80211/ranging_plan.h"
#include "host/wifi/ranging_parameters.h"
#include "platform/log.h"

namespace vexo_host::nl80211 {
namespace {

using std::chrono::milliseconds;
using wifi::RangingStatus;
using wifi::ScanStatus;

constexpr char kTag[] = "vexo_client";

constexpr milliseconds kBusyPause{200};       // before a radio that measures for somebody else is asked again
constexpr milliseconds kLookPause{1'000};     // between looks whether the interface is still up
constexpr milliseconds kCompletionTime{500};  // from the last peer's result to the measurement's end

using Heard = std::map<uint64_t, const Bss*>;

Heard LatestOf(const std::vector<Bss>& known) {
  Heard latest;
  for (const Bss& bss : known) {
    const Bss*& entry = latest[bss.bssid];
    if (entry == nullptr || entry->takenAt < bss.takenAt) entry = &bss;
  }
  return latest;
}

uint16_t BurstsOf(const FtmRequest& request) { return static_cast<uint16_t>(1u << request.burstExponent); }

}  // namespace

// A node that can be measured.
struct RangingTurns::Peer {
  size_t node;  // its place in the request
  FtmRequest request;
  milliseconds time;  // for it; 0: until the request's end
  bool hasResult = false, isSettled = false;
};

struct RangingTurns::Turn {
  RangingRequest request;
  size_t peersAtOnce;
  std::vector<RangedPeer> results;  // of all nodes
  std::vector<Peer> peers;
  size_t roundBegin = 0, roundEnd = 0;  // the peers that are being measured
  size_t singlyUntil = 0;               // those before it are measured one by one: the kernel refused them together
};

RangingTurns::RangingTurns(std::string someName, RangingReport someReport)
    : name(std::move(someName)), report(std::move(someReport)) {}

RangingTurns::~RangingTurns() = default;

void RangingTurns::Add(const RangingRequest& request, const FtmCapabilities& capabilities,
                       const std::vector<Bss>& known) {
  Turn turn{request, capabilities.maxPeers, {}, {}};
  const auto& nodes = request.query->nodes;
  turn.results.resize(nodes.size());
  const Heard heard = LatestOf(known);
  for (size_t i = 0; i < nodes.size(); ++i) {
    RangedPeer& result = turn.results[i];
    result.takenAt = Clock::now();
    result.values.status = RangingStatus::kNotMeasured;
    const auto found = heard.find(AddressBits(nodes[i].address));
    const Bss* const bss = found != heard.end() ? found->second : nullptr;
    const auto plan = PlanFor(nodes[i], bss, capabilities);
    if (bss != nullptr) {
      result.frequencyMhz = bss->frequencyMhz;
      result.signalMbm = bss->signalMbm;
    }
    if (plan) {
      const milliseconds time(std::max(0, wifi::LoadRangingParameters(nodes[i]).timeoutMs));
      turn.peers.push_back({i, *plan, time});
    } else {
      result.values.status = RangingStatus::kUnknownPeer;
    }
  }
  turns.push_back(std::move(turn));
  if (turns.size() == 1) due = Clock::now();
}

std::optional<RangingTurns::Clock::time_point> RangingTurns::Due() const {
  if (turns.empty()) return std::nullopt;
  Clock::time_point first = measurement ? std::min(due, nextLook) : due;
  for (const Turn& turn : turns) first = std::min(first, turn.request.deadline);
  return first;
}

void RangingTurns::TakeResults() {
  const int error =
      measurement->Receive([this](uint8_t command, const Attributes& attributes) { TakeMessage(command, attributes); });
  const Turn& turn = turns.front();
  const bool allSettled = std::all_of(turn.peers.begin() + static_cast<ptrdiff_t>(turn.roundBegin),
                                      turn.peers.begin() + static_cast<ptrdiff_t>(turn.roundEnd),
                                      [](const Peer& peer) { return peer.isSettled; });
  // Of messages that were lost, the last may be one.
  if (error != 0 || allSettled) due = std::min(due, Clock::now() + kCompletionTime);
}

void RangingTurns::TakeMessage(uint8_t command, const Attributes& attributes) {
  if (command == NL80211_CMD_PEER_MEASUREMENT_COMPLETE) isComplete = true;
  if (command != NL80211_CMD_PEER_MEASUREMENT_RESULT) return;
  ReadFtmResults(attributes[NL80211_ATTR_PEER_MEASUREMENTS], [this](const FtmResult& result) { Take(result); });
}

void RangingTurns::Take(const FtmResult& result) {
  Turn& turn = turns.front();
  for (size_t i = turn.roundBegin; i < turn.roundEnd; ++i) {
    Peer& peer = turn.peers[i];
    if (peer.request.address != result.address || peer.isSettled) continue;
    peer.hasResult = true;
    peer.isSettled = result.isFinal;
    RangedPeer& ranged = turn.results[peer.node];
    ranged.takenAt = Clock::now();
    wifi::RangingValues latest = result.values;
    latest.burstsAsked = BurstsOf(peer.request);
    if (latest.status == RangingStatus::kSuccess) {
      ranged.frequencyMhz = peer.request.frequencyMhz;
      if (latest.burstsAnswered == 0) latest.burstsAnswered = latest.burstsAsked;
    }
    AddBurst(ranged.values, latest);
  }
}

void RangingTurns::Continue(Clock::time_point now) {
  for (auto turn = turns.begin(); turn != turns.end();) {
    const auto next = std::next(turn);
    if (turn->request.deadline <= now) End(turn, ScanStatus::kTimedOut);
    turn = next;
  }
  if (measurement && (isComplete || now >= due)) {
    EndRound(turns.front());
    due = now;
  } else if (measurement && now >= nextLook) {
    // The kernel tells nobody that it gave up the measurements of an interface that went down.
    nextLook = now + kLookPause;
    const ScanStatus status = StateOf(name, *measurement, measured);
    if (status != ScanStatus::kOk) End(turns.begin(), status);
  }
  // One step at a time, so that a request of many rounds that are refused holds up nothing else.
  if (measurement || turns.empty() || now < due) return;
  if (turns.front().roundEnd == turns.front().peers.size()) {
    End(turns.begin(), ScanStatus::kOk);
  } else {
    BeginRound(turns.front(), now);
  }
}

// Starts to measure the peers after the last round's.
void RangingTurns::BeginRound(Turn& turn, Clock::time_point now) {
  const size_t begin = turn.roundBegin = turn.roundEnd;
  const size_t most = begin < turn.singlyUntil ? 1 : turn.peersAtOnce;
  std::vector<FtmRequest> requests;
  int error = ENOMEM;
  try {
    for (size_t i = begin; i < turn.peers.size() && requests.size() < most; ++i) {
      const FtmRequest& wanted = turn.peers[i].request;
      const auto isSame = [&wanted](const FtmRequest& other) { return other.address == wanted.address; };
      if (std::any_of(requests.begin(), requests.end(), isSame)) break;  // results are told apart by the address
      requests.push_back(wanted);
    }
    error = measurement.emplace().Open();
    if (error == 0) {
      const milliseconds left = std::chrono::ceil<milliseconds>(turn.request.deadline - now);
      measured = IndexOf(name, *measurement);  // it may have been made anew since
      turn.roundEnd = begin + requests.size();
      isComplete = false;
      // The first results may come before the acknowledgement.
      error =
          measurement->Ask(StartMessage(*measurement, measured, left, requests),
                           [this](uint8_t command, const Attributes& attributes) { TakeMessage(command, attributes); });
    }
  } catch (const std::bad_alloc&) {
    error = ENOMEM;
  }
  if (error != 0) return Refused(turn, requests.size(), error, now);
  due = now;
  nextLook = now + kLookPause;
  for (size_t i = begin; i < turn.roundEnd && !isComplete; ++i) {
    const Peer& peer = turn.peers[i];
    due = std::max(due, peer.time.count() > 0 ? now + peer.time : turn.request.deadline);
  }
}

void RangingTurns::Refused(Turn& turn, size_t count, int error, Clock::time_point now) {
  turn.roundEnd = turn.roundBegin;
  if (error == EBUSY) {
    measurement.reset();
    due = now + kBusyPause;
    return;
  }
  const char* const why = measurement ? measurement->Explanation().c_str() : "";
  const bool isToldAlready = turn.roundBegin < turn.singlyUntil;  // of all of them together
  if (!isToldAlready)
    zv_loc_fw::log_warning(kTag, "%s: the kernel refuses to measure the distance to %zu peer%s: %s%s%s\n", name.c_str(),
                           count, count == 1 ? "" : "s", strerrordesc_np(error), *why == '\0' ? "" : ": ", why);
  measurement.reset();
  if (error != EINVAL && error != ERANGE) {
    End(turns.begin(), error == EOPNOTSUPP ? ScanStatus::kUnsupported : StatusOf(error, name));
  } else if (count > 1) {
    turn.singlyUntil = turn.roundBegin + count;
  } else {
    turn.results[turn.peers[turn.roundBegin].node].values.status = RangingStatus::kFailed;
    ++turn.roundEnd;
  }
}

void RangingTurns::EndRound(Turn& turn) {
  measurement.reset();
  for (size_t i = turn.roundBegin; i < turn.roundEnd; ++i) {
    const Peer& peer = turn.peers[i];
    if (peer.hasResult || !isComplete) continue;
    wifi::RangingValues& values = turn.results[peer.node].values;
    values.status = RangingStatus::kNoResponse;
    values.burstsAsked = BurstsOf(peer.request);
  }
}

void RangingTurns::End(std::list<Turn>::iterator turn, ScanStatus status) {
  if (turn == turns.begin()) {
    measurement.reset();
    due = Clock::now();
  }
  Turn ended = std::move(*turn);
  turns.erase(turn);
  const bool isMeasured = status == ScanStatus::kOk || status == ScanStatus::kTimedOut;
  if (!isMeasured) ended.results.clear();
  report(std::move(ended.request.done), status, std::move(ended.results));
}

}  // namespace vexo_host::nl80211
