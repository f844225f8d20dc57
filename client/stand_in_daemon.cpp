#include "client/stand_in_daemon.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>

#include "host/fenksocket/limits.h"
#include "ipc/services.h"

namespace kes {
namespace {

void Require(bool condition, const char* what) {
  if (!condition) throw std::runtime_error(what);
}

}  // namespace

StandInDaemon::StandInDaemon(Answer scripted, TestResult scriptedResult)
    : answer(scripted), result(std::move(scriptedResult)), stop(eventfd(0, EFD_CLOEXEC)) {
  directory = (std::filesystem::temp_directory_path() / "kesctl-XXXXXX").string();
  Require(mkdtemp(directory.data()) != nullptr, "mkdtemp");
  path = directory + "/socket";
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  listener.Reset(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  Require(bind(listener.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0, "bind");
  Require(listen(listener.Get(), 8) == 0, "listen");
  server = std::thread([this] { ListenAndServe(); });
}

StandInDaemon::~StandInDaemon() {
  (void)eventfd_write(stop.Get(), 1);
  server.join();
  if (library.joinable()) library.join();
  std::filesystem::remove_all(directory);
}

bool StandInDaemon::Await(const bool& condition) {
  std::unique_lock lock(mutex);
  return changed.wait_for(lock, std::chrono::seconds(30), [&] { return condition; });
}

bool StandInDaemon::AwaitRequest() { return Await(requested); }

bool StandInDaemon::AwaitHandleReleased() { return Await(handleReleased); }

std::vector<std::vector<uint8_t>> StandInDaemon::RequestBuffers() const {
  const std::lock_guard lock(mutex);
  return buffers;
}

void StandInDaemon::ListenAndServe() {
  for (;;) {
    pollfd watched[2] = {{listener.Get(), POLLIN, 0}, {stop.Get(), POLLIN, 0}};
    if (poll(watched, 2, -1) < 0) continue;
    if (watched[1].revents != 0) return;
    fenk::UniqueFd peer(accept4(listener.Get(), nullptr, nullptr, SOCK_CLOEXEC));
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
  if (id != SERVICE_ID_DISCOVERY_SCAN || self->answer == Answer::kNoService) return OBJECT_ERROR_INVALID;
  args[1].object = {&StandInDaemon::InvokeDiscovery, context};
  return OBJECT_OK;
}

int32_t StandInDaemon::InvokeDiscovery(void* context, uint32_t op, ObjectArg* args, uint32_t counts) {
  if (op != kStartDiscoveryScan || counts != kStartDiscoveryScanCounts) return OBJECT_ERROR_INVALID;
  return static_cast<StandInDaemon*>(context)->Start(args);
}

int32_t StandInDaemon::Start(ObjectArg* args) {
  if (answer == Answer::kRejected) return OBJECT_ERROR;
  const Object callback = args[4].object;
  ObjectRetain(callback);
  if (answer == Answer::kEarlyResult) Deliver(callback);
  {
    const std::lock_guard lock(mutex);
    for (std::size_t i = 0; i < 4; ++i) {
      const auto* first = static_cast<const uint8_t*>(args[i].buffer.ptr);
      buffers.emplace_back(first, first + args[i].buffer.size);
    }
    pendingCallback = callback;
    requested = true;
  }
  args[5].object = {&StandInDaemon::InvokeHandle, this};
  changed.notify_all();
  if (answer == Answer::kResult || answer == Answer::kHangUp) {
    ObjectRetain(callback);
    library = std::thread([this, callback] { AnswerLater(callback); });
  }
  return OBJECT_OK;
}

void StandInDaemon::AnswerLater(Object callback) {
  if (answer == Answer::kHangUp) {
    std::unique_lock lock(mutex);
    const std::shared_ptr<fenk::Connection> ended = connection;
    lock.unlock();
    ended->Close();
  } else {
    Deliver(callback);
  }
  ObjectRelease(callback);
}

void StandInDaemon::Deliver(Object callback) {
  std::vector<uint8_t> images[4] = {ImageOf(result.header), ImageOf(result.measurements), ImageOf(result.infos),
                                    result.bytes};
  ObjectArg args[4] = {};
  for (std::size_t i = 0; i < 4; ++i)
    args[i].buffer = {images[i].empty() ? nullptr : images[i].data(), images[i].size()};
  (void)callback.invoke(callback.context, kDeliverResult, args, kDeliverDiscoveryResultCounts);
}

int32_t StandInDaemon::InvokeHandle(void* context, uint32_t op, ObjectArg*, uint32_t) {
  auto* self = static_cast<StandInDaemon*>(context);
  if (ObjectOperation(op) != OBJECT_OP_RELEASE) return OBJECT_OK;
  Object callback;
  {
    const std::lock_guard lock(self->mutex);
    callback = std::exchange(self->pendingCallback, Object{nullptr, nullptr});
    self->handleReleased = true;
  }
  self->changed.notify_all();
  if (callback.invoke != nullptr) ObjectRelease(callback);
  return OBJECT_OK;
}

}  // namespace kes
