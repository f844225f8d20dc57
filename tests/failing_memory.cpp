#include "tests/failing_memory.h"

#include <cstddef>
#include <new>
#include <utility>

namespace {

thread_local bool memoryFails = false;
thread_local int allocations = 0;
thread_local int allocationsLeft = 0;
thread_local int failuresLeft = 0;

bool ThisOneFails() {
  if (!memoryFails) return false;
  ++allocations;
  if (allocationsLeft > 0) {
    --allocationsLeft;
    return false;
  }
  if (failuresLeft == 0) return false;
  --failuresLeft;
  return true;
}

}  // namespace

// The linker sends the program's calls of operator new here (--wrap) and those of __real_ to the real ones. Replacing
// the operators themselves would collide with the sanitizers', which are also their own.
// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
extern "C" {

void* __real__Znwm(std::size_t size);
void* __real__Znam(std::size_t size);
void* __real__ZnwmRKSt9nothrow_t(std::size_t size, const std::nothrow_t& tag);
void* __real__ZnamRKSt9nothrow_t(std::size_t size, const std::nothrow_t& tag);

void* __wrap__Znwm(std::size_t size) { return ThisOneFails() ? throw std::bad_alloc() : __real__Znwm(size); }
void* __wrap__Znam(std::size_t size) { return ThisOneFails() ? throw std::bad_alloc() : __real__Znam(size); }
void* __wrap__ZnwmRKSt9nothrow_t(std::size_t size, const std::nothrow_t& tag) {
  return ThisOneFails() ? nullptr : __real__ZnwmRKSt9nothrow_t(size, tag);
}
void* __wrap__ZnamRKSt9nothrow_t(std::size_t size, const std::nothrow_t& tag) {
  return ThisOneFails() ? nullptr : __real__ZnamRKSt9nothrow_t(size, tag);
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)

namespace scripted {

FailingMemory::FailingMemory(int skip, int failures) {
  allocations = 0;
  allocationsLeft = skip;
  failuresLeft = failures;
  memoryFails = true;
}
FailingMemory::~FailingMemory() { memoryFails = false; }
int FailingMemory::Allocations() const { return allocations; }

FailingMemory::Exempt::Exempt() : failing(std::exchange(memoryFails, false)) {}
FailingMemory::Exempt::~Exempt() { memoryFails = failing; }

}  // namespace scripted
