// A mutex and a condition whose use clang checks (-Wthread-safety): the standard library's carry no attributes.
#ifndef KESD_SUPPORT_MUTEX_H_
#define KESD_SUPPORT_MUTEX_H_

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>

#if defined(__clang__)
#define KESD_THREAD_ATTRIBUTE(attribute) __attribute__((attribute))
#else
#define KESD_THREAD_ATTRIBUTE(attribute)
#endif
#define KESD_GUARDED_BY(mutex) KESD_THREAD_ATTRIBUTE(guarded_by(mutex))
#define KESD_REQUIRES(mutex) KESD_THREAD_ATTRIBUTE(requires_capability(mutex))
#define KESD_EXCLUDES(mutex) KESD_THREAD_ATTRIBUTE(locks_excluded(mutex))

namespace kesd {

class KESD_THREAD_ATTRIBUTE(capability("mutex")) Mutex {
 public:
  void Lock() KESD_THREAD_ATTRIBUTE(acquire_capability()) { impl.lock(); }
  void Unlock() KESD_THREAD_ATTRIBUTE(release_capability()) { impl.unlock(); }

 private:
  friend class Condition;
  std::mutex impl;
};

// Holds a mutex for a scope.
class KESD_THREAD_ATTRIBUTE(scoped_lockable) MutexLock {
 public:
  explicit MutexLock(Mutex& held) KESD_THREAD_ATTRIBUTE(acquire_capability(held)) : mutex(held) { mutex.Lock(); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;
  ~MutexLock() KESD_THREAD_ATTRIBUTE(release_capability()) { mutex.Unlock(); }

 private:
  Mutex& mutex;
};

class Condition {
 public:
  // One wait, during which `mutex` is not held; it may end for no reason. False when `deadline` passed first.
  bool Wait(Mutex& mutex, std::optional<std::chrono::steady_clock::time_point> deadline = std::nullopt)
      KESD_REQUIRES(mutex) {
    std::unique_lock<std::mutex> lock(mutex.impl, std::adopt_lock);
    bool notified = true;
    if (deadline) {
      notified = impl.wait_until(lock, *deadline) == std::cv_status::no_timeout;
    } else {
      impl.wait(lock);
    }
    lock.release();
    return notified;
  }
  void NotifyOne() { impl.notify_one(); }
  void NotifyAll() { impl.notify_all(); }

 private:
  std::condition_variable impl;
};

}  // namespace kesd

#endif  // KESD_SUPPORT_MUTEX_H_
