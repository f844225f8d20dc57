// The daemon itself, and a client that knows no more of its results than their sizes.
#include <unistd.h>

#include <atomic>
#include <memory>
#include <stdexcept>
#include <vector>

#include "bench/contender.h"
#include "client/invocation.h"
#include "client/object_ref.h"
#include "client/socket_connect.h"
#include "host/fenksocket/limits.h"
#include "host/wifi/discovery_parameters.h"
#include "ipc/services.h"
#include "marshal/records.h"

namespace bench {
namespace {

constexpr uint32_t kFreshScan = 0, kCacheOnly = 2;  // DiscoveryScanParams::mode
constexpr uint32_t kAllBands = 2;
constexpr int64_t kLongerThanAnyRun = 3'600'000;  // milliseconds

// The callback of one request after the other.
class Callback {
 public:
  // For the next request, which takes a reference of its own.
  Object Lend() {
    delivered = false;
    return {Invoke, this};
  }
  bool GivenBack() const { return references == 0; }
  bool Delivered() const { return delivered; }
  const Payload& Received() const { return received; }

 private:
  static int32_t Invoke(void* context, uint32_t op, ObjectArg* args, ArgCounts counts) {
    Callback& self = *static_cast<Callback*>(context);
    switch (ObjectOperation(op)) {
      case OBJECT_OP_RETAIN:
        ++self.references;
        return OBJECT_OK;
      case OBJECT_OP_RELEASE:
        --self.references;
        return OBJECT_OK;
      default:
        if (counts != kDeliverDiscoveryResultCounts) return OBJECT_ERROR_INVALID;
        for (std::size_t i = 0; i < 4; ++i) self.received.result[i] = args[i].buffer.size;
        self.delivered = true;
        return OBJECT_OK;
    }
  }

  std::atomic<int> references = 0;
  bool delivered = false;
  Payload received{};
};

class KesdClient final : public ClientEnd {
 public:
  explicit KesdClient(const std::string& path) {
    kes::Result<fenk::UniqueFd> socket = kes::ConnectToSocket(path, fenk::kClientLimits.answerDeadline);
    if (!socket) throw std::runtime_error(socket.GetError().message);
    connection = fenk::Connection::Create(std::move(*socket), fenk::kClientLimits, Object{nullptr, nullptr});
    if (connection == nullptr) throw std::runtime_error("out of memory");
    const kes::ObjectRef root(connection->PeerRoot());
    uint32_t id = SERVICE_ID_DISCOVERY_SCAN;
    ObjectArg args[2] = {kes::InputBuffer(&id, sizeof id), {}};
    if (root.Get().invoke(root.Get().context, ROOT_OP_OPEN, args, kRootOpenCounts) != OBJECT_OK) {
      throw std::runtime_error("kesd does not open its service");
    }
    service = kes::ObjectRef(args[1].object);
  }

  // The request's handle.
  kes::ObjectRef Start(uint32_t mode) {
    DiscoveryScanParams params{};
    params.mode = mode;
    params.band = kAllBands;
    params.timeout = kLongerThanAnyRun;
    ObjectArg args[6] = {kes::InputBuffer(&params, sizeof params), {}, {}, {}, {}, {}};
    args[4].object = callback.Lend();
    const int32_t code =
        service.Get().invoke(service.Get().context, kStartDiscoveryScan, args, kStartDiscoveryScanCounts);
    if (code != OBJECT_OK) throw std::runtime_error("kesd refused a request");
    return kes::ObjectRef(args[5].object);
  }

  std::size_t Request() override { return Request(kFreshScan); }
  std::size_t Request(uint32_t mode) {
    const kes::ObjectRef handle = Start(mode);
    connection->ServeUntil([this] { return callback.GivenBack(); }, std::nullopt, -1);
    if (!callback.GivenBack() || !callback.Delivered()) throw std::runtime_error("kesd delivered no result");
    const auto& sizes = callback.Received().result;
    return sizes[0] + sizes[1] + sizes[2] + sizes[3];
  }

  Payload LearnPayload() {
    Request();
    Payload payload = callback.Received();
    payload.request = {sizeof(DiscoveryScanParams), 0, 0, 0};
    return payload;
  }

 private:
  std::shared_ptr<fenk::Connection> connection;
  kes::ObjectRef service;
  Callback callback;
};

// Asks the cache alone, which answers at once however long the source takes.
class CacheClient final : public ClientEnd {
 public:
  explicit CacheClient(const std::string& path) : client(path) {}
  std::size_t Request() override { return client.Request(kCacheOnly); }

 private:
  KesdClient client;
};

class KesdLoad final : public Load {
 public:
  KesdLoad(const std::string& path, std::size_t connections, std::size_t requestsEach) {
    for (std::size_t i = 0; i < connections; ++i) {
      clients.push_back(std::make_unique<KesdClient>(path));
      for (std::size_t j = 0; j < requestsEach; ++j) handles.push_back(clients.back()->Start(kFreshScan));
    }
  }

 private:
  std::vector<std::unique_ptr<KesdClient>> clients;
  std::vector<kes::ObjectRef> handles;
};

void Serve(const std::string& path, const Payload&) {
  const std::string launcher = KESD_BINARY_DIR "/bin/kesd-launch", daemon = KESD_BINARY_DIR "/bin/kesd";
  execl(launcher.c_str(), launcher.c_str(), "--socket", path.c_str(), "--", daemon.c_str(), nullptr);
  throw std::runtime_error("cannot execute " + launcher);
}

}  // namespace

Contender Kesd() {
  return {"kesd", Serve, [](const std::string& path, const Payload&) -> std::unique_ptr<ClientEnd> {
            return std::make_unique<KesdClient>(path);
          }};
}

Contender KesdFromCache() {
  return {"kesd, from its cache", Serve, [](const std::string& path, const Payload&) -> std::unique_ptr<ClientEnd> {
            return std::make_unique<CacheClient>(path);
          }};
}

Payload LearnPayload(const std::string& path) { return KesdClient(path).LearnPayload(); }

std::unique_ptr<Load> PutLoad(const std::string& path, std::size_t connections, std::size_t requestsEach) {
  return std::make_unique<KesdLoad>(path, connections, requestsEach);
}

}  // namespace bench
