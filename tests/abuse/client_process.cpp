// A client in a process of its own: client_process SOCKET SEND READ SIGNAL. It goes as far as it is told, gets itself
// the signal, and if it goes on from there, reads to the connection's end.
#include <sys/socket.h>
#include <sys/un.h>

#include <csignal>
#include <string>

#include "tests/abuse/abusive_client.h"

int main(int count, char** arguments) {
  if (count != 5) return 2;
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::string(arguments[1]).copy(address.sun_path, sizeof(address.sun_path) - 1);
  fenk::UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (connect(socket.Get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) return 2;
  const fenk::test::RawPeer peer(std::move(socket));
  abuse::Converse(peer, std::stoull(arguments[2]), std::stoull(arguments[3]));
  raise(std::stoi(arguments[4]));
  return peer.AwaitEnd() ? 0 : 1;
}
