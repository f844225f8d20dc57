#include "host/fenksocket/connection.h"

#include <new>
#include <utility>

#include "host/fenksocket/session.h"

namespace fenk {
namespace {

constexpr uint64_t kNoLimit = uint64_t{1} << 62;
constexpr UserLimits kNoUserLimits{kNoLimit, kNoLimit, kNoLimit, kNoLimit, kNoLimit};

}  // namespace

std::shared_ptr<Connection> Connection::Create(UniqueFd socket, const Limits& limits, Object root,
                                               std::function<void()> unsent, std::shared_ptr<UserBudget> user) {
  try {
    if (user == nullptr) user = std::make_shared<UserBudget>(kNoUserLimits);
    auto session = std::make_shared<Session>(std::move(socket), limits, root, std::move(unsent), std::move(user));
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

void Connection::Flush() { session->Flush(); }

}  // namespace fenk
