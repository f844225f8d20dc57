#include "host/vexo_client/scheduler.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <latch>
#include <memory>
#include <semaphore>

#include "host/vexo_client/test_support.h"

namespace vexo_host {
namespace {

using std::chrono::hours;
using std::chrono::milliseconds;
using Clock = Scheduler::Clock;

// What tasks refer to is declared before the scheduler, whose end waits for them.
TEST(Scheduler, GoesOnWhileTasksBlockAndEndsTheSurplusThreads) {
  constexpr int kBlocked = 40;
  std::latch allBlocked(kBlocked), release(1);
  std::binary_semaphore ran(0);
  Scheduler scheduler({.threads = 64, .idleTime = milliseconds(20)});
  ASSERT_TRUE(scheduler.Start());
  for (int i = 0; i < kBlocked; ++i) {
    ASSERT_TRUE(scheduler.At(Clock::now(), [&] {
      allBlocked.count_down();
      release.wait();
    }));
  }
  allBlocked.wait();
  ASSERT_TRUE(scheduler.At(Clock::now(), [&] { ran.release(); }));
  EXPECT_TRUE(ran.try_acquire_for(kPatienceOfTests));
  EXPECT_GT(scheduler.ThreadCount(), static_cast<uint32_t>(kBlocked));

  release.count_down();
  const auto deadline = Clock::now() + kPatienceOfTests;
  while (scheduler.ThreadCount() > 2 && Clock::now() < deadline) std::this_thread::yield();
  EXPECT_LE(scheduler.ThreadCount(), 2u);
  ASSERT_TRUE(scheduler.At(Clock::now(), [&] { ran.release(); }));
  EXPECT_TRUE(ran.try_acquire_for(kPatienceOfTests));
}

TEST(Scheduler, MakesNoMoreThreadsThanAdmitted) {
  std::counting_semaphore<8> began(0), proceed(0);
  Scheduler scheduler({.threads = 3});
  ASSERT_TRUE(scheduler.Start());
  for (int i = 0; i < 8; ++i) {
    ASSERT_TRUE(scheduler.At(Clock::now(), [&] {
      began.release();
      proceed.acquire();
    }));
  }
  for (int i = 0; i < 3; ++i) ASSERT_TRUE(began.try_acquire_for(kPatienceOfTests));
  EXPECT_EQ(scheduler.ThreadCount(), 3u);
  EXPECT_EQ(scheduler.TaskCount(), 5u);
  proceed.release(8);
  for (int i = 3; i < 8; ++i) ASSERT_TRUE(began.try_acquire_for(kPatienceOfTests));
}

TEST(Scheduler, ForgetsCancelledTasksAndWhatTheyOwn) {
  Scheduler scheduler;
  ASSERT_TRUE(scheduler.Start());
  const auto owned = std::make_shared<int>(1);
  const auto id = scheduler.At(Clock::now() + hours(1), [owned] {});
  ASSERT_TRUE(id.has_value());
  EXPECT_EQ(owned.use_count(), 2);
  scheduler.Cancel(*id);
  EXPECT_EQ(owned.use_count(), 1);
  scheduler.Cancel(*id);
}

TEST(Scheduler, StopsAfterTheTasksInProgress) {
  Scheduler scheduler;
  ASSERT_TRUE(scheduler.Start());
  std::latch began(1);
  std::atomic<bool> ended = false, later = false;
  const auto owned = std::make_shared<int>(1);
  ASSERT_TRUE(scheduler.At(Clock::now() + hours(1), [&, owned] { later = true; }));
  ASSERT_TRUE(scheduler.At(Clock::now(), [&] {
    began.count_down();
    // Tasks are refused from the moment in which the stop begins.
    while (const auto id = scheduler.At(Clock::now() + hours(1), [] {})) scheduler.Cancel(*id);
    ended = true;
  }));
  began.wait();
  scheduler.Stop();
  EXPECT_TRUE(ended);
  EXPECT_FALSE(later);
  EXPECT_EQ(owned.use_count(), 1);
  EXPECT_FALSE(scheduler.At(Clock::now(), [] {}));
}

}  // namespace
}  // namespace vexo_host
