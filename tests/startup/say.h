// How the stand-in libraries report what happens to them: one line each on standard error, in order.
#ifndef KESD_TESTS_STARTUP_SAY_H_
#define KESD_TESTS_STARTUP_SAY_H_

#include <unistd.h>

#include <cstdarg>
#include <cstdio>

__attribute__((format(printf, 1, 2))) inline void Say(const char* format, ...) {
  char line[512];
  std::va_list arguments;
  va_start(arguments, format);
  const int length = vsnprintf(line, sizeof line - 1, format, arguments);
  va_end(arguments);
  if (length < 0 || length >= static_cast<int>(sizeof line) - 1) _exit(98);
  line[length] = '\n';
  if (write(STDERR_FILENO, line, static_cast<size_t>(length) + 1) < 0) _exit(98);
}

#endif  // KESD_TESTS_STARTUP_SAY_H_
