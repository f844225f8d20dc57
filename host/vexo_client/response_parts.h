// What the library's responses are put together with.
#ifndef KESD_HOST_VEXO_CLIENT_RESPONSE_PARTS_H_
#define KESD_HOST_VEXO_CLIENT_RESPONSE_PARTS_H_

#include <cstddef>
#include <cstdint>

#include "support/vector.h"

namespace vexo_host {

// Lets `list`, which is empty, read an array that stays its owner's, so that all lists of a response lie in a few
// blocks. Whoever gets the response only reads it. Undone by Return before the list ends.
template <typename T>
void Lend(const T* items, size_t count, zv_loc_fw::vector<T>& list) {
  if (count == 0) return;
  list.data = const_cast<T*>(items);
  list.capacity = list.count = static_cast<uint32_t>(count);
}

template <typename T>
void Return(zv_loc_fw::vector<T>& list) {
  list.data = nullptr;
  list.capacity = list.count = 0;
}

}  // namespace vexo_host

#endif  // KESD_HOST_VEXO_CLIENT_RESPONSE_PARTS_H_
