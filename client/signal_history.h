// What a series of scans heard of each access point.
#ifndef KESD_CLIENT_SIGNAL_HISTORY_H_
#define KESD_CLIENT_SIGNAL_HISTORY_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "client/discovery_result.h"

namespace kesctl {

struct HeardAccessPoint {
  enum class State { kKnown, kNew, kGone };
  State GetState() const;

  kes::Measurement latest;                        // as it was last heard
  std::chrono::steady_clock::time_point heardAt;  // when that result came
  std::vector<std::optional<int32_t>> signals;    // in 1/100 dBm, a scan each, oldest first; nothing: not heard
  unsigned scansKnown = 0;                        // since the one that heard it first
  unsigned scansMissed = 0;                       // since the one that heard it last
};

class SignalHistory {
 public:
  static constexpr std::size_t kMaxSignals = 60;  // of one access point
  static constexpr unsigned kNewScans = 5;        // as long is one new, unless the first scan of all heard it
  static constexpr unsigned kGoneScans = 5;       // as long is one kept that is not heard any more

  // A scan that did not end well and heard nothing is left out: it says nothing of anybody. Of an access point that is
  // in a result several times, the strongest measurement counts.
  void Add(kes::DiscoveryResult result, std::chrono::steady_clock::time_point now);

  // The strongest first, as they were last heard; unknown signals last. Until the next Add.
  std::vector<const HeardAccessPoint*> Sorted() const;

 private:
  std::map<kes::MacAddress, HeardAccessPoint> accessPoints;
  bool isEmpty = true;  // no scan was added
};

}  // namespace kesctl

#endif  // KESD_CLIENT_SIGNAL_HISTORY_H_
