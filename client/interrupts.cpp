#include "client/interrupts.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>

namespace kesctl {
namespace {

constexpr int kUsualEnds[] = {SIGINT, SIGTERM};

// All that the handlers may touch.
volatile std::sig_atomic_t caughtSignal = 0;
volatile std::sig_atomic_t wakePipe = -1;
void (*volatile lastActOfAll)() = nullptr;
std::atomic<uint32_t> noticedSignals{0};
static_assert(std::atomic<uint32_t>::is_always_lock_free);

void Wake() {
  const int savedErrno = errno;
  const char octet = 0;
  (void)!write(wakePipe, &octet, 1);  // a full pipe wakes as well
  errno = savedErrno;
}

void Catch(int signal) {
  if (caughtSignal != 0) {
    if (lastActOfAll != nullptr) lastActOfAll();
    std::signal(signal, SIG_DFL);
    (void)raise(signal);  // comes when this handler returns
    return;
  }
  caughtSignal = signal;
  Wake();
}

void Notice(int signal) {
  noticedSignals |= uint32_t{1} << signal;
  Wake();
}

}  // namespace

Interrupts::Interrupts() : Interrupts(kUsualEnds, {}, nullptr) {}

Interrupts::Interrupts(std::span<const int> ending, std::span<const int> noticed, void (*lastAct)()) {
  caughtSignal = 0;
  noticedSignals = 0;
  old.reserve(ending.size() + noticed.size());
  int ends[2];
  if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) return;
  readEnd.Reset(ends[0]);
  writeEnd.Reset(ends[1]);
  wakePipe = ends[1];
  lastActOfAll = lastAct;
  const auto install = [this](int signal, void (*handler)(int)) {
    struct sigaction before {};
    struct sigaction action {};
    action.sa_handler = handler;  // no SA_RESTART: connect() must come back
    sigaction(signal, nullptr, &before);
    if (before.sa_handler == SIG_IGN) return;
    sigaction(signal, &action, nullptr);
    old.emplace_back(signal, before);
  };
  for (const int signal : ending) install(signal, Catch);
  for (const int signal : noticed) install(signal, Notice);
}

Interrupts::~Interrupts() {
  for (const auto& [signal, action] : old) sigaction(signal, &action, nullptr);
  wakePipe = -1;
}

int Interrupts::Caught() { return caughtSignal; }

Interrupts::SignalSet Interrupts::TakeNoticed() {
  char octets[64];
  while (read(readEnd.Get(), octets, sizeof octets) == sizeof octets) {
  }
  return SignalSet(noticedSignals.exchange(0));
}

}  // namespace kesctl
