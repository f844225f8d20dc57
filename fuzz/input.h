// What the fuzz targets share.
#ifndef KESD_FUZZ_INPUT_H_
#define KESD_FUZZ_INPUT_H_

#include <algorithm>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace fuzz {

// Takes values out of an input, front to back. When it is used up, everything is 0 and empty.
class Input {
 public:
  Input(const uint8_t* data, std::size_t size) : next(data), left(size) {}

  template <std::integral T>
  T Take() {
    T value = 0;
    const std::size_t size = std::min(left, sizeof(T));
    if (size != 0) std::memcpy(&value, Skip(size), size);
    return value;
  }
  // Below `end`, at most 256.
  unsigned Below(unsigned end) { return Take<uint8_t>() % end; }
  // At most `size` octets.
  std::vector<uint8_t> Bytes(std::size_t size) {
    size = std::min(size, left);
    const uint8_t* first = Skip(size);
    return {first, first + size};
  }
  std::vector<uint8_t> Rest() { return Bytes(left); }
  bool AtEnd() const { return left == 0; }

 private:
  const uint8_t* Skip(std::size_t size) {
    left -= size;
    return (next += size) - size;
  }
  const uint8_t* next;
  std::size_t left;
};

// Ends the process, which is a finding, unless `holds`.
inline void Require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "Not so: %s\n", what);
  std::abort();
}

}  // namespace fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size);

#endif  // KESD_FUZZ_INPUT_H_
