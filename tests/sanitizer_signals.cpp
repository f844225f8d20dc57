// Linked into a program that handles signals, where the thread sanitizer is used. Its runtime makes its record of a
// thread's signals in the thread's first blocking call, and loses a signal that comes right then: so that call is made
// before a handler is there.
#include <poll.h>

namespace {
[[gnu::constructor]] void BlockOnce() { (void)poll(nullptr, 0, 0); }
}  // namespace
