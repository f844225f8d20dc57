// The last measurement of every BSS.
#ifndef KESD_HOST_VEXO_CLIENT_MEASUREMENT_CACHE_H_
#define KESD_HOST_VEXO_CLIENT_MEASUREMENT_CACHE_H_

#include <chrono>
#include <cstddef>
#include <memory>
#include <set>
#include <vector>

#include "host/vexo_client/shared_bss.h"
#include "support/mutex.h"

namespace vexo_host {

// Keeps one measurement, the latest taken, of each pair of BSSID and SSID. Any thread may call any method; each may
// throw std::bad_alloc, and the cache then works on, perhaps above its capacity until the next Insert.
class MeasurementCache {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;

  // Some hundred bytes for each entry: 2 MiB when full.
  static constexpr size_t kDefaultCapacity = 4096;

  explicit MeasurementCache(size_t maxEntries = kDefaultCapacity) : capacity(maxEntries) {}

  // The oldest measurements make room when there are too many. Costs nothing when it is the list of the time before.
  void Insert(const BssList& measurements) KESD_EXCLUDES(mutex);

  // Those taken at `oldest` or later, ordered by BSSID and SSID.
  std::vector<BssPointer> TakenSince(TimePoint oldest) KESD_EXCLUDES(mutex);

 private:
  struct ByIdentity {
    bool operator()(const BssPointer& a, const BssPointer& b) const {
      return a->bssid != b->bssid ? a->bssid < b->bssid : a->ssid < b->ssid;
    }
  };

  void DropOldest() KESD_REQUIRES(mutex);

  const size_t capacity;
  kesd::Mutex mutex;
  std::set<BssPointer, ByIdentity> entries KESD_GUARDED_BY(mutex);
  std::weak_ptr<const std::vector<BssPointer>> lastInserted KESD_GUARDED_BY(mutex);
};

}  // namespace vexo_host

#endif  // KESD_HOST_VEXO_CLIENT_MEASUREMENT_CACHE_H_
