// A libzv_loc_fw.so that admits everything and writes it as it was given. It also stands before the C library in the
// order in which the daemon's symbols are looked up, and takes its calls of sleep from there.
#include <unistd.h>

#include <cstdlib>

#include "tests/log_stand_in.h"
#include "tests/startup/say.h"

void testing_log::Write(char level, const char* tag, const char* text) { Say("%c %s \"%s\"", level, tag, text); }

void zv_loc_fw::log_set_local_level_for_tag(const char* tag, ERROR_LEVEL level) {
  Say("level %s %d", tag, static_cast<int>(level));
  atexit([] { Say("exit"); });
}

// Wakes up at once the first two times, so that it is seen whether the caller goes on sleeping.
extern "C" unsigned sleep(unsigned seconds) noexcept(noexcept(::sleep(0))) {
  static int calls = 0;
  Say("sleep %u", seconds);
  if (++calls < 3) return 0;
  Say("asleep");
  for (;;) pause();
}
