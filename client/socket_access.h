// Who may reach a Unix socket, as its path's permissions say.
#ifndef KESD_CLIENT_SOCKET_ACCESS_H_
#define KESD_CLIENT_SOCKET_ACCESS_H_

#include <sys/stat.h>

#include <optional>
#include <string>

namespace kesctl {

std::string UserName(uid_t user);    // or the number, when it has none
std::string GroupName(gid_t group);  // the same

// "root:kesd 0660".
std::string Ownership(const struct stat& status);

// "bob (groups bob, users)": who this process is.
std::string Whoami();

// The first thing on the way to a socket that keeps this process from connecting.
struct Barrier {
  std::string path;
  struct stat status;
  bool IsFolder() const { return S_ISDIR(status.st_mode); }
};
std::optional<Barrier> FindBarrier(const std::string& path);

// How this process's user gets past it: a sentence.
std::string WayPast(const Barrier& barrier);

}  // namespace kesctl

#endif  // KESD_CLIENT_SOCKET_ACCESS_H_
