// The daemon is told to end while its clients are at their worst.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <list>
#include <string>
#include <thread>
#include <vector>

#include "tests/abuse/abusive_client.h"
#include "tests/abuse/watched_daemon.h"

namespace abuse {
namespace {

using fenk::test::RawPeer;
using testing_process::Process;

// What there is when the daemon is told to end, and ends after it.
struct Clients {
  std::vector<RawPeer> peers;
  std::vector<Process> processes;
  std::list<std::thread> threads;
  std::atomic<int> lived = 0;
  std::atomic<bool> over = false;

  ~Clients() {
    over = true;
    for (std::thread& thread : threads) thread.join();
  }
  const RawPeer& Add(const WatchedDaemon& daemon, std::size_t readMost) {
    peers.emplace_back(daemon.ConnectRaw());
    EXPECT_FALSE(Converse(peers.back(), Request().data.size(), readMost));
    return peers.back();
  }
};

TEST(Shutdown, EndsInTimeWhateverItsClientsDo) {
  struct Case {
    const char* name;
    const char* source;
    std::function<void(WatchedDaemon&, Clients&)> prepare;
  };
  constexpr char kPending[] = "scene:delay=600000";
  const Case cases[] = {
      {"requests pending, handshakes not begun, frames not ended", kPending,
       [](WatchedDaemon& daemon, Clients& clients) {
         for (int i = 0; i < 50; ++i) clients.Add(daemon, 32 + 40 + 40);
         for (const std::size_t most : {0u, 31u, 33u, 100u}) {
           clients.peers.emplace_back(daemon.ConnectRaw());
           EXPECT_FALSE(Converse(clients.peers.back(), most, 0));
         }
       }},
      {"stopped before, within and after their results", "scene:aps=1000,delay=0",
       [](WatchedDaemon& daemon, Clients& clients) { clients.processes = daemon.Stall(9); }},
      {"results on their way that are as large as can be", "scene:aps=20000,delay=0",
       [](WatchedDaemon& daemon, Clients& clients) {
         for (int i = 0; i < 2; ++i) clients.Add(daemon, 1'000'000);
       }},
      {"no descriptors left", kPending,
       [](WatchedDaemon& daemon, Clients& clients) {
         clients.Add(daemon, 32 + 40 + 40);
         daemon.TakeDescriptors();
         for (int i = 0; i < 10; ++i) clients.peers.emplace_back(daemon.ConnectRaw());
         EXPECT_TRUE(daemon.said.Await([](const auto& now) { return now.starved; }));
       }},
      {"a storm", "scene:aps=3,delay=1",
       [](WatchedDaemon& daemon, Clients& clients) {
         for (int t = 0; t < 4; ++t) {
           clients.threads.emplace_back([&] {
             for (std::size_t i = 0; !clients.over; ++i) {
               const RawPeer peer(daemon.ConnectRaw());
               if (peer.Fd() >= 0) Converse(peer, kAll, i * 37 % 600);
               ++clients.lived;
             }
           });
         }
         EXPECT_TRUE(Await([&] { return clients.lived > 200; }));
       }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    WatchedDaemon daemon(c.source);
    Clients clients;
    c.prepare(daemon, clients);
    daemon.ExpectEnds();
  }
}

}  // namespace
}  // namespace abuse
