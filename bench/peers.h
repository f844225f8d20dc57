// The peers: IPC libraries that one could have picked, each carrying the messages of a request in its own way.
#ifndef KESD_BENCH_PEERS_H_
#define KESD_BENCH_PEERS_H_

#include <array>
#include <cstddef>
#include <vector>

#include "bench/contender.h"

namespace bench {

// Contents for a payload's buffers, as a program has them in its memory before it hands them to a library.
using Buffers = std::array<std::vector<unsigned char>, 4>;
Buffers MakeBuffers(const std::array<std::size_t, 4>& sizes);

// Each is defined only where its library was found. The thread that connects is the one that makes requests.
Contender CapnpPeer();
Contender SdBusPeer();
Contender GrpcPeer();

}  // namespace bench

#endif  // KESD_BENCH_PEERS_H_
