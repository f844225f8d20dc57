// Signals as something to wait for.
#ifndef KESD_CLIENT_INTERRUPTS_H_
#define KESD_CLIENT_INTERRUPTS_H_

#include <bitset>
#include <csignal>
#include <span>
#include <utility>
#include <vector>

#include "host/fenksocket/unique_fd.h"

namespace kesctl {

// Catches signals while it lives. A signal that the parent had ignored stays ignored. At most one instance at a time.
class Interrupts {
 public:
  using SignalSet = std::bitset<32>;

  // Catches the first SIGINT or SIGTERM; a second one ends the process at once, so that nothing can hold it.
  Interrupts();

  // Catches the first of `ending` likewise, and each of `noticed`. `lastAct` is what the handler of the second one does
  // before the process ends; only what is safe in a handler.
  Interrupts(std::span<const int> ending, std::span<const int> noticed, void (*lastAct)());
  ~Interrupts();
  Interrupts(const Interrupts&) = delete;
  Interrupts& operator=(const Interrupts&) = delete;

  // Readable once a signal was caught; -1 when the system gave no pipe, and then nothing is caught.
  int WakeDescriptor() const { return readEnd.Get(); }

  // The ending signal that the latest instance caught, in its whole life once that is over; 0 if none.
  static int Caught();

  // Those of `noticed` that came since the last call. The descriptor is readable no more.
  SignalSet TakeNoticed();

 private:
  fenk::UniqueFd readEnd;
  fenk::UniqueFd writeEnd;
  std::vector<std::pair<int, struct sigaction>> old;
};

}  // namespace kesctl

#endif  // KESD_CLIENT_INTERRUPTS_H_
