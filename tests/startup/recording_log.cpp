// A libzv_loc_fw.so that admits everything and writes it as it was given. It also stands before the C library in the
// order in which the daemon's symbols are looked up, and takes its calls of sleep from there.
#include <unistd.h>

#include <cstdlib>

#include "platform/log.h"
#include "tests/startup/say.h"

namespace {

void Record(const char* level, const char* tag, const char* format, std::va_list arguments) {
  char message[256];
  vsnprintf(message, sizeof message, format, arguments);
  Say("%s %s \"%s\"", level, tag, message);
}

}  // namespace

namespace zv_loc_fw {

#define RECORDED(function, level)                           \
  void function(const char* tag, const char* format, ...) { \
    std::va_list arguments;                                 \
    va_start(arguments, format);                            \
    Record(level, tag, format, arguments);                  \
    va_end(arguments);                                      \
  }
RECORDED(log_debug, "debug")
RECORDED(log_info, "info")
RECORDED(log_warning, "warning")
RECORDED(log_error, "error")
#undef RECORDED

void log_set_local_level_for_tag(const char* tag, ERROR_LEVEL level) {
  Say("level %s %d", tag, static_cast<int>(level));
  atexit([] { Say("exit"); });
}

}  // namespace zv_loc_fw

// Wakes up at once the first two times, so that it is seen whether the caller goes on sleeping.
extern "C" unsigned sleep(unsigned seconds) noexcept(noexcept(::sleep(0))) {
  static int calls = 0;
  Say("sleep %u", seconds);
  if (++calls < 3) return 0;
  Say("asleep");
  for (;;) pause();
}
