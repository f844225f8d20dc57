// A client in a process of its own: client_process SOCKET SEND READ SIGNAL. It goes as far as it is told, gets itself
// the signal, and if it goes on from there, reads to the connection's end.
#include <csignal>
#include <string>

#include "tests/abuse/abusive_client.h"

int main(int count, char** arguments) {
  if (count != 5) return 2;
  const fenk::test::RawPeer peer(fenk::test::ConnectTo(arguments[1]));
  if (peer.Fd() < 0) return 2;
  abuse::Converse(peer, std::stoull(arguments[2]), std::stoull(arguments[3]));
  raise(std::stoi(arguments[4]));
  return peer.AwaitEnd() ? 0 : 1;
}
