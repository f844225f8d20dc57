#include "client/interrupts.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace kesctl {
namespace {

// All that the handler may touch.
volatile std::sig_atomic_t caughtSignal = 0;
volatile std::sig_atomic_t wakePipe = -1;

void Catch(int signal) {
  const int savedErrno = errno;
  caughtSignal = signal;
  const char octet = 0;
  (void)!write(wakePipe, &octet, 1);  // a full pipe wakes as well
  errno = savedErrno;
}

void Install(int signal, struct sigaction& old) {
  struct sigaction action {};
  action.sa_handler = Catch;
  action.sa_flags = static_cast<int>(SA_RESETHAND);  // no SA_RESTART: connect() must come back
  sigaction(signal, nullptr, &old);
  if (old.sa_handler != SIG_IGN) sigaction(signal, &action, nullptr);
}

}  // namespace

Interrupts::Interrupts() {
  caughtSignal = 0;
  int ends[2];
  if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) return;
  readEnd.Reset(ends[0]);
  writeEnd.Reset(ends[1]);
  wakePipe = ends[1];
  Install(SIGINT, oldInterrupt);
  Install(SIGTERM, oldTerminate);
}

Interrupts::~Interrupts() {
  if (!readEnd.IsOpen()) return;
  sigaction(SIGINT, &oldInterrupt, nullptr);
  sigaction(SIGTERM, &oldTerminate, nullptr);
  wakePipe = -1;
}

int Interrupts::Caught() { return caughtSignal; }

}  // namespace kesctl
