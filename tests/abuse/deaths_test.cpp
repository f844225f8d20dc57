// Clients that die, and what is left of them.
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <atomic>
#include <csignal>
#include <iostream>
#include <thread>
#include <vector>

#include "tests/abuse/abusive_client.h"
#include "tests/abuse/watched_daemon.h"

namespace abuse {
namespace {

using fenk::test::RawPeer;
using testing_process::Scan;

// Each client dies at another of its own bytes or of the daemon's, and some in a process of their own.
void Storm(const WatchedDaemon& daemon, int clients) {
  constexpr std::size_t kMost = 701;  // beyond the last byte; odd, so that each number is tried both ways
  std::atomic<int> next = 0, whole = 0;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i; (i = next++) < clients;) {
        const std::size_t most = static_cast<std::size_t>(i) * 37 % kMost;
        if (i % 50 == 0) {
          daemon.Fork(kAll, most, SIGKILL).Finish();
          continue;
        }
        const RawPeer peer(daemon.ConnectRaw());
        ASSERT_GE(peer.Fd(), 0);
        whole += Converse(peer, i % 2 == 0 ? most : kAll, i % 2 == 0 ? kAll : most);
        if (i % 3 != 0) continue;  // as a process that dies leaves it, with what it has not read
        shutdown(peer.Fd(), SHUT_WR);
        EXPECT_TRUE(peer.AwaitEnd());
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_GT(whole, 0);
}

TEST(Deaths, NothingIsLeftOfAStormOfClients) {
  WatchedDaemon daemon("scene:aps=1,delay=2");
  Storm(daemon, kHampered ? 200 : 1'000);  // what the first clients make it keep, such as memory for threads, stays
  EXPECT_TRUE(daemon.BecomesIdle());
  // A storm that has more clients at once than any before leaves it with more, too; one that leaks does so every time.
  bool grew = true;
  for (int storm = 0; grew && storm < 3; ++storm) {
    const uint64_t resident = daemon.ResidentBytes();
    Storm(daemon, kHampered ? 1'000 : 10'000);
    EXPECT_TRUE(daemon.BecomesIdle());
    const uint64_t afterwards = daemon.ResidentBytes();
    grew = !kHampered && afterwards * 20 > resident * 21;
    std::cout << "resident: " << (resident >> 10) << " KiB before, " << (afterwards >> 10) << " KiB after\n";
  }
  EXPECT_FALSE(grew);
  auto client = daemon.Connect();
  ASSERT_TRUE(client);
  EXPECT_TRUE(Scan(*client, {}));
  daemon.ExpectEnds();
}

}  // namespace
}  // namespace abuse
