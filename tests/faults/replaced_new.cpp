// The operators for the whole process, the standard library and other shared libraries included: each may be told to
// fail, and what lives is counted. Address sanitizer still sees the blocks, as malloc's.
#include <atomic>
#include <cstdlib>
#include <new>

#include "tests/failing_memory.h"
#include "tests/faults/fault_sweep.h"

namespace {

std::atomic<long> live = 0;

void* Obtain(std::size_t size) noexcept {
  if (scripted::ThisAllocationFails()) return nullptr;
  void* const block = std::malloc(size == 0 ? 1 : size);
  if (block != nullptr) ++live;
  return block;
}

void* OrThrow(void* block) { return block != nullptr ? block : throw std::bad_alloc(); }

void GiveBack(void* block) noexcept {
  if (block != nullptr) --live;
  std::free(block);
}

}  // namespace

long faults::LiveBlocks() { return live; }

void* operator new(std::size_t size) { return OrThrow(Obtain(size)); }
void* operator new[](std::size_t size) { return OrThrow(Obtain(size)); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return Obtain(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return Obtain(size); }
void operator delete(void* block) noexcept { GiveBack(block); }
void operator delete[](void* block) noexcept { GiveBack(block); }
void operator delete(void* block, std::size_t) noexcept { GiveBack(block); }
void operator delete[](void* block, std::size_t) noexcept { GiveBack(block); }
void operator delete(void* block, const std::nothrow_t&) noexcept { GiveBack(block); }
void operator delete[](void* block, const std::nothrow_t&) noexcept { GiveBack(block); }
