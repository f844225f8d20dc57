// The way to a listening Unix stream socket.
#ifndef KESD_CLIENT_SOCKET_CONNECT_H_
#define KESD_CLIENT_SOCKET_CONNECT_H_

#include <chrono>
#include <string>

#include "client/result.h"
#include "host/fenksocket/unique_fd.h"

namespace kes {

// Waits at most `patience` where the listener's queue is full. Errors are those of Client::Connect. May throw
// std::bad_alloc.
Result<fenk::UniqueFd> ConnectToSocket(const std::string& path, std::chrono::milliseconds patience);

}  // namespace kes

#endif  // KESD_CLIENT_SOCKET_CONNECT_H_
