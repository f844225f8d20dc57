#include "host/fenksocket/service.h"

#include <fcntl.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <sys/un.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <new>
#include <optional>
#include <utility>

#include "host/fenksocket/poll_timeout.h"
#include "host/fenksocket/poller.h"
#include "platform/log.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define FENK_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define FENK_SANITIZED 1
#endif
#endif

namespace fenk {
namespace {

using zv_loc_fw::log_debug;
using zv_loc_fw::log_error;
using zv_loc_fw::log_warning;

constexpr const char* kTag = "fenksocket";

// Enough for the deepest nesting of invocations, few enough for a thousand idle connections.
#ifdef FENK_SANITIZED
constexpr std::size_t kStackBytes = 2'097'152;
#else
constexpr std::size_t kStackBytes = 262'144;
#endif

// How long accepting rests when it fails, mostly for want of descriptors or memory: the listening socket stays readable
// meanwhile, and asking again at once would only burn the processor.
constexpr std::chrono::milliseconds kStarvedPause{100};

constexpr std::chrono::seconds kRefusalLogInterval{10};

// What the acceptor's events stand for; other values are numbers of connections.
enum : uint64_t { kListenerEvent = 0, kSignalEvent = 1, kWakeEvent = 2, kTimerEvent = 3, kLastEvent = 3 };

unsigned long long Printable(uint64_t number) { return number; }

int SocketOption(int fd, int option) {
  int value = -1;
  socklen_t length = sizeof(value);
  return getsockopt(fd, SOL_SOCKET, option, &value, &length) == 0 ? value : -1;
}

sigset_t EndSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGINT);
  return signals;
}

}  // namespace

std::unique_ptr<Service> Service::Start(int fd, Object root, const ServiceOptions& options) {
  sigset_t oldMask;
  pthread_sigmask(SIG_SETMASK, nullptr, &oldMask);
  std::unique_ptr<Service> service;
  try {
    service.reset(new Service(fd, root, options));
    if (service->Set()) return service;
  } catch (const std::bad_alloc&) {
    log_error(kTag, "out of memory");
  }
  service.reset();
  pthread_sigmask(SIG_SETMASK, &oldMask, nullptr);
  return nullptr;
}

Service::Service(int fd, Object servedRoot, const ServiceOptions& serviceOptions)
    : listener(fd),
      root(servedRoot),
      options(serviceOptions),
      poller(std::make_shared<Poller>(options.limits.answerDeadline)),
      lastNumber(kLastEvent) {}

Service::~Service() {
  Stop();
  Join();
}

bool Service::Set() {
  if (SocketOption(listener, SO_DOMAIN) != AF_UNIX || SocketOption(listener, SO_TYPE) != SOCK_STREAM) {
    log_error(kTag, "descriptor %d is not a Unix stream socket", listener);
    return false;
  }
  sockaddr_un address{};
  socklen_t length = sizeof(address);
  if (getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length) != 0 || length <= sizeof(sa_family_t)) {
    log_error(kTag, "descriptor %d is not bound to an address", listener);
    return false;
  }
  const int flags = fcntl(listener, F_GETFL);
  if (listen(listener, SOMAXCONN) != 0 || flags < 0 || fcntl(listener, F_SETFL, flags | O_NONBLOCK) != 0) {
    log_error(kTag, "cannot listen: %s", strerrordesc_np(errno));
    return false;
  }
  if (options.watchSignals) {
    const sigset_t watched = EndSignals();
    pthread_sigmask(SIG_BLOCK, &watched, nullptr);
    signals.Reset(signalfd(-1, &watched, SFD_CLOEXEC | SFD_NONBLOCK));
  }
  wake.Reset(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  if (!wake.IsOpen() || !poller->Watch(wake.Get(), kWakeEvent, EPOLLIN) ||
      !poller->Watch(listener, kListenerEvent, EPOLLIN) || !poller->Watch(poller->Timer(), kTimerEvent, EPOLLIN) ||
      (options.watchSignals && !poller->Watch(signals.Get(), kSignalEvent, EPOLLIN))) {
    log_error(kTag, "cannot wait for connections: %s", strerrordesc_np(errno));
    return false;
  }
  started = StartThread(acceptor, RunAcceptor, this, "fenk-accept");
  return started;
}

bool Service::StartThread(pthread_t& thread, void* (*entry)(void*), void* argument, const char* name) {
  pthread_attr_t attributes;
  int error = pthread_attr_init(&attributes);
  if (error == 0) {
    error = pthread_attr_setstacksize(&attributes, kStackBytes);
    if (error == 0) error = pthread_create(&thread, &attributes, entry, argument);
    pthread_attr_destroy(&attributes);
  }
  if (error != 0) {
    log_error(kTag, "cannot start a thread: %s", strerrordesc_np(error));
    return false;
  }
  pthread_setname_np(thread, name);
  return true;
}

void Service::Stop() {
  stopping = true;
  if (wake.IsOpen()) (void)eventfd_write(wake.Get(), 1);  // fails only when it is readable already
}

void Service::Join() {
  if (!std::exchange(started, false)) return;
  pthread_join(acceptor, nullptr);
  ForEachConnection([](Connection& connection) { connection.Drain(); });
  if (!AwaitNoPeers(Clock::now() + options.drainTime)) {
    ForEachConnection([](Connection& connection) { connection.Close(); });
    AwaitNoPeers(std::nullopt);
  }
  JoinFinished();
}

template <typename Function>
void Service::ForEachConnection(const Function& function) {
  uint64_t number = 0;
  for (;;) {
    std::shared_ptr<Connection> connection;
    {
      const kesd::MutexLock lock(mutex);
      const auto next = peers.upper_bound(number);
      if (next == peers.end()) return;
      number = next->first;
      connection = next->second.connection;
    }
    function(*connection);  // releases objects: no lock is held
  }
}

bool Service::AwaitNoPeers(std::optional<Clock::time_point> deadline) {
  const kesd::MutexLock lock(mutex);
  while (!peers.empty()) {
    if (!peerFinished.Wait(mutex, deadline) && !peers.empty()) return false;
  }
  return true;
}

void* Service::RunAcceptor(void* service) {
  static_cast<Service*>(service)->Accept();
  return nullptr;
}

void Service::Accept() {
  bool resting = false;  // from accepting, until the time below
  Clock::time_point resume;
  bool starved = false;  // since the last connection that was accepted
  for (;;) {
    epoll_event events[16];
    const int count =
        epoll_wait(poller->Descriptor(), events, 16, PollTimeout(resting ? std::optional(resume) : std::nullopt));
    if (count < 0 && errno != EINTR) {
      log_error(kTag, "cannot wait for connections: %s", strerrordesc_np(errno));
      return;
    }
    if (resting && Clock::now() >= resume) {
      resting = false;
      poller->Watch(listener, kListenerEvent, EPOLLIN);
    }
    for (int i = 0; i < count; ++i) {
      const uint64_t what = events[i].data.u64;
      if (what == kSignalEvent) {
        signalfd_siginfo signal{};
        if (read(signals.Get(), &signal, sizeof(signal)) != sizeof(signal)) continue;
        log_debug(kTag, "ends by signal %u", signal.ssi_signo);
        return;
      }
      if (what == kWakeEvent) {
        eventfd_t ignored;
        (void)eventfd_read(wake.Get(), &ignored);
        if (stopping) return;
        JoinFinished();
      } else if (what == kTimerEvent) {
        uint64_t ignored;
        if (read(poller->Timer(), &ignored, sizeof(ignored)) < 0) continue;
        ForEachConnection([](Connection& connection) { connection.Flush(); });
      } else if (what == kListenerEvent) {
        const int error = (events[i].events & EPOLLHUP) != 0 ? EINVAL : AcceptOne();
        if (error == EINVAL) {
          log_debug(kTag, "ends: the listening socket was shut down");
          return;
        }
        if (error == 0) starved = false;
        if (error == 0 || error == EAGAIN || error == EINTR || error == ECONNABORTED) continue;
        if (!std::exchange(starved, true)) log_error(kTag, "cannot accept: %s", strerrordesc_np(error));
        resting = true;
        resume = Clock::now() + kStarvedPause;
        poller->Watch(listener, kListenerEvent, 0);
      } else {
        FlushPeer(what);
      }
    }
  }
}

// 0, or the error.
int Service::AcceptOne() {
  UniqueFd socket(accept4(listener, nullptr, nullptr, SOCK_CLOEXEC));
  if (!socket.IsOpen()) return errno;
  try {
    if (HasRoom()) AddPeer(std::move(socket));
  } catch (const std::bad_alloc&) {
    log_warning(kTag, "connection refused: out of memory");
  }
  return 0;
}

bool Service::HasRoom() {
  {
    const kesd::MutexLock lock(mutex);
    if (peers.size() < options.maxConnections) return true;
  }
  LogRefusal("", options.maxConnections);
  return false;
}

void Service::LogRefusal(const char* who, unsigned open) {
  ++refusals;
  const Clock::time_point now = Clock::now();
  if (nextRefusalLog && now < *nextRefusalLog) return;
  log_warning(kTag, "connection refused: %s%u are open (%u refused)", who, open, std::exchange(refusals, 0));
  nextRefusalLog = now + kRefusalLogInterval;
}

std::shared_ptr<UserBudget> Service::BudgetOf(uid_t user) {
  std::erase_if(users, [](const auto& entry) { return entry.second.expired(); });
  std::shared_ptr<UserBudget> budget = users[user].lock();
  if (budget == nullptr) users[user] = budget = std::make_shared<UserBudget>(options.user);
  return budget;
}

void Service::AddPeer(UniqueFd socket) {
  const int fd = socket.Get();
  Peer peer{this, ++lastNumber, {}, nullptr, nullptr, nullptr, {}};
  socklen_t length = sizeof(peer.credentials);
  // Nobody is taken for root for want of an answer.
  peer.credentials = {-1, static_cast<uid_t>(-1), static_cast<gid_t>(-1)};
  (void)getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer.credentials, &length);
  const ucred credentials = peer.credentials;
  peer.user = BudgetOf(credentials.uid);
  if (!peer.user->connections.Take(1)) {
    char who[32];
    std::snprintf(who, sizeof(who), "of user %u, ", credentials.uid);
    return LogRefusal(who, static_cast<unsigned>(options.user.connections));
  }
  peer.place.reset(&peer.user->connections);
  peer.connection = Connection::Create(
      std::move(socket), options.limits, root,
      [pollerForIt = poller, fd, number = peer.number] { pollerForIt->WatchUnsent(fd, number); }, peer.user);
  if (!peer.connection) throw std::bad_alloc();
  log_debug(kTag, "connection %llu: pid %d, uid %u, gid %u", Printable(peer.number), credentials.pid, credentials.uid,
            credentials.gid);
  const uint64_t number = peer.number;
  const kesd::MutexLock lock(mutex);
  Peer& added = peers.emplace(number, std::move(peer)).first->second;
  if (!StartThread(added.thread, RunPeer, &added, "fenk-peer")) peers.erase(number);
}

// Its socket has become writable.
void Service::FlushPeer(uint64_t number) {
  std::shared_ptr<Connection> connection;
  {
    const kesd::MutexLock lock(mutex);
    const auto found = peers.find(number);
    if (found == peers.end()) return;
    connection = found->second.connection;
  }
  connection->Flush();
}

void* Service::RunPeer(void* argument) {
  Peer& peer = *static_cast<Peer*>(argument);
  peer.connection->ServeUntil([] { return false; }, std::nullopt, -1);
  peer.service->Finish(peer);
  return nullptr;
}

void Service::Finish(Peer& peer) {
  std::shared_ptr<Connection> connection = peer.connection;
  connection->Close();
  const ConnectionEnd end = connection->End();
  const ucred& credentials = peer.credentials;
  if (end.kind == EndKind::kClosedHere || end.kind == EndKind::kClosedByPeer) {
    log_debug(kTag, "connection %llu: %s", Printable(peer.number), end.what);
  } else {
    log_warning(kTag, "connection %llu (pid %d, uid %u) disconnected: %s", Printable(peer.number), credentials.pid,
                credentials.uid, end.what);
  }
  {
    const kesd::MutexLock lock(mutex);
    peer.connection.reset();  // `connection` is left
    peer.place.reset();
    finished.insert(peers.extract(peer.number));
    peerFinished.NotifyAll();
  }
  (void)eventfd_write(wake.Get(), 1);  // the acceptor joins this thread
}

void Service::JoinFinished() {
  std::map<uint64_t, Peer> ended;
  {
    const kesd::MutexLock lock(mutex);
    ended.swap(finished);
  }
  for (auto& [number, peer] : ended) pthread_join(peer.thread, nullptr);
}

}  // namespace fenk
