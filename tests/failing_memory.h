// Memory that runs out when a test says so. What the program itself allocates with new can fail; what shared libraries
// allocate for themselves can where a test replaces the operators for the whole process (replaced_new.cpp).
#ifndef KESD_TESTS_FAILING_MEMORY_H_
#define KESD_TESTS_FAILING_MEMORY_H_

#include <limits>

namespace scripted {

inline constexpr int kForEver = std::numeric_limits<int>::max();

// While it lives, the calling thread's allocations fail: the first `skip` succeed, the next `failures` do not, and
// those after them succeed again. One at a time in a thread.
class FailingMemory {
 public:
  explicit FailingMemory(int skip, int failures = kForEver);
  FailingMemory(const FailingMemory&) = delete;
  FailingMemory& operator=(const FailingMemory&) = delete;
  ~FailingMemory();

  // How many there were so far, those that failed included.
  int Allocations() const;

  // For what a test itself allocates meanwhile in this thread: does not fail and is not counted.
  class Exempt {
   public:
    Exempt();
    Exempt(const Exempt&) = delete;
    Exempt& operator=(const Exempt&) = delete;
    ~Exempt();

   private:
    bool before;
  };
};

// The same for all threads of the process together. One in a process: a thread may look at it for the last time when it
// is over.
class FailingProcessMemory {
 public:
  // `reached`, unless null, is called at the allocation after the first `skip`, on whatever thread that is.
  FailingProcessMemory(int skip, int failures, void (*reached)());
  FailingProcessMemory(const FailingProcessMemory&) = delete;
  FailingProcessMemory& operator=(const FailingProcessMemory&) = delete;
  ~FailingProcessMemory();

  // Of all that there were.
  static int Allocations();
  static int Failures();
};

// For whoever stands in for operator new: to be asked once for each allocation.
bool ThisAllocationFails();

}  // namespace scripted

#endif  // KESD_TESTS_FAILING_MEMORY_H_
