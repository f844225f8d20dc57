#include "host/vexo_client/heap_use.h"

#include <malloc.h>

#include <new>

namespace vexo_host {
namespace {

constexpr std::chrono::seconds kKept{1};

// The most that the allocator admits: larger blocks are mapped on their own in any case.
constexpr int kLargestBlock = 32 << 20;

// When the library is loaded, before any other thread has an arena: only the end of the first can be given back. The
// arena's lock is little used, since each thread keeps small blocks of its own.
[[gnu::constructor]] void KeepHeap() {
  mallopt(M_ARENA_MAX, 1);
  mallopt(M_MMAP_THRESHOLD, kLargestBlock);
  mallopt(M_TRIM_THRESHOLD, 2 * kLargestBlock);
}

}  // namespace

void HeapUse::ResponseEnded() noexcept {
  const TimePoint now = Scheduler::Clock::now();
  lastUse.store(now, std::memory_order_relaxed);
  if (!checking.load(std::memory_order_relaxed) && !checking.exchange(true)) CheckAt(now + kKept);
}

void HeapUse::GiveBackUnlessUsed() noexcept {
  const TimePoint due = lastUse.load(std::memory_order_relaxed) + kKept;
  if (due > Scheduler::Clock::now()) return CheckAt(due);
  checking = false;  // before: what is used from now on has a check of its own
  malloc_trim(0);
}

// Without memory for a check the next response tries again.
void HeapUse::CheckAt(TimePoint when) noexcept {
  if (!scheduler.At(when, [this] { GiveBackUnlessUsed(); })) checking = false;
}

}  // namespace vexo_host
