#include "host/launcher/socket_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

namespace launcher {
namespace {

using fenk::UniqueFd;

constexpr char kDefaultDirectory[] = "/run/kesd";

// Says what failed and why, as errno has it.
void Complain(const char* what, const std::string& path) {
  fprintf(stderr, "kesd-launch: %s %s: %s\n", what, path.c_str(), strerror(errno));
}

std::optional<sockaddr_un> AddressOf(const std::string& path) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  if (path.empty() || path.size() >= sizeof address.sun_path) {
    fprintf(stderr, "kesd-launch: a socket's path has 1 to %zu bytes, this one has %zu: %s\n",
            sizeof address.sun_path - 1, path.size(), path.c_str());
    return std::nullopt;
  }
  path.copy(address.sun_path, path.size());
  return address;
}

const sockaddr* Generic(const sockaddr_un& address) { return reinterpret_cast<const sockaddr*>(&address); }

// Waits for the others, none of which holds the lock for longer than it takes to make a socket.
UniqueFd Lock(const std::string& path) {
  const std::string lockPath = path + ".lock";
  UniqueFd lock(open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
  if (!lock.IsOpen()) {
    Complain("cannot open", lockPath);
    return {};
  }
  while (flock(lock.Get(), LOCK_EX) != 0) {
    if (errno == EINTR) continue;
    Complain("cannot lock", lockPath);
    return {};
  }
  return lock;
}

// Leaves nothing at the path, or says why something must stay.
bool ClearPath(const std::string& path, const sockaddr_un& address) {
  struct stat status = {};
  if (lstat(path.c_str(), &status) != 0) {
    if (errno == ENOENT) return true;
    Complain("cannot look at", path);
    return false;
  }
  if (!S_ISSOCK(status.st_mode)) {
    fprintf(stderr, "kesd-launch: %s exists and is no socket: it is left as it is\n", path.c_str());
    return false;
  }
  // Without blocking: a server whose queue is full answers EAGAIN, and is a server.
  const UniqueFd probe(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!probe.IsOpen()) {
    Complain("cannot probe", path);
    return false;
  }
  if (connect(probe.Get(), Generic(address), sizeof address) == 0 || errno == EAGAIN) {
    fprintf(stderr, "kesd-launch: %s is being served by another process\n", path.c_str());
    return false;
  }
  if (errno != ECONNREFUSED) {
    Complain("cannot tell whether anybody serves", path);
    return false;
  }
  if (unlink(path.c_str()) != 0) {
    Complain("cannot remove the stale socket", path);
    return false;
  }
  return true;
}

// The file is its owner's alone until the group is right.
bool BindWithRights(int fd, const sockaddr_un& address, const Options& options) {
  const std::string& path = options.socketPath;
  const mode_t before = umask(static_cast<mode_t>(~(options.mode & 0700) & 0777));
  const int bound = bind(fd, Generic(address), sizeof address);
  const int bindErrno = errno;
  umask(before);
  if (bound != 0) {
    errno = bindErrno;
    Complain("cannot make the socket", path);
    return false;
  }
  // At once, so that who finds the file finds it served; its rights come from here on.
  if (listen(fd, SOMAXCONN) != 0) {
    Complain("cannot listen on", path);
  } else if (options.group && lchown(path.c_str(), static_cast<uid_t>(-1), *options.group) != 0) {
    Complain("cannot set the group of", path);
  } else if (chmod(path.c_str(), options.mode) != 0) {
    Complain("cannot set the mode of", path);
  } else {
    return true;
  }
  unlink(path.c_str());
  return false;
}

}  // namespace

SocketFile::SocketFile(std::string filePath, UniqueFd heldLock, UniqueFd listeningSocket)
    : path(std::move(filePath)), lock(std::move(heldLock)), socket(std::move(listeningSocket)) {}

std::optional<SocketFile> SocketFile::Make(const Options& options) {
  const std::string& path = options.socketPath;
  const std::optional<sockaddr_un> address = AddressOf(path);
  if (!address) return std::nullopt;
  if (path == kDefaultSocketPath && mkdir(kDefaultDirectory, 0755) != 0 && errno != EEXIST) {
    Complain("cannot make", kDefaultDirectory);
    return std::nullopt;
  }
  UniqueFd lock = Lock(path);
  if (!lock.IsOpen() || !ClearPath(path, *address)) return std::nullopt;
  UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!socket.IsOpen()) {
    Complain("cannot make a socket for", path);
    return std::nullopt;
  }
  if (!BindWithRights(socket.Get(), *address, options)) return std::nullopt;
  return SocketFile(path, std::move(lock), std::move(socket));
}

void SocketFile::Remove() const { unlink(path.c_str()); }

}  // namespace launcher
