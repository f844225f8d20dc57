#include "tests/failing_memory.h"

#include <atomic>
#include <utility>

namespace scripted {
namespace {

thread_local bool isExempt = false;
thread_local bool memoryFails = false;
thread_local int allocations = 0;
thread_local int allocationsLeft = 0;
thread_local int failuresLeft = 0;

std::atomic<bool> processMemoryFails = false;
std::atomic<int> processAllocations = 0;
std::atomic<int> processFailures = 0;
int processSkip = 0;
int processMostFailures = 0;
void (*processReached)() = nullptr;

bool ThisOneOfTheProcessFails() {
  const int before = processAllocations.fetch_add(1);
  if (before < processSkip) return false;
  if (before == processSkip && processReached != nullptr) processReached();
  if (before - processSkip >= processMostFailures) return false;
  ++processFailures;
  return true;
}

}  // namespace

bool ThisAllocationFails() {
  if (isExempt) return false;
  if (processMemoryFails.load(std::memory_order_acquire)) return ThisOneOfTheProcessFails();
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

FailingMemory::FailingMemory(int skip, int failures) {
  allocations = 0;
  allocationsLeft = skip;
  failuresLeft = failures;
  memoryFails = true;
}
FailingMemory::~FailingMemory() { memoryFails = false; }
int FailingMemory::Allocations() const { return allocations; }

FailingMemory::Exempt::Exempt() : before(std::exchange(isExempt, true)) {}
FailingMemory::Exempt::~Exempt() { isExempt = before; }

FailingProcessMemory::FailingProcessMemory(int skip, int failures, void (*reached)()) {
  processSkip = skip;
  processMostFailures = failures;
  processReached = reached;
  processMemoryFails.store(true, std::memory_order_release);
}
FailingProcessMemory::~FailingProcessMemory() { processMemoryFails = false; }
int FailingProcessMemory::Allocations() { return processAllocations; }
int FailingProcessMemory::Failures() { return processFailures; }

}  // namespace scripted
