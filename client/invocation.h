// What every invocation of the daemon's objects needs.
#ifndef KESD_CLIENT_INVOCATION_H_
#define KESD_CLIENT_INVOCATION_H_

#include <cstddef>
#include <cstdint>
#include <vector>

#include "client/result.h"
#include "host/fenksocket/connection.h"
#include "ipc/object.h"

namespace kes {

// Lends `size` bytes to an invocation.
ObjectArg InputBuffer(const void* first, std::size_t size);

template <typename Record>
ObjectArg InputBuffer(const std::vector<Record>& records) {
  return InputBuffer(records.data(), records.size() * sizeof(Record));
}

// Why `connection`, which ended, did so.
Error Disconnected(const fenk::Connection& connection);

// What an invocation of a daemon's object came to, when it did not answer OBJECT_OK.
Error InvocationError(int32_t code, const fenk::Connection& connection);

}  // namespace kes

#endif  // KESD_CLIENT_INVOCATION_H_
