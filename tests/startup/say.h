// How the stand-in libraries report what happens to them: one line each on standard error, in order.
#ifndef KESD_TESTS_STARTUP_SAY_H_
#define KESD_TESTS_STARTUP_SAY_H_

#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <string>

__attribute__((format(printf, 1, 2))) inline void Say(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  (void)vdprintf(STDERR_FILENO, (format + std::string("\n")).c_str(), arguments);
  va_end(arguments);
}

#endif  // KESD_TESTS_STARTUP_SAY_H_
