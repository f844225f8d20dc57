// How libkes reports failure: a value or an Error, never an exception.
#ifndef KESD_CLIENT_RESULT_H_
#define KESD_CLIENT_RESULT_H_

#include <string>
#include <utility>
#include <variant>

namespace kes {

enum class ErrorKind {
  kNoSocket,         // nothing at the path
  kNotASocket,       // something else lies at the path
  kRefused,          // a socket that nobody listens on, or that takes no more connections
  kNoPermission,     // the user may not connect
  kProtocol,         // the peer is not this daemon, or not of this version
  kDisconnected,     // the connection ended while it was used
  kTimedOut,         // no answer before the deadline
  kWoken,            // the wake descriptor became readable, or a signal came while connecting
  kRejected,         // the daemon refused the request
  kLimit,            // a limit of the connection was reached
  kInvalidArgument,  // the caller's own value cannot be sent
  kOutOfMemory,
  kSystem,  // any other failure of the operating system
};

struct Error {
  ErrorKind kind;
  std::string message;  // one line for people, without a full stop; what failed and why
};

// Either a value or the error that stands in its place.
template <typename T>
class [[nodiscard]] Result {
 public:
  // Implicit, so that a function returns either by name.
  Result(T value) : state(std::in_place_index<0>, std::move(value)) {}      // NOLINT(google-explicit-constructor)
  Result(Error error) : state(std::in_place_index<1>, std::move(error)) {}  // NOLINT(google-explicit-constructor)

  explicit operator bool() const { return state.index() == 0; }

  // Only when there is a value.
  T& operator*() { return *std::get_if<0>(&state); }
  const T& operator*() const { return *std::get_if<0>(&state); }
  T* operator->() { return std::get_if<0>(&state); }
  const T* operator->() const { return std::get_if<0>(&state); }

  // Only when there is none.
  const Error& GetError() const { return *std::get_if<1>(&state); }

 private:
  std::variant<T, Error> state;
};

// Short enough to need no memory.
inline Error OutOfMemory() { return {ErrorKind::kOutOfMemory, "out of memory"}; }

}  // namespace kes

#endif  // KESD_CLIENT_RESULT_H_
