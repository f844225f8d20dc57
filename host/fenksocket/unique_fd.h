// A descriptor with one owner.
#ifndef KESD_HOST_FENKSOCKET_UNIQUE_FD_H_
#define KESD_HOST_FENKSOCKET_UNIQUE_FD_H_

#include <unistd.h>

#include <utility>

namespace fenk {

class UniqueFd {  // closes what it holds; -1 holds nothing
 public:
  UniqueFd() = default;
  explicit UniqueFd(int descriptor) : fd(descriptor) {}
  UniqueFd(UniqueFd&& other) noexcept : fd(other.Release()) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept {
    if (this != &other) Reset(other.Release());
    return *this;
  }
  ~UniqueFd() { Reset(-1); }

  int Get() const { return fd; }
  bool IsOpen() const { return fd >= 0; }
  int Release() { return std::exchange(fd, -1); }
  void Reset(int other) {
    const int old = std::exchange(fd, other);
    if (old >= 0) close(old);
  }

 private:
  int fd = -1;
};

}  // namespace fenk

#endif  // KESD_HOST_FENKSOCKET_UNIQUE_FD_H_
