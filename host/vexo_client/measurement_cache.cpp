#include "host/vexo_client/measurement_cache.h"

#include <algorithm>
#include <utility>

namespace vexo_host {

void MeasurementCache::Insert(const BssList& measurements) {
  const kesd::MutexLock lock(mutex);
  if (measurements == nullptr || measurements == lastInserted.lock()) return;
  lastInserted.reset();
  for (const BssPointer& measurement : *measurements) {
    const auto [known, isNew] = entries.insert(measurement);
    if (isNew || (*known)->takenAt > measurement->takenAt) continue;
    auto node = entries.extract(known);
    node.value() = measurement;
    entries.insert(std::move(node));
  }
  if (entries.size() > capacity) DropOldest();
  lastInserted = measurements;
}

void MeasurementCache::DropOldest() {
  std::vector<TimePoint> times;
  times.reserve(entries.size());
  for (const BssPointer& entry : entries) times.push_back(entry->takenAt);
  size_t surplus = entries.size() - capacity;
  const auto last = times.begin() + static_cast<std::ptrdiff_t>(surplus - 1);
  std::nth_element(times.begin(), last, times.end());
  const TimePoint youngestToGo = *last;
  // First those that are older than that, then as many of its own age as still have to go.
  surplus -= std::erase_if(entries, [&](const BssPointer& entry) { return entry->takenAt < youngestToGo; });
  std::erase_if(entries, [&](const BssPointer& entry) {
    if (surplus == 0 || entry->takenAt != youngestToGo) return false;
    --surplus;
    return true;
  });
}

std::vector<BssPointer> MeasurementCache::TakenSince(TimePoint oldest) {
  const kesd::MutexLock lock(mutex);
  std::vector<BssPointer> found;
  found.reserve(entries.size());
  for (const BssPointer& entry : entries) {
    if (entry->takenAt >= oldest) found.push_back(entry);
  }
  return found;
}

}  // namespace vexo_host
