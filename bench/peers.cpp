#include "bench/peers.h"

namespace bench {

Buffers MakeBuffers(const std::array<std::size_t, 4>& sizes) {
  Buffers buffers;
  for (std::size_t i = 0; i < buffers.size(); ++i) buffers[i].assign(sizes[i], 0x5A);
  return buffers;
}

std::span<const Contender> Peers() {
  static const std::vector<Contender> peers = {
#ifdef KESD_BENCH_CAPNP
      CapnpPeer(),
#endif
#ifdef KESD_BENCH_SDBUS
      SdBusPeer(),
#endif
#ifdef KESD_BENCH_GRPC
      GrpcPeer(),
#endif
  };
  return peers;
}

}  // namespace bench
