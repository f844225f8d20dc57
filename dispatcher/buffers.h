// The buffers of an invocation as arrays of records.
#ifndef KESD_DISPATCHER_BUFFERS_H_
#define KESD_DISPATCHER_BUFFERS_H_

#include <cstdint>
#include <cstring>
#include <type_traits>

#include "ipc/object.h"

// The whole records in an input buffer; the bytes after the last of them are nobody's.
template <typename Record>
uint64_t RecordCount(const ObjectArg& arg) {
  return arg.buffer.size / sizeof(Record);
}

// Record `index`, which must be below the count. The buffer may be unaligned.
template <typename Record>
Record RecordAt(const ObjectArg& arg, uint64_t index) {
  static_assert(std::is_trivially_copyable_v<Record>);
  Record record;
  std::memcpy(&record, static_cast<const uint8_t*>(arg.buffer.ptr) + index * sizeof(Record), sizeof(Record));
  return record;
}

// The elements of a growable array as an input buffer; null when there is none. Borrows the array.
template <typename Array>
ObjectArg ArrayBuffer(const Array& array) {
  if (array.count == 0) return {.buffer = {nullptr, 0}};
  return {.buffer = {array.data, uint64_t{array.count} * sizeof(*array.data)}};
}

#endif  // KESD_DISPATCHER_BUFFERS_H_
