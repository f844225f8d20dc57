// This end's objects that the peer holds references to.
#ifndef KESD_HOST_FENKSOCKET_OBJECT_TABLE_H_
#define KESD_HOST_FENKSOCKET_OBJECT_TABLE_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <unordered_map>

#include "host/fenksocket/budget.h"
#include "ipc/object.h"
#include "support/mutex.h"

namespace fenk {

// One local reference to an object, dropped in the end.
class LocalReference {
 public:
  explicit LocalReference(const Object& owned) : object(owned) {}
  LocalReference(const LocalReference&) = delete;
  ~LocalReference() { ObjectRelease(object); }

  const Object object;
};

// Every reference that is sent has an ID of its own, which is never used again. Any thread may call any method. Objects
// are never called with the lock held: what the methods return drops its reference where the caller lets go of it.
class ObjectTable {
 public:
  // Each reference also takes one of `sharedBudget`.
  ObjectTable(std::size_t maximumObjects, Budget& sharedBudget) : maxObjects(maximumObjects), shared(sharedBudget) {}
  ~ObjectTable() { Close(); }

  // Takes over one reference of `object`. 0, and nothing is taken over, at the limit, out of memory, or when closed.
  uint64_t Add(const Object& object) KESD_EXCLUDES(mutex);
  // Keeps the object alive while the caller uses it. Null for an unknown ID.
  std::shared_ptr<const LocalReference> Find(uint64_t id) KESD_EXCLUDES(mutex);
  // Null for an unknown ID.
  std::shared_ptr<const LocalReference> Remove(uint64_t id) KESD_EXCLUDES(mutex);
  // Drops all and admits no more.
  void Close() KESD_EXCLUDES(mutex);

 private:
  const std::size_t maxObjects;
  Budget& shared;
  kesd::Mutex mutex;
  std::unordered_map<uint64_t, std::shared_ptr<const LocalReference>> objects KESD_GUARDED_BY(mutex);
  uint64_t lastId KESD_GUARDED_BY(mutex) = 0;
  bool closed KESD_GUARDED_BY(mutex) = false;
};

}  // namespace fenk

#endif  // KESD_HOST_FENKSOCKET_OBJECT_TABLE_H_
