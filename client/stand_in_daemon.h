// A small daemon for tests: a socket, the root object and scan services that do as they are told and remember what they
// were asked.
#ifndef KESD_CLIENT_STAND_IN_DAEMON_H_
#define KESD_CLIENT_STAND_IN_DAEMON_H_

#include <concepts>
#include <condition_variable>
#include <cstddef>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "client/test_records.h"
#include "host/fenksocket/connection.h"
#include "host/fenksocket/test_support.h"

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
  // Listens on SocketPath(), in a directory of its own, and serves one connection after another. Each request gets the
  // next of `scriptedResults`, in place of an empty one the end of the connection; nothing when there are no more.
  explicit StandInDaemon(Answer scripted, std::vector<Images> scriptedResults = {});
  template <typename Records>
  requires std::same_as<Records, TestResult> || std::same_as<Records, TestRangingResult> StandInDaemon(
      Answer scripted, const Records& result)
      : StandInDaemon(scripted, std::vector<Images>(1, ImagesOf(result))) {}
  ~StandInDaemon();

  const std::string& SocketPath() const { return listener.Path(); }

  // Each waits for the event, and is false when it did not come in a generous time.
  bool AwaitRequest(std::size_t count = 1);
  bool AwaitHandleReleased(std::size_t count = 1);

  struct Request {
    uint32_t service;
    uint32_t operation;
    Images buffers;
    fenk::Clock::time_point at = fenk::Clock::now();
  };
  // Those so far.
  std::vector<Request> Requests() const;
  // Of the first. Only after AwaitRequest.
  Images RequestBuffers() const { return Requests().at(0).buffers; }

 private:
  struct Handle {
    StandInDaemon* owner;
    Object callback;  // until the handle is released
  };

  static int32_t InvokeRoot(void* context, uint32_t op, ObjectArg* args, uint32_t counts);
  static int32_t InvokeDiscovery(void* context, uint32_t op, ObjectArg* args, uint32_t counts);
  static int32_t InvokeRanging(void* context, uint32_t op, ObjectArg* args, uint32_t counts);
  static int32_t InvokeHandle(void* context, uint32_t op, ObjectArg* args, uint32_t counts);

  int32_t Start(Request request, ObjectArg* args, std::size_t inputBuffers);
  void Deliver(Object callback, Images result);
  void AnswerLater(Object callback, Images result);
  void ListenAndServe();
  bool Await(const std::size_t& number, std::size_t count);

  const Answer answer;
  const std::vector<Images> results;
  const fenk::test::ListeningSocket listener;
  fenk::UniqueFd stop;

  mutable std::mutex mutex;
  std::condition_variable changed;
  std::shared_ptr<fenk::Connection> connection;
  std::vector<Request> requests;
  std::list<Handle> handles;
  std::size_t requested = 0;
  std::size_t handlesReleased = 0;
  std::vector<std::thread> library;  // each delivers a result, as the daemon's Wi-Fi library does
  std::thread server;
};

}  // namespace kes

#endif  // KESD_CLIENT_STAND_IN_DAEMON_H_
