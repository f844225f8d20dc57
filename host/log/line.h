// One message as one line on standard error.
#ifndef KESD_HOST_LOG_LINE_H_
#define KESD_HOST_LOG_LINE_H_

#include <cstdarg>

namespace hostlog {

// How grave a message is; a tag's level admits the messages up to it.
enum class Level : int { kNone = 0, kError = 1, kWarning = 2, kInfo = 3, kDebug = 4 };

// Writes "YYYY-MM-DD hh:mm:ss.mmm L tag tid: message" (local time; L is E, W, I or D) with a single write, so that
// the lines of several threads and processes do not mix. A newline at the message's end is dropped; every other byte
// that is not printable ASCII is escaped (\n, \t, \r, \xNN; a backslash becomes \\), so that nothing a message quotes
// can start a line or drive a terminal. A message that does not fit is cut and says so. Allocates nothing, leaves
// errno alone, and raises no SIGPIPE; a line that cannot be written is lost.
void WriteLine(Level level, const char* tag, const char* format, std::va_list arguments) noexcept;

// The same with the arguments in place.
void WriteLine(Level level, const char* tag, const char* format, ...) noexcept __attribute__((format(printf, 3, 4)));

}  // namespace hostlog

#endif  // KESD_HOST_LOG_LINE_H_
