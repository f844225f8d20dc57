// The terminal at standard output as a screen of one's own.
#ifndef KESD_CLIENT_TERMINAL_H_
#define KESD_CLIENT_TERMINAL_H_

#include "client/watch_screen.h"

namespace kesctl {

// Has the terminal's second screen without a cursor, and its keys at once and unseen, from the beginning to the end;
// the terminal is then as it was found. At most one instance at a time.
class Terminal {
 public:
  Terminal();
  ~Terminal() { GiveBack(); }
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  ScreenSize Size() const;

  // Where keys can be read; -1 when standard input is no terminal.
  int KeyDescriptor() const;

  // Stops the process, as Ctrl-Z does, while the terminal is as it was found; then takes it again.
  void Suspend();

  // Has the terminal again, which somebody else may have used meanwhile. Stops the process while it is in the
  // background. Not once an ending signal was caught: then it leaves the terminal alone.
  void Take();
  bool IsTaken() const;

  // At the latest now is the terminal as it was found. May be called from a signal handler, at any time.
  static void GiveBack();
};

}  // namespace kesctl

#endif  // KESD_CLIENT_TERMINAL_H_
