// Where a daemon that cannot be reached might be, and how it is started here.
#ifndef KESD_CLIENT_DAEMON_SEARCH_H_
#define KESD_CLIENT_DAEMON_SEARCH_H_

#include <sys/types.h>

#include <string>

namespace kesctl {

// "process 4711 (kesd)".
std::string ProcessWords(pid_t process);

// What to do when nobody serves the socket at `path`. Looks around and runs nothing.
std::string HowToStart(const std::string& path);

}  // namespace kesctl

#endif  // KESD_CLIENT_DAEMON_SEARCH_H_
