// A daemon that has no descriptors left.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <chrono>
#include <iostream>
#include <vector>

#include "tests/abuse/abusive_client.h"
#include "tests/abuse/watched_daemon.h"

namespace abuse {
namespace {

using fenk::test::RawPeer;
using testing_process::Scan;

TEST(Descriptors, WithNoneLeftClientsGoOnAndNewOnesWaitWhileTheDaemonRests) {
  WatchedDaemon daemon("scene:aps=3,delay=1000");
  auto client = daemon.Connect();
  ASSERT_TRUE(client);
  const rlimit old = daemon.TakeDescriptors();
  std::vector<RawPeer> waiting;
  for (int i = 0; i < 3; ++i) {
    waiting.emplace_back(daemon.ConnectRaw());
    EXPECT_TRUE(waiting.back().Send(fenk::test::Hello()));
  }
  ASSERT_TRUE(daemon.said.Await([](const auto& now) { return now.starved; }));
  // As long as a scan takes.
  const auto begun = fenk::Clock::now();
  const auto worked = daemon.ProcessorTime();
  EXPECT_TRUE(Scan(*client, {}));
  const auto work = daemon.ProcessorTime() - worked;
  EXPECT_LT(work * 4, fenk::Clock::now() - begun) << "it does not rest";
  waiting.pop_back();  // dies while it waits
  EXPECT_EQ(prlimit(daemon.Pid(), RLIMIT_NOFILE, &old, nullptr), 0);
  for (const RawPeer& peer : waiting) EXPECT_EQ(peer.Receive().type, 1);
  auto later = daemon.Connect();
  ASSERT_TRUE(later);
  EXPECT_TRUE(Scan(*later, {}));
  std::cout << "processor time without descriptors: " << work / std::chrono::microseconds(1) << " us a second\n";
  daemon.ExpectEnds();
}

}  // namespace
}  // namespace abuse
