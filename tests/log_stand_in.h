// The platform's logging functions for a test program. The one file of it that includes this says what becomes of a
// message.
#ifndef KESD_TESTS_LOG_STAND_IN_H_
#define KESD_TESTS_LOG_STAND_IN_H_

#include <cstdarg>
#include <cstdio>

#include "platform/log.h"

namespace testing_log {

// `level`: one of D, I, W and E.
void Write(char level, const char* tag, const char* text);

}  // namespace testing_log

namespace zv_loc_fw {

// Whoever stands in for the library includes this in one file.
// NOLINTBEGIN(misc-definitions-in-headers)
#define KESD_LOG_STAND_IN(function, level)                  \
  void function(const char* tag, const char* format, ...) { \
    char text[1024];                                        \
    va_list arguments;                                      \
    va_start(arguments, format);                            \
    std::vsnprintf(text, sizeof text, format, arguments);   \
    va_end(arguments);                                      \
    testing_log::Write(level, tag, text);                   \
  }
KESD_LOG_STAND_IN(log_debug, 'D')
KESD_LOG_STAND_IN(log_info, 'I')
KESD_LOG_STAND_IN(log_warning, 'W')
KESD_LOG_STAND_IN(log_error, 'E')
#undef KESD_LOG_STAND_IN
// NOLINTEND(misc-definitions-in-headers)

}  // namespace zv_loc_fw

#endif  // KESD_TESTS_LOG_STAND_IN_H_
