#include "client/stand_in_daemon.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <stdexcept>
#include <utility>

#include "host/fenksocket/limits.h"
#include "ipc/services.h"

namespace kes {
StandInDaemon::StandInDaemon(Answer scripted, std::vector<Images> scriptedResults)
    : answer(scripted), results(std::move(scriptedResults)), stop(eventfd(0, EFD_CLOEXEC)) {
  if (listen(listener.Fd(), 8) != 0) throw std::runtime_error("listen");
  server = std::thread([this] { ListenAndServe(); });
}

StandInDaemon::~StandInDaemon() {
  (void)eventfd_write(stop.Get(), 1);
  server.join();
  for (std::thread& delivery : library) delivery.join();  // no connection is left that could start more
}

bool StandInDaemon::Await(const std::size_t& number, std::size_t count) {
  std::unique_lock lock(mutex);
  return changed.wait_for(lock, std::chrono::seconds(30), [&] { return number >= count; });
}

bool StandInDaemon::AwaitRequest(std::size_t count) { return Await(requested, count); }

bool StandInDaemon::AwaitHandleReleased(std::size_t count) { return Await(handlesReleased, count); }

std::vector<StandInDaemon::Request> StandInDaemon::Requests() const {
  const std::lock_guard lock(mutex);
  return requests;
}

void StandInDaemon::ListenAndServe() {
  for (;;) {
    pollfd watched[2] = {{listener.Fd(), POLLIN, 0}, {stop.Get(), POLLIN, 0}};
    if (poll(watched, 2, -1) < 0) continue;
    if (watched[1].revents != 0) return;
    fenk::UniqueFd peer(accept4(listener.Fd(), nullptr, nullptr, SOCK_CLOEXEC));
    if (!peer.IsOpen()) continue;
    std::shared_ptr<fenk::Connection> accepted =
        fenk::Connection::Create(std::move(peer), fenk::kServerLimits, {&StandInDaemon::InvokeRoot, this});
    {
      const std::lock_guard lock(mutex);
      connection = accepted;
    }
    (void)accepted->ServeUntil([] { return false; }, std::nullopt, stop.Get());
    accepted->Close();
  }
}

int32_t StandInDaemon::InvokeRoot(void* context, uint32_t op, ObjectArg* args, uint32_t counts) {
  const auto* self = static_cast<StandInDaemon*>(context);
  if (ObjectOperation(op) >= OBJECT_OP_RETAIN) return OBJECT_OK;
  uint32_t id = 0;
  if (op != ROOT_OP_OPEN || counts != kRootOpenCounts || args[0].buffer.size != sizeof id) return OBJECT_ERROR_INVALID;
  std::memcpy(&id, args[0].buffer.ptr, sizeof id);
  if ((id != SERVICE_ID_DISCOVERY_SCAN && id != SERVICE_ID_RANGING_SCAN) || self->answer == Answer::kNoService) {
    return OBJECT_ERROR_INVALID;
  }
  args[1].object = {id == SERVICE_ID_DISCOVERY_SCAN ? &InvokeDiscovery : &InvokeRanging, context};
  return OBJECT_OK;
}

int32_t StandInDaemon::InvokeDiscovery(void* context, uint32_t op, ObjectArg* args, uint32_t counts) {
  if (op != kStartDiscoveryScan || counts != kStartDiscoveryScanCounts) return OBJECT_ERROR_INVALID;
  return static_cast<StandInDaemon*>(context)->Start({SERVICE_ID_DISCOVERY_SCAN, op, {}}, args, 4);
}

int32_t StandInDaemon::InvokeRanging(void* context, uint32_t op, ObjectArg* args, uint32_t counts) {
  if (op > kStartPeriodicRangingScan || counts != kStartRangingScanCounts) return OBJECT_ERROR_INVALID;
  return static_cast<StandInDaemon*>(context)->Start({SERVICE_ID_RANGING_SCAN, op, {}}, args, 2);
}

int32_t StandInDaemon::Start(Request request, ObjectArg* args, std::size_t inputBuffers) {
  if (answer == Answer::kRejected) return OBJECT_ERROR;
  const Object callback = args[inputBuffers].object;
  for (std::size_t i = 0; i < inputBuffers; ++i) {
    const auto* first = static_cast<const uint8_t*>(args[i].buffer.ptr);
    request.buffers.emplace_back(first, first + args[i].buffer.size);
  }
  ObjectRetain(callback);
  Images result;
  bool hangsUp = answer == Answer::kHangUp;
  {
    const std::lock_guard lock(mutex);
    if (requested < results.size()) result = results[requested];
    hangsUp = hangsUp || (requested < results.size() && result.empty());
    requests.push_back(std::move(request));
    handles.push_back({this, callback});
    ++requested;
    args[inputBuffers + 1].object = {&StandInDaemon::InvokeHandle, &handles.back()};
  }
  changed.notify_all();
  const bool hasResult = !result.empty();
  if (answer == Answer::kEarlyResult && hasResult) Deliver(callback, result);
  if ((answer == Answer::kResult && hasResult) || hangsUp) {
    ObjectRetain(callback);
    const std::lock_guard lock(mutex);
    library.emplace_back([this, callback, result] { AnswerLater(callback, result); });
  }
  return OBJECT_OK;
}

void StandInDaemon::AnswerLater(Object callback, Images result) {
  if (result.empty()) {
    std::unique_lock lock(mutex);
    const std::shared_ptr<fenk::Connection> ended = connection;
    lock.unlock();
    ended->Close();
  } else {
    Deliver(callback, std::move(result));
  }
  ObjectRelease(callback);
}

void StandInDaemon::Deliver(Object callback, Images result) {
  std::vector<ObjectArg> args(result.size());
  for (std::size_t i = 0; i < result.size(); ++i) {
    args[i].buffer = {result[i].empty() ? nullptr : result[i].data(), result[i].size()};
  }
  const auto inputBuffers = static_cast<uint32_t>(result.size());
  (void)callback.invoke(callback.context, kDeliverResult, args.data(), ObjectCounts(inputBuffers, 0, 0, 0));
}

int32_t StandInDaemon::InvokeHandle(void* context, uint32_t op, ObjectArg*, uint32_t) {
  auto* handle = static_cast<Handle*>(context);
  if (ObjectOperation(op) != OBJECT_OP_RELEASE) return OBJECT_OK;
  StandInDaemon* self = handle->owner;
  const Object callback = handle->callback;
  {
    const std::lock_guard lock(self->mutex);
    ++self->handlesReleased;
  }
  self->changed.notify_all();
  ObjectRelease(callback);
  return OBJECT_OK;
}

}  // namespace kes
