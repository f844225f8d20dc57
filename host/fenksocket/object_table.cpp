#include "host/fenksocket/object_table.h"

#include <new>
#include <utility>

namespace fenk {

uint64_t ObjectTable::Add(const Object& object) {
  const kesd::MutexLock lock(mutex);
  if (closed || objects.size() >= maxObjects || !shared.Take(1)) return 0;
  const uint64_t id = lastId + 1;
  try {
    // First its place: a LocalReference that found none would drop the reference.
    std::shared_ptr<const LocalReference>& place = objects[id];
    place = std::make_shared<const LocalReference>(object);
  } catch (const std::bad_alloc&) {
    objects.erase(id);
    shared.Give(1);
    return 0;
  }
  return lastId = id;
}

std::shared_ptr<const LocalReference> ObjectTable::Find(uint64_t id) {
  const kesd::MutexLock lock(mutex);
  const auto found = objects.find(id);
  return found == objects.end() ? nullptr : found->second;
}

std::shared_ptr<const LocalReference> ObjectTable::Remove(uint64_t id) {
  const kesd::MutexLock lock(mutex);
  const auto found = objects.find(id);
  if (found == objects.end()) return nullptr;
  std::shared_ptr<const LocalReference> removed = std::move(found->second);
  objects.erase(found);
  shared.Give(1);
  return removed;
}

void ObjectTable::Close() {
  decltype(objects) dropped;
  {
    const kesd::MutexLock lock(mutex);
    closed = true;
    dropped.swap(objects);
    shared.Give(dropped.size());
  }
}

}  // namespace fenk
