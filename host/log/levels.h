// Which messages are admitted: a level per tag, set by the process, and raised by the environment.
#ifndef KESD_HOST_LOG_LEVELS_H_
#define KESD_HOST_LOG_LEVELS_H_

#include "host/log/line.h"

namespace hostlog {

// Whether a message of `level` under `tag` is written: when `level` is at most the greater of what the process set
// for the tag (warnings, when it set nothing) and what KES_LOG asks for. Takes no lock; any thread, at any time.
[[nodiscard]] bool IsAdmitted(const char* tag, Level level) noexcept;

// Sets the process's level for `tag`: 0 admits nothing, 1 errors, 2 also warnings, 3 also information, 4 everything.
// A value outside is taken as the nearest of these. Any thread, at any time.
void SetLocalLevel(const char* tag, int level) noexcept;

}  // namespace hostlog

#endif  // KESD_HOST_LOG_LEVELS_H_
