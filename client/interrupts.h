// Ctrl-C and termination as something to wait for.
#ifndef KESD_CLIENT_INTERRUPTS_H_
#define KESD_CLIENT_INTERRUPTS_H_

#include <csignal>

#include "host/fenksocket/unique_fd.h"

namespace kesctl {

// Catches the first SIGINT and SIGTERM while it lives; a second one ends the process at once, so that nothing can hold
// it. A signal that the parent had ignored stays ignored. At most one instance at a time.
class Interrupts {
 public:
  Interrupts();
  ~Interrupts();
  Interrupts(const Interrupts&) = delete;
  Interrupts& operator=(const Interrupts&) = delete;

  // Readable once a signal was caught; -1 when the system gave no pipe, and then nothing is caught.
  int WakeDescriptor() const { return readEnd.Get(); }

  // The signal that the latest instance caught, in its whole life once that is over; 0 if none.
  static int Caught();

 private:
  fenk::UniqueFd readEnd;
  fenk::UniqueFd writeEnd;
  struct sigaction oldInterrupt {};
  struct sigaction oldTerminate {};
};

}  // namespace kesctl

#endif  // KESD_CLIENT_INTERRUPTS_H_
