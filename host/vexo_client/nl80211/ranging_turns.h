// The ranging requests that wait for a radio, which measures for one of them at a time.
#ifndef KESD_HOST_VEXO_CLIENT_NL80211_RANGING_TURNS_H_
#define KESD_HOST_VEXO_CLIENT_NL80211_RANGING_TURNS_H_

#include <chrono>
#include <cstddef>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/vexo_client/nl80211/interface.h"
#include "host/vexo_client/nl80211/netlink.h"
#include "host/vexo_client/nl80211/peer_measurement.h"
#include "host/vexo_client/nl80211/radio.h"
#include "host/vexo_client/ranging_query.h"

namespace vexo_host::nl80211 {

struct RangingRequest {
  std::shared_ptr<const RangingQuery> query;
  RangingDone done;
  std::chrono::steady_clock::time_point deadline;  // when it is answered with what there is
};

// A request is measured in rounds of as many peers as the radio takes. Each round has a socket of its own, because the
// kernel gives up a measurement when the socket that asked for it is closed, and for no other reason. Not thread-safe.
class RangingTurns {
 public:
  using Clock = std::chrono::steady_clock;

  RangingTurns(std::string someName, RangingReport someReport);
  ~RangingTurns();

  // `known`: what was heard on the radio lately. Throws std::bad_alloc; then nothing was added.
  void Add(const RangingRequest& request, const FtmCapabilities& capabilities, const std::vector<Bss>& known);

  // What is to be waited for: TakeResults when the descriptor, unless it is -1, has something, and Continue then and
  // when it is due.
  int Descriptor() const { return measurement ? measurement->Descriptor() : -1; }
  std::optional<Clock::time_point> Due() const;
  void TakeResults();
  void Continue(Clock::time_point now);

 private:
  struct Peer;
  struct Turn;

  void BeginRound(Turn& turn, Clock::time_point now);
  void EndRound(Turn& turn);
  void Refused(Turn& turn, size_t count, int error, Clock::time_point now);
  void TakeMessage(uint8_t command, const Attributes& attributes);
  void Take(const FtmResult& result);
  void End(std::list<Turn>::iterator turn, wifi::ScanStatus status);

  const std::string name;
  const RangingReport report;
  std::list<Turn> turns;               // the first one is measured, the others wait
  std::optional<Netlink> measurement;  // while one runs
  uint32_t measured = 0;               // the index of its interface
  Clock::time_point nextLook;          // whether the interface is still there
  bool isComplete = false;             // it is, says the kernel
  Clock::time_point due;               // of the measurement, or when it is tried again to start one
};

}  // namespace vexo_host::nl80211

#endif  // KESD_HOST_VEXO_CLIENT_NL80211_RANGING_TURNS_H_
