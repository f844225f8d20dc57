// The address of a Unix socket.
#ifndef KESD_BENCH_UNIX_ADDRESS_H_
#define KESD_BENCH_UNIX_ADDRESS_H_

#include <sys/socket.h>
#include <sys/un.h>

#include <cstring>
#include <stdexcept>
#include <string>

namespace bench {

// Throws std::runtime_error when `path` is too long for one.
inline sockaddr_un AddressOf(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof(address.sun_path)) throw std::runtime_error("the socket's path is too long");
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  return address;
}

}  // namespace bench

#endif  // KESD_BENCH_UNIX_ADDRESS_H_
