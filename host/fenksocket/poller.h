// What the acceptor waits for, in one place.
#ifndef KESD_HOST_FENKSOCKET_POLLER_H_
#define KESD_HOST_FENKSOCKET_POLLER_H_

#include <sys/epoll.h>
#include <sys/timerfd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>

#include "host/fenksocket/unique_fd.h"

namespace fenk {

// Any thread. Its descriptors are -1 when the system gave none, and then nothing is reported.
class Poller {
 public:
  // `answerDeadline`: the connections'; unsent bytes are looked after several times in it.
  explicit Poller(std::chrono::milliseconds answerDeadline)
      : lookAfter(std::max(answerDeadline / 4, std::chrono::milliseconds(1))) {}

  // For epoll_wait.
  int Descriptor() const { return epoll.Get(); }

  // Readable, so to be watched as well, when it is time to look after what could not be sent.
  int Timer() const { return timer.Get(); }

  // Reports `events` of `fd` as `what` from now on. False when that is not possible.
  bool Watch(int fd, uint64_t what, uint32_t events) const {
    epoll_event event{events, {.u64 = what}};
    if (epoll_ctl(epoll.Get(), EPOLL_CTL_MOD, fd, &event) == 0) return true;
    return errno == ENOENT && epoll_ctl(epoll.Get(), EPOLL_CTL_ADD, fd, &event) == 0;
  }

  // Something had to stay on this connection: Flush is due when its socket is writable, and when the timer fires.
  void WatchUnsent(int fd, uint64_t number) const {
    Watch(fd, number, EPOLLOUT | EPOLLONESHOT);
    itimerspec next{};
    if (timerfd_gettime(timer.Get(), &next) != 0 || next.it_value.tv_sec != 0 || next.it_value.tv_nsec != 0) return;
    constexpr long kNanoseconds = 1'000'000'000;
    next.it_value = {lookAfter.count() / kNanoseconds, lookAfter.count() % kNanoseconds};
    timerfd_settime(timer.Get(), 0, &next, nullptr);
  }

 private:
  const UniqueFd epoll{epoll_create1(EPOLL_CLOEXEC)};
  const UniqueFd timer{timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)};
  const std::chrono::nanoseconds lookAfter;
};

}  // namespace fenk

#endif  // KESD_HOST_FENKSOCKET_POLLER_H_
