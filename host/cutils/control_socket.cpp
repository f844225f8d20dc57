// The descriptor's number comes in the variable ANDROID_SOCKET_<name>, with every character of the name that is no
// ASCII letter or digit as an underscore.
#include "platform/control_socket.h"

#include <fcntl.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace {

constexpr std::string_view kPrefix = "ANDROID_SOCKET_";

bool IsAlphanumeric(char c) {  // in the C locale, whatever locale is set
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

// The whole of `text` as a descriptor's number; -1 when it is anything else.
int ParseDescriptor(std::string_view text) {
  if (text.empty() || text.front() < '0' || text.front() > '9') return -1;
  int number = -1;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size() ? number : -1;
}

bool HasOption(int fd, int option, int expected) {
  int value = 0;
  socklen_t size = sizeof value;
  return getsockopt(fd, SOL_SOCKET, option, &value, &size) == 0 && value == expected;
}

}  // namespace

extern "C" int android_get_control_socket(const char* name) {
  std::array<char, 128> variable;
  if (name == nullptr || *name == '\0' || kPrefix.size() + strlen(name) >= variable.size()) return -1;
  char* end = std::copy(kPrefix.begin(), kPrefix.end(), variable.begin());
  for (; *name != '\0'; ++name) *end++ = IsAlphanumeric(*name) ? *name : '_';
  *end = '\0';

  const char* const value = getenv(variable.data());  // NOLINT(concurrency-mt-unsafe): nobody here changes it
  const int fd = value == nullptr ? -1 : ParseDescriptor(value);
  if (fd < 0 || !HasOption(fd, SO_DOMAIN, AF_UNIX) || !HasOption(fd, SO_TYPE, SOCK_STREAM)) return -1;
  // It was inheritable so that it could be handed over; no process that this one starts has a use for it.
  if (fcntl(fd, F_SETFD, FD_CLOEXEC) != 0) return -1;
  return fd;
}
