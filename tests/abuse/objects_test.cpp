// A client that names objects in the wrong places.
#include <gtest/gtest.h>

#include "tests/abuse/abusive_client.h"
#include "tests/abuse/watched_daemon.h"

namespace abuse {
namespace {

using namespace fenk::test;

TEST(Objects, OfAnotherKindThanTheirPlaceHarmNobody) {
  WatchedDaemon daemon("scene:aps=3,delay=2");
  {
    // Its callbacks are the daemon's own objects: the root, the service, and the handles of other requests.
    const RawPeer peer(daemon.ConnectRaw());
    Bytes asked = Hello() += Invoke(1, 0, 0, 0x1001, Bytes().U64(4).U64(1));
    asked += StartScan(2, Reference(kYours, 0)) += StartScan(3, Reference(kYours, 1));
    asked += StartScan(4, Reference(kYours, 2)) += StartScan(5, Reference(kYours, 4));
    ASSERT_TRUE(peer.Send(asked += Release(4)));
    EXPECT_EQ(peer.Receive().type, 1);
    for (uint64_t serial = 1; serial <= 5; ++serial) {
      const RawFrame reply = peer.Receive();
      EXPECT_EQ(reply.serial, serial);
      EXPECT_EQ(reply.U32(0), 0u);
    }
    // A handle is neither a service nor a root, and a service is no handle.
    const struct {
      uint64_t target;
      uint32_t op, counts;
      Bytes rest;
    } cases[] = {
        {2, 0, 0x1001, Bytes().U64(4).U64(1)},
        {2, 0, 0, {}},
        {1, 0, 0, {}},
        {1, 0, 0x1001, Bytes().U64(4).U64(1)},
        {0, 0, 0x1001, Bytes().U64(4).U64(9)},
        {0, 0, 0x1001, Bytes().U64(8).U64(1)},
    };
    for (const auto& c : cases) {
      ASSERT_TRUE(peer.Send(Invoke(9, c.target, c.op, c.counts, c.rest)));
      EXPECT_EQ(peer.Receive().U32(0), 2u);
    }
  }
  RawPeer other(daemon.ConnectRaw());
  EXPECT_TRUE(Converse(other, kAll, kAll));
  other.Close();
  EXPECT_TRUE(daemon.BecomesIdle());
  daemon.ExpectEnds();
}

}  // namespace
}  // namespace abuse
