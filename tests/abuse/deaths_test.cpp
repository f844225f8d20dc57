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

// Orderly, or as a process that dies leaves it, with what it has not read.
void Die(RawPeer& peer, bool orderly) {
  if (orderly) {
    shutdown(peer.Fd(), SHUT_WR);
    EXPECT_TRUE(peer.AwaitEnd());
  }
  peer.Close();
}

TEST(Deaths, NothingIsLeftOfAClientAtWhateverByteItDies) {
  WatchedDaemon daemon("scene:aps=1,delay=2");
  std::size_t lengths[2] = {};
  for (const bool sending : {true, false}) {
    bool whole = false;
    for (std::size_t& most = lengths[sending]; !whole; ++most) {
      SCOPED_TRACE((sending ? "sent " : "read ") + std::to_string(most));
      RawPeer peer(daemon.ConnectRaw());
      whole = Converse(peer, sending ? most : kAll, sending ? kAll : most);
      Die(peer, most % 2 == 0);
    }
  }
  EXPECT_GT(lengths[true], Request().data.size());
  EXPECT_GT(lengths[false], 400u);
  EXPECT_TRUE(daemon.BecomesIdle());
  daemon.ExpectEnds();
}

TEST(Deaths, AClientMayBeKilledWhileItsResultIsDelivered) {
  WatchedDaemon daemon("scene:aps=1000,delay=0");
  auto bystander = daemon.Connect();
  ASSERT_TRUE(bystander);
  for (const std::size_t read : {std::size_t{0}, std::size_t{113}, std::size_t{128}, std::size_t{200'000}, kAll}) {
    SCOPED_TRACE(read);
    EXPECT_EQ(daemon.Fork(Request().data.size(), read, SIGKILL).Finish().exitCode, 1000 + SIGKILL);
    EXPECT_TRUE(Scan(*bystander, {}));
  }
  bystander = kes::Error{};
  EXPECT_TRUE(daemon.BecomesIdle());
  daemon.ExpectEnds();
}

// Each client dies at another moment, and some in a process of their own.
void Storm(const WatchedDaemon& daemon, int clients) {
  std::atomic<int> next = 0;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i; (i = next++) < clients;) {
        const std::size_t most = static_cast<std::size_t>(i) * 37 % 900;
        if (i % 50 == 0) {
          daemon.Fork(kAll, most, SIGKILL).Finish();
          continue;
        }
        RawPeer peer(daemon.ConnectRaw());
        ASSERT_GE(peer.Fd(), 0);
        Converse(peer, i % 2 == 0 ? most : kAll, i % 2 == 0 ? kAll : most);
        Die(peer, false);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

TEST(Deaths, NothingIsLeftOfAStormOfClients) {
  WatchedDaemon daemon("scene:aps=3,delay=2");
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
