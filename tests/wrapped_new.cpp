// The linker sends the program's own calls of operator new here (--wrap) and those of __real_ to the real ones, whoever
// they belong to. Thread sanitizer's cannot be replaced.
#include <cstddef>
#include <new>

#include "tests/failing_memory.h"

using scripted::ThisAllocationFails;

// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
extern "C" {

void* __real__Znwm(std::size_t size);
void* __real__Znam(std::size_t size);
void* __real__ZnwmRKSt9nothrow_t(std::size_t size, const std::nothrow_t& tag);
void* __real__ZnamRKSt9nothrow_t(std::size_t size, const std::nothrow_t& tag);

void* __wrap__Znwm(std::size_t size) { return ThisAllocationFails() ? throw std::bad_alloc() : __real__Znwm(size); }
void* __wrap__Znam(std::size_t size) { return ThisAllocationFails() ? throw std::bad_alloc() : __real__Znam(size); }
void* __wrap__ZnwmRKSt9nothrow_t(std::size_t size, const std::nothrow_t& tag) {
  return ThisAllocationFails() ? nullptr : __real__ZnwmRKSt9nothrow_t(size, tag);
}
void* __wrap__ZnamRKSt9nothrow_t(std::size_t size, const std::nothrow_t& tag) {
  return ThisAllocationFails() ? nullptr : __real__ZnamRKSt9nothrow_t(size, tag);
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
