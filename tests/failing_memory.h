// Memory that runs out when a test says so. What the program itself allocates with new can fail; what shared libraries
// allocate for themselves cannot.
#ifndef KESD_TESTS_FAILING_MEMORY_H_
#define KESD_TESTS_FAILING_MEMORY_H_

#include <limits>

namespace scripted {

// While it lives, the calling thread's allocations fail: the first `skip` succeed, the next `failures` do not, and
// those after them succeed again. One at a time in a thread.
class FailingMemory {
 public:
  explicit FailingMemory(int skip, int failures = std::numeric_limits<int>::max());
  FailingMemory(const FailingMemory&) = delete;
  FailingMemory& operator=(const FailingMemory&) = delete;
  ~FailingMemory();

  // How many there were so far, those that failed included.
  int Allocations() const;

  // For what a test itself allocates meanwhile: does not fail and is not counted.
  class Exempt {
   public:
    Exempt();
    Exempt(const Exempt&) = delete;
    Exempt& operator=(const Exempt&) = delete;
    ~Exempt();

   private:
    bool failing;
  };
};

// Counts the calling thread's allocations, none of which fails.
struct CountedMemory : FailingMemory {
  CountedMemory() : FailingMemory(0, 0) {}
};

}  // namespace scripted

#endif  // KESD_TESTS_FAILING_MEMORY_H_
