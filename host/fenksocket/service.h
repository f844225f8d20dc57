// Serves one root object on a listening Unix stream socket: what stands behind the entry points of platform/fenk_ipc.h.
#ifndef KESD_HOST_FENKSOCKET_SERVICE_H_
#define KESD_HOST_FENKSOCKET_SERVICE_H_

#include <pthread.h>
#include <sys/socket.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>

#include "host/fenksocket/connection.h"
#include "host/fenksocket/limits.h"
#include "host/fenksocket/unique_fd.h"
#include "ipc/object.h"
#include "support/mutex.h"

namespace fenk {

class Poller;

struct ServiceOptions {
  Limits limits = kServerLimits;
  unsigned maxConnections = kMaxConnections;
  UserLimits user = kUserLimits;
  std::chrono::milliseconds drainTime = kDrainTime;
  // End at SIGTERM and SIGINT. They are blocked in the starting thread, and so in the threads that it makes from then
  // on, and stay so: a second one does not cut the orderly end short.
  bool watchSignals = false;
};

// One thread accepts; each connection has one that serves it. Logs under the tag "fenksocket".
class Service {
 public:
  // Listens on `fd`, a bound Unix stream socket that stays the caller's and open until Join has returned. Null when it
  // could not be started; then the reason was logged and nothing has changed but that the socket may listen.
  static std::unique_ptr<Service> Start(int fd, Object root, const ServiceOptions& options);

  // Asks the service to end; Join returns soon. Any thread.
  void Stop();

  // Waits until the service ends: Stop, a watched signal, or the listening socket shut down. Then invocations in
  // progress finish, connections close and release everything, threads are joined. No object is invoked for a client
  // after it has returned. Called by one thread; a second call returns at once.
  void Join() KESD_EXCLUDES(mutex);

  ~Service();  // Stop and Join

 private:
  struct GiveBackOne {
    void operator()(Budget* budget) const { budget->Give(1); }
  };
  struct Peer {
    Service* service;
    uint64_t number;
    ucred credentials;
    std::shared_ptr<UserBudget> user;
    std::unique_ptr<Budget, GiveBackOne> place;  // of the user's connections
    std::shared_ptr<Connection> connection;
    pthread_t thread;
  };

  Service(int fd, Object servedRoot, const ServiceOptions& serviceOptions);
  bool Set();
  bool StartThread(pthread_t& thread, void* (*entry)(void*), void* argument, const char* name);

  template <typename Function>
  void ForEachConnection(const Function& function) KESD_EXCLUDES(mutex);
  bool AwaitNoPeers(std::optional<Clock::time_point> deadline) KESD_EXCLUDES(mutex);

  // On the acceptor's thread.
  static void* RunAcceptor(void* service);
  void Accept();
  int AcceptOne();
  bool HasRoom() KESD_EXCLUDES(mutex);
  std::shared_ptr<UserBudget> BudgetOf(uid_t user);
  void LogRefusal(const char* who, unsigned open);
  void AddPeer(UniqueFd socket) KESD_EXCLUDES(mutex);
  void FlushPeer(uint64_t number) KESD_EXCLUDES(mutex);
  void JoinFinished() KESD_EXCLUDES(mutex);

  // On a connection's thread.
  static void* RunPeer(void* peer);
  void Finish(Peer& peer) KESD_EXCLUDES(mutex);

  const int listener;
  const Object root;
  const ServiceOptions options;
  std::shared_ptr<Poller> poller;  // outlives the service, for the sake of connections that stand-ins keep
  UniqueFd signals;
  UniqueFd wake;
  pthread_t acceptor{};
  bool started = false;
  std::atomic<bool> stopping = false;

  // The acceptor's own.
  uint64_t lastNumber;
  std::optional<Clock::time_point> nextRefusalLog;
  unsigned refusals = 0;  // not logged yet
  std::map<uid_t, std::weak_ptr<UserBudget>> users;

  kesd::Mutex mutex;
  kesd::Condition peerFinished;
  std::map<uint64_t, Peer> peers KESD_GUARDED_BY(mutex);
  std::map<uint64_t, Peer> finished KESD_GUARDED_BY(mutex);  // their threads are to be joined
};

}  // namespace fenk

#endif  // KESD_HOST_FENKSOCKET_SERVICE_H_
