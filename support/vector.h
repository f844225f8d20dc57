// The one container of the system, on both sides of the library boundary: the location client library's
// classes embed this template, so its layout and its virtual destructor are part of that library's ABI.
#ifndef KESD_SUPPORT_VECTOR_H_
#define KESD_SUPPORT_VECTOR_H_

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <new>

#include "platform/log.h"

namespace zv_loc_fw {

// A growable array that owns its block of slots. Every slot of the block, used or not, is a constructed T;
// elements enter and move by copy assignment. Nothing removes elements or gives memory back before the array
// ends. It never throws: failures are logged under the tag "vector". One thread at a time may use an array.
template <typename T>
class vector {
 public:
  vector() = default;
  vector(const vector&) = delete;
  virtual ~vector() { Clear(); }

  // Appends a copy of `element`, which must not be one of this array's own.
  // Returns 0, -1 when the first block could not be obtained or -2 when a larger one could not; then nothing
  // was appended.
  int32_t push_back(const T& element) {
    if (data == nullptr) {
      capacity = kFirstCapacity;
      data = new (std::nothrow) T[capacity];
      if (data == nullptr) return InsertionFailed(-1);
    } else if (count >= capacity && !Grow()) {
      return InsertionFailed(-2);
    }
    data[count] = element;
    ++count;
    return 0;
  }

  // Does what a push_back of each element of each run does, one run after the other; so an element that finds no memory
  // is missing, and the next one tries again. A run is contiguous, has a data() and a size(), and is not of this array.
  template <typename... Runs>
  void append(const Runs&... runs) {
    const std::size_t length = (runs.size() + ...);
    if (length > FreeSlots()) return (AppendAndGrow(runs.data(), runs.size()), ...);
    T* to = data + count;
    ((to = std::copy_n(runs.data(), runs.size(), to)), ...);
    count += static_cast<uint32_t>(length);
  }

  // Replaces the contents with a copy of `other`'s, capacity included; empty when no block could be obtained.
  vector& operator=(const vector& other) {
    if (this == &other) return *this;
    Clear();
    if (other.capacity == 0) return *this;
    T* block = new (std::nothrow) T[other.capacity];
    if (block == nullptr) {
      log_error("vector", "assignment failed %d", 2);
      return *this;
    }
    for (uint32_t i = 0; i < other.count; ++i) block[i] = other.data[i];
    capacity = other.capacity;
    count = other.count;
    data = block;
    return *this;
  }

  // The element at `index`. An index out of range is logged and yields element 0, or, where there is none, a
  // default-constructed element that belongs to the calling thread and lives until its next such call.
  T& operator[](uint32_t index) { return At(*this, index); }
  const T& operator[](uint32_t index) const { return At(*this, index); }

  // To be read by everybody; written only by the array, and by a library that builds one in place.
  T* data = nullptr;
  uint32_t capacity = 0;  // slots in the block
  uint32_t count = 0;     // slots in use, from slot 0 on

 private:
  static constexpr uint32_t kFirstCapacity = 64;

  uint32_t FreeSlots() const { return data == nullptr ? 0 : capacity - count; }

  // Seldom needed, and kept out of the way of what is: arrays double.
  [[gnu::noinline]] void AppendAndGrow(const T* run, std::size_t length) {
    for (std::size_t i = 0; i < length; ++i) {
      const std::size_t fitting = std::min<std::size_t>(FreeSlots(), length - i);
      std::copy_n(run + i, fitting, data + count);
      count += static_cast<uint32_t>(fitting);
      i += fitting;
      if (i < length) push_back(run[i]);
    }
  }

  void Clear() {
    delete[] data;
    data = nullptr;
    capacity = 0;
    count = 0;
  }

  bool Grow() {
    if (capacity > std::numeric_limits<uint32_t>::max() / 2) return false;
    T* larger = new (std::nothrow) T[std::size_t{capacity} * 2];
    if (larger == nullptr) return false;
    std::copy_n(data, capacity, larger);
    capacity *= 2;
    delete[] data;
    data = larger;
    return true;
  }

  static int32_t InsertionFailed(int32_t code) {
    log_error("vector", "insertion failed %d", code);
    return code;
  }

  template <typename Array>
  static auto& At(Array& array, uint32_t index) {
    if (index < array.count && array.data != nullptr) return array.data[index];
    log_error("vector", "index out of range\n");
    if (array.count != 0 && array.data != nullptr) return array.data[0];
    static thread_local T fallback;
    fallback = T();
    return fallback;
  }
};

// The vtable pointer, then the three members, in every instance alike.
static_assert(sizeof(vector<signed char>) == 24 && alignof(vector<signed char>) == 8);

}  // namespace zv_loc_fw

#endif  // KESD_SUPPORT_VECTOR_H_
