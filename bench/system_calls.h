// Counts the system calls of another process.
#ifndef KESD_BENCH_SYSTEM_CALLS_H_
#define KESD_BENCH_SYSTEM_CALLS_H_

#include <sys/types.h>

#include <cstdint>
#include <functional>

namespace bench {

struct SystemCalls {
  uint64_t futex;
  uint64_t others;
};

// Those of all threads of `process` while `body` runs, counted by strace. Throws std::runtime_error.
SystemCalls CountSystemCalls(pid_t process, const std::function<void()>& body);

}  // namespace bench

#endif  // KESD_BENCH_SYSTEM_CALLS_H_
