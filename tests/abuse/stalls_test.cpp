// Clients that are stopped while they have something to take from the daemon.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <iostream>
#include <vector>

#include "tests/abuse/abusive_client.h"
#include "tests/abuse/watched_daemon.h"

namespace abuse {
namespace {

using testing_process::Process;
using testing_process::Scan;

// Results of a size that no socket holds.
constexpr char kLargeResults[] = "scene:aps=1000,delay=0";

TEST(Stalls, StoppedClientsAreCutOffAndNobodyElseNoticesThem) {
  WatchedDaemon daemon(kLargeResults);
  auto client = daemon.Connect();
  ASSERT_TRUE(client);
  for (Process& killed : daemon.Stall(3)) {
    killed.Signal(SIGKILL);
    EXPECT_EQ(killed.Finish().exitCode, 1000 + SIGKILL);
  }
  int cutOff = 0;
  for (const int count : {0, 1, kHampered ? 20 : 100}) {
    SCOPED_TRACE(count);
    const auto start = fenk::Clock::now();
    std::vector<Process> stalled = daemon.Stall(count);
    std::vector<std::chrono::nanoseconds> latencies;
    for (int i = 0; i < (kHampered ? 3 : 51); ++i) {
      const auto begun = fenk::Clock::now();
      const auto result = Scan(*client, {});
      latencies.push_back(fenk::Clock::now() - begun);
      ASSERT_TRUE(result);
      EXPECT_EQ(result->measurements.size(), 1000u);
    }
    if (!kEmulated || fenk::Clock::now() - start < std::chrono::seconds(5)) {  // else one was cut off in any case
      EXPECT_EQ(daemon.said.Get().cutOff, cutOff) << "the client had to wait for the end of a stalled one";
    }
    std::nth_element(latencies.begin(), latencies.begin() + latencies.size() / 2, latencies.end());
    std::cout << "median beside " << count << " stalled clients: "
              << std::chrono::duration<double, std::milli>(latencies[latencies.size() / 2]).count() << " ms\n";
    cutOff += count;
    EXPECT_TRUE(daemon.said.Await([&](const auto& now) { return now.cutOff >= cutOff; }));
    for (Process& one : stalled) {
      one.Signal(SIGCONT);
      EXPECT_EQ(one.Finish().exitCode, 0) << "finds its connection ended";
    }
  }
  client = kes::Error{};
  EXPECT_TRUE(daemon.BecomesIdle());
  daemon.ExpectEnds();
}

}  // namespace
}  // namespace abuse
