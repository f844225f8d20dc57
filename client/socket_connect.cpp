#include "client/socket_connect.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>

#include <cerrno>
#include <cstring>
#include <system_error>

namespace kes {
namespace {

Error SystemError(ErrorKind kind, int code) { return {kind, std::generic_category().message(code)}; }

Error WhyNotConnected(const std::string& path, int code) {
  switch (code) {
    case ENOENT:
    case ENOTDIR:
      return SystemError(ErrorKind::kNoSocket, code);
    case ECONNREFUSED: {
      struct stat status {};  // connect() says the same of a file that is no socket
      if (stat(path.c_str(), &status) == 0 && !S_ISSOCK(status.st_mode)) {
        return {ErrorKind::kNotASocket, "not a socket"};
      }
      return {ErrorKind::kRefused, "nobody listens on the socket"};
    }
    case EAGAIN:
      return {ErrorKind::kRefused, "its queue of connections is full"};
    case EACCES:
    case EPERM:
      return SystemError(ErrorKind::kNoPermission, code);
    case EPROTOTYPE:
      return {ErrorKind::kProtocol, "not a stream socket"};
    case EINTR:
      return {ErrorKind::kWoken, "interrupted"};
    default:
      return SystemError(ErrorKind::kSystem, code);
  }
}

// Bounds connect(), which waits while the listener's queue is full; zero takes the bound away.
bool SetSendTimeout(int fd, std::chrono::milliseconds timeout) {
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(timeout);
  timeval value{};
  value.tv_sec = static_cast<time_t>(seconds.count());
  value.tv_usec = static_cast<suseconds_t>(std::chrono::microseconds(timeout - seconds).count());
  return setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &value, sizeof value) == 0;
}

}  // namespace

Result<fenk::UniqueFd> ConnectToSocket(const std::string& path, std::chrono::milliseconds patience) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.empty() || path.size() >= sizeof address.sun_path || path.find('\0') != std::string::npos) {
    return Error{ErrorKind::kInvalidArgument,
                 "a socket path has 1 to " + std::to_string(sizeof address.sun_path - 1) + " bytes"};
  }
  std::memcpy(address.sun_path, path.data(), path.size());

  fenk::UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!socket.IsOpen() || !SetSendTimeout(socket.Get(), patience)) return SystemError(ErrorKind::kSystem, errno);
  if (connect(socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    return WhyNotConnected(path, errno);
  }
  if (!SetSendTimeout(socket.Get(), {})) return SystemError(ErrorKind::kSystem, errno);
  return Result<fenk::UniqueFd>(std::move(socket));
}

}  // namespace kes
