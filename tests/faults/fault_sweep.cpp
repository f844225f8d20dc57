#include "tests/faults/fault_sweep.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>

#include "tests/failing_memory.h"

namespace faults {
namespace {

using scripted::FailingProcessMemory;

constexpr unsigned kLongestRunS = 60;
constexpr int kNoClientStatus = 255;

#ifdef KESD_EMULATOR
constexpr int kStep = 3;  // a sample is enough where each run takes half a second
#else
constexpr int kStep = 1;
#endif

// What a run tells the sweep; both have it mapped.
struct Told {
  std::atomic<int> allocations;
  std::atomic<int> failures;
};
Told* told = nullptr;

std::optional<FailingProcessMemory> failing;
long blocksBefore = 0;
long descriptorsBefore = 0;

long OpenDescriptors() {
  const std::filesystem::directory_iterator all("/proc/self/fd");
  return std::distance(begin(all), end(all));
}

void CloseWindow() {
  if (!failing) return;
  failing.reset();
  told->allocations = FailingProcessMemory::Allocations();
  told->failures = FailingProcessMemory::Failures();
}

// The last of the exit handlers that run, behind those of everything that the road made.
void AtTheEnd(int status, void*) {
  CloseWindow();
  if (status != 0) return;
  const long blocks = LiveBlocks() - blocksBefore;
  if (blocks != 0) {
    std::fprintf(stderr, "%ld blocks of memory were not given back\n", blocks);
    _exit(1);
  }
  if (OpenDescriptors() != descriptorsBefore) Require(false, "every descriptor is given back");
}

[[noreturn]] void RunHere(const Sweep& sweep, const Fault& fault, int errors) {
  dup2(errors, STDERR_FILENO);
  alarm(kLongestRunS);
  descriptorsBefore = OpenDescriptors();
  blocksBefore = LiveBlocks();
  on_exit(AtTheEnd, nullptr);
  try {
    sweep.road(fault);
  } catch (const std::exception&) {
    Require(false, "nothing is thrown");
  }
  std::exit(0);
}

std::string TextOf(int file) {
  std::string text(static_cast<std::size_t>(lseek(file, 0, SEEK_END)), '\0');
  const ssize_t length = pread(file, text.data(), text.size(), 0);
  return text.substr(0, static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
}

// False when it was not good.
bool RunOnce(const Sweep& sweep, const Fault& fault) {
  told->allocations = told->failures = 0;
  const int errors = memfd_create("stderr", MFD_CLOEXEC);
  std::fflush(nullptr);
  const pid_t run = fork();
  if (run == 0) RunHere(sweep, fault, errors);
  int status = -1;
  const bool ended = run > 0 && waitpid(run, &status, 0) == run;
  const bool good = ended && WIFEXITED(status) &&
                    (WEXITSTATUS(status) == 0 || (sweep.mayEndTheProcess && WEXITSTATUS(status) == kNoClientStatus));
  EXPECT_TRUE(good) << "wait status " << status << ", after " << fault.skip << " allocations "
                    << (fault.event != nullptr ? -1 : fault.failures) << " failed:\n"
                    << TextOf(errors);
  close(errors);
  return good;
}

}  // namespace

FaultWindow::FaultWindow(const Fault& fault) { failing.emplace(fault.skip, fault.failures, fault.event); }
FaultWindow::~FaultWindow() { CloseWindow(); }

void Require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "It does not hold that %s\n", what);
  _exit(1);
}

void Run(const char* name, const Sweep& sweep) {
  told = static_cast<Told*>(mmap(nullptr, sizeof(Told), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  ASSERT_NE(static_cast<void*>(told), MAP_FAILED);
  Fault one;
  const char* const asked = std::getenv("KESD_FAULT");  // "SKIP,FAILURES": this run only, here, for a debugger
  if (asked != nullptr && std::sscanf(asked, "%d,%d", &one.skip, &one.failures) == 2)
    RunHere(sweep, one, STDERR_FILENO);
  ASSERT_TRUE(RunOnce(sweep, {}));
  const int allocations = told->allocations;
  int runs = 1;
  long failures = 0;
  int bad = 0;
  const auto run = [&](const Fault& fault) {
    ++runs;
    if (!RunOnce(sweep, fault)) ++bad;
    failures += told->failures;
    return told->allocations > fault.skip && bad < 3;
  };
  for (const int length : {1, 2, 3, 4, scripted::kForEver}) {
    // Threads make the number of allocations differ a little from run to run.
    for (int skip = 0; run({skip, length, nullptr}); skip += kStep) {
    }
  }
  for (int skip = 0; sweep.event != nullptr && run({skip, 0, sweep.event}); skip += kStep) {
  }
  std::printf("%s: %d allocations, %ld failed, %d runs\n", name, allocations, failures, runs);
  munmap(told, sizeof(Told));
}

}  // namespace faults
