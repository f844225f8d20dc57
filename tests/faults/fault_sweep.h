// Takes a road again and again, each time in a process of its own, and lets another allocation fail each time.
#ifndef KESD_TESTS_FAULTS_FAULT_SWEEP_H_
#define KESD_TESTS_FAULTS_FAULT_SWEEP_H_

#include <functional>

namespace faults {

// Blocks of operator new that were not given back.
long LiveBlocks();

// What happens to one run: at the allocation after the first `skip`, of whichever thread.
struct Fault {
  int skip = 0;
  int failures = 0;           // so many allocations fail, one after the other
  void (*event)() = nullptr;  // is called
};

// The part of a run in which its fault happens. At most one in a process; it may last until the process ends.
class FaultWindow {
 public:
  explicit FaultWindow(const Fault& fault);
  FaultWindow(const FaultWindow&) = delete;
  FaultWindow& operator=(const FaultWindow&) = delete;
  ~FaultWindow();
};

// Ends the run as failed unless `holds`.
void Require(bool holds, const char* what);

struct Sweep {
  std::function<void(const Fault&)> road;
  void (*event)() = nullptr;      // when not null, it is also tried at each allocation
  bool mayEndTheProcess = false;  // with the status that the daemon has when it cannot make its client
};

// A run is good when its process ends by itself with status 0 in time, and has by then given back every block and every
// descriptor. Each allocation of the road (a sample of them, in an emulator) is the first of 1, 2, 3 and 4 that fail,
// and of all until the window ends. Reports to the test that calls it, and prints one line of figures.
void Run(const char* name, const Sweep& sweep);

}  // namespace faults

#endif  // KESD_TESTS_FAULTS_FAULT_SWEEP_H_
