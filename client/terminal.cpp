#include "client/terminal.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <string_view>

#include "client/console.h"
#include "client/interrupts.h"

namespace kesctl {
namespace {

constexpr std::string_view kEnter = "\033[?1049h\033[?25l";
// Empty when it is left: tmux pushes long lines of a screen that was resized out of it, among those that were found.
constexpr std::string_view kLeave = "\033[0m\033[H\033[J\033[?25h\033[?1049l";

// What GiveBack needs, which may run in a signal handler.
termios found;
volatile std::sig_atomic_t hasModes = 0;  // `found` is filled
volatile std::sig_atomic_t isTaken = 0;

}  // namespace

Terminal::Terminal() {
  hasModes = tcgetattr(STDOUT_FILENO, &found) == 0 ? 1 : 0;
  Take();
}

ScreenSize Terminal::Size() const {
  winsize size{};
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_row == 0 || size.ws_col == 0) return {};
  return {size.ws_row, size.ws_col};
}

int Terminal::KeyDescriptor() const { return isatty(STDIN_FILENO) == 1 ? STDIN_FILENO : -1; }

void Terminal::Take() {
  termios modes = found;
  modes.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
  modes.c_iflag &= ~static_cast<tcflag_t>(IXON);  // Ctrl-S must not hold what gives the terminal back
  modes.c_cc[VMIN] = 1;
  modes.c_cc[VTIME] = 0;
  do {
    isTaken = Interrupts::Caught() == 0 ? 1 : 0;
    if (isTaken == 0) return;
    // In the background this stops the process, and begins anew once it goes on. Before anything is written, therefore.
  } while (hasModes != 0 && tcsetattr(STDOUT_FILENO, TCSANOW, &modes) != 0 && errno == EINTR);
  (void)PrintResult(kEnter);
}

void Terminal::GiveBack() {
  if (isTaken == 0) return;
  const int savedErrno = errno;
  // In the background, writing must not stop the process; and the modes are somebody else's by then.
  sigset_t stopping;
  sigset_t before;
  sigemptyset(&stopping);
  sigaddset(&stopping, SIGTTOU);
  pthread_sigmask(SIG_BLOCK, &stopping, &before);
  const pid_t owner = tcgetpgrp(STDOUT_FILENO);  // negative when this terminal controls nobody of ours
  const bool isOurs = owner < 0 || owner == getpgrp();
  // Where nobody takes what was written before, this must not wait for room.
  pollfd out{STDOUT_FILENO, POLLOUT, 0};
  if (isOurs && poll(&out, 1, 0) == 0) (void)tcflush(STDOUT_FILENO, TCOFLUSH);
  (void)!write(STDOUT_FILENO, kLeave.data(), kLeave.size());
  if (hasModes != 0 && isOurs) (void)tcsetattr(STDOUT_FILENO, TCSANOW, &found);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  isTaken = 0;  // not before it is true: a signal may come any time
  errno = savedErrno;
}

void Terminal::Suspend() {
  GiveBack();
  struct sigaction stopping {};
  struct sigaction caught {};
  stopping.sa_handler = SIG_DFL;
  sigaction(SIGTSTP, &stopping, &caught);
  (void)raise(SIGTSTP);
  sigaction(SIGTSTP, &caught, nullptr);
  Take();
}

bool Terminal::IsTaken() const { return isTaken != 0; }

}  // namespace kesctl
