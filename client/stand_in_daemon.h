// A small daemon for tests: a socket, the root object and a discovery service that does as it is told and remembers
// what it was asked.
#ifndef KESD_CLIENT_STAND_IN_DAEMON_H_
#define KESD_CLIENT_STAND_IN_DAEMON_H_

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "client/test_records.h"
#include "host/fenksocket/connection.h"

namespace kes {

enum class Answer {
  kResult,       // the result, after the request handle
  kEarlyResult,  // the result, before the request handle
  kNothing,      // the request handle only
  kRejected,     // OBJECT_ERROR
  kHangUp,       // the end of the connection, after the request handle
  kNoService     // OBJECT_ERROR_INVALID from the root object
};

class StandInDaemon {
 public:
  // Listens on SocketPath(), in a directory of its own, and serves one connection after another.
  StandInDaemon(Answer answer, TestResult result);
  ~StandInDaemon();

  const std::string& SocketPath() const { return path; }

  // Each waits for the event, and is false when it did not come in a generous time.
  bool AwaitRequest();
  bool AwaitHandleReleased();

  // Only after AwaitRequest.
  std::vector<std::vector<uint8_t>> RequestBuffers() const;

 private:
  static int32_t InvokeRoot(void* context, uint32_t op, ObjectArg* args, uint32_t counts);
  static int32_t InvokeDiscovery(void* context, uint32_t op, ObjectArg* args, uint32_t counts);
  static int32_t InvokeHandle(void* context, uint32_t op, ObjectArg* args, uint32_t counts);

  int32_t Start(ObjectArg* args);
  void Deliver(Object callback);
  void AnswerLater(Object callback);
  void ListenAndServe();
  bool Await(const bool& condition);

  const Answer answer;
  const TestResult result;
  std::string directory;
  std::string path;
  fenk::UniqueFd listener;
  fenk::UniqueFd stop;

  mutable std::mutex mutex;
  std::condition_variable changed;
  std::shared_ptr<fenk::Connection> connection;
  std::vector<std::vector<uint8_t>> buffers;
  Object pendingCallback{nullptr, nullptr};
  bool requested = false;
  bool handleReleased = false;
  std::thread library;  // delivers results, as the daemon's Wi-Fi library does
  std::thread server;
};

}  // namespace kes

#endif  // KESD_CLIENT_STAND_IN_DAEMON_H_
