// A client in bytes, which ends where it is told to.
#ifndef KESD_TESTS_ABUSE_ABUSIVE_CLIENT_H_
#define KESD_TESTS_ABUSE_ABUSIVE_CLIENT_H_

#include <cstddef>

#include "host/fenksocket/test_support.h"

namespace abuse {

// What it asks at first: HELLO, the service, and a scan, whose handle has the ID 2.
fenk::test::Bytes Request();

inline constexpr std::size_t kAll = ~std::size_t{0};

// Asks, takes the result, answers it, has its callback given back and gives the handle back; but sends no more than
// `sendMost` bytes, and reads no more than `readMost`. False when it came to an end before.
bool Converse(const fenk::test::RawPeer& peer, std::size_t sendMost, std::size_t readMost);

}  // namespace abuse

#endif  // KESD_TESTS_ABUSE_ABUSIVE_CLIENT_H_
