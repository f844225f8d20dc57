#include "host/fenksocket/connection.h"

#include <new>
#include <utility>

#include "host/fenksocket/session.h"

namespace fenk {

std::shared_ptr<Connection> Connection::Create(UniqueFd socket, const Limits& limits, Object root,
                                               std::function<void()> unsent) {
  try {
    auto session = std::make_shared<Session>(std::move(socket), limits, root, std::move(unsent));
    std::shared_ptr<Connection> connection(new Connection(session));
    session->Begin();
    return connection;
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

Connection::Connection(std::shared_ptr<Session> ownSession) : session(std::move(ownSession)) {}

Connection::~Connection() { Close(); }

Object Connection::PeerRoot() { return session->PeerRoot(); }

WaitResult Connection::ServeUntil(const std::function<bool()>& done, std::optional<Clock::time_point> deadline,
                                  int wakeFd) {
  return session->Serve(done, deadline, wakeFd);
}

void Connection::Close() { session->End(EndKind::kClosedHere, "closed here"); }

void Connection::Drain() { session->Drain(); }

ConnectionEnd Connection::End() const { return session->HowEnded(); }

void Connection::Flush() { session->FlushReleases(); }

}  // namespace fenk
