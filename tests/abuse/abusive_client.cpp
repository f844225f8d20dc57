#include "tests/abuse/abusive_client.h"

#include <algorithm>
#include <cstring>
#include <string>

namespace abuse {

using namespace fenk::test;

Bytes Request() {
  constexpr uint64_t kTimeoutMs = 600'000;
  Bytes scan = Bytes().U64(32).U64(0).U64(0).U64(0) += Reference(kMine, 0x51);
  scan.U64(kTimeoutMs).U64(0).U64(0).U64(2);  // all bands
  return (Hello() += Invoke(1, 0, 0, 0x1001, Bytes().U64(4).U64(1))) += Invoke(2, 1, 0, 0x1104, scan);
}

bool Converse(const RawPeer& peer, std::size_t sendMost, std::size_t readMost) {
  const auto send = [&](Bytes bytes) {
    const bool whole = bytes.data.size() <= sendMost;
    bytes.data.resize(std::min(bytes.data.size(), sendMost));
    sendMost -= bytes.data.size();
    return (bytes.data.empty() || peer.Send(bytes)) && whole;
  };
  const auto read = [&](char* to, std::size_t size) {
    const std::size_t part = std::min(size, readMost);
    readMost -= part;
    return peer.Read(to, part) && part == size;
  };
  if (!send(Request())) return false;
  for (int frames = 0; frames < 5; ++frames) {  // HELLO, two replies, the result, and the callback given back
    char header[16];
    if (!read(header, sizeof(header))) return false;
    uint32_t length;
    uint16_t type;
    uint64_t serial;
    std::memcpy(&length, header, sizeof(length));
    std::memcpy(&type, header + 4, sizeof(type));
    std::memcpy(&serial, header + 8, sizeof(serial));
    std::string body(length - sizeof(header), '\0');
    if (!read(body.data(), body.size())) return false;
    if (type == 2 && !send(Reply(serial, 0))) return false;
  }
  return send(Release(2));
}

}  // namespace abuse
