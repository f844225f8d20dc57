// D-Bus messages from one end of a socket to the other with sd-bus, without a bus between them. Handles and callbacks
// go by numbers, and what D-Bus has no message for - giving one back - is a method call that expects no reply.
#include <sys/socket.h>
#include <sys/un.h>
#include <systemd/sd-bus.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <unordered_map>
#include <unordered_set>

#include "bench/peers.h"
#include "bench/unix_address.h"
#include "host/fenksocket/unique_fd.h"

namespace bench {
namespace {

constexpr const char* kScannerPath = "/scanner";
constexpr const char* kScannerInterface = "kesd.Scanner";
constexpr const char* kCallbackPath = "/callback";
constexpr const char* kCallbackInterface = "kesd.Callback";
constexpr uint64_t kForEver = UINT64_MAX;

using Bus = std::unique_ptr<sd_bus, decltype([](sd_bus* bus) { sd_bus_close_unref(bus); })>;
using Message = std::unique_ptr<sd_bus_message, decltype([](sd_bus_message* m) { sd_bus_message_unref(m); })>;

// The library answers with a negative errno value; its handlers do so too.
void Check(int result, const char* what) {
  if (result < 0) throw std::system_error(-result, std::generic_category(), what);
}

fenk::UniqueFd MakeSocket() {
  fenk::UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (socket.Get() < 0) throw std::system_error(errno, std::generic_category(), "socket");
  return socket;
}

// Nothing is negotiated that a message would have to carry or an end to look up.
Bus MakeBus(fenk::UniqueFd socket, bool isServer) {
  sd_bus* made = nullptr;
  Check(sd_bus_new(&made), "sd_bus_new");
  Bus bus(made);
  Check(sd_bus_set_fd(made, socket.Get(), socket.Get()), "sd_bus_set_fd");
  socket.Release();
  sd_id128_t id{};
  if (isServer) {
    Check(sd_id128_randomize(&id), "sd_id128_randomize");
    Check(sd_bus_set_server(made, true, id), "sd_bus_set_server");
  }
  Check(sd_bus_set_anonymous(made, true), "sd_bus_set_anonymous");
  Check(sd_bus_set_trusted(made, true), "sd_bus_set_trusted");
  Check(sd_bus_negotiate_fds(made, false), "sd_bus_negotiate_fds");
  return bus;
}

Message MakeCall(sd_bus* bus, const char* path, const char* interface, const char* member) {
  sd_bus_message* call = nullptr;
  Check(sd_bus_message_new_method_call(bus, &call, nullptr, path, interface, member), member);
  return Message(call);
}

void Append(sd_bus_message* message, const Buffers& buffers) {
  for (const auto& buffer : buffers) {
    Check(sd_bus_message_append_array(message, 'y', buffer.data(), buffer.size()), "sd_bus_message_append_array");
  }
}

// The bytes of the four arrays that come next, or a negative errno value.
ssize_t ReadBuffers(sd_bus_message* message) {
  std::size_t sum = 0;
  for (int i = 0; i < 4; ++i) {
    const void* bytes;
    std::size_t size;
    const int result = sd_bus_message_read_array(message, 'y', &bytes, &size);
    if (result < 0) return result;
    sum += size;
  }
  return static_cast<ssize_t>(sum);
}

void GiveBack(sd_bus* bus, const char* path, const char* interface, uint32_t number) {
  const Message call = MakeCall(bus, path, interface, "Release");
  Check(sd_bus_message_append_basic(call.get(), 'u', &number), "sd_bus_message_append_basic");
  Check(sd_bus_message_set_expect_reply(call.get(), false), "sd_bus_message_set_expect_reply");
  Check(sd_bus_send(bus, call.get(), nullptr), "sd_bus_send");
}

// Runs a handler's body: no exception may reach the library.
template <typename Body>
int Handle(const Body& body) {
  try {
    body();
    return 1;
  } catch (const std::system_error& error) {
    return -error.code().value();
  } catch (const std::bad_alloc&) {
    return -ENOMEM;
  }
}

// Waits for messages and handles them while `more` says so. Throws when the connection has ended.
template <typename More>
void Process(sd_bus* bus, const More& more) {
  while (more()) {
    const int processed = sd_bus_process(bus, nullptr);
    Check(processed, "sd_bus_process");
    if (processed == 0 && more()) Check(sd_bus_wait(bus, kForEver), "sd_bus_wait");
  }
}

// One connection at the server's end.
class Scanner {
 public:
  explicit Scanner(const Buffers& resultBuffers) : result(resultBuffers) {}

  void Serve(fenk::UniqueFd socket) {
    static const sd_bus_vtable kMethods[] = {
        SD_BUS_VTABLE_START(0), SD_BUS_METHOD("Start", "ayayayayu", "u", OnStart, SD_BUS_VTABLE_UNPRIVILEGED),
        SD_BUS_METHOD("Release", "u", "", OnRelease, SD_BUS_VTABLE_UNPRIVILEGED | SD_BUS_VTABLE_METHOD_NO_REPLY),
        SD_BUS_VTABLE_END};
    bus = MakeBus(std::move(socket), true);
    Check(sd_bus_add_object_vtable(bus.get(), nullptr, kScannerPath, kScannerInterface, kMethods, this),
          "sd_bus_add_object_vtable");
    Check(sd_bus_start(bus.get()), "sd_bus_start");
    Process(bus.get(), [] { return true; });
  }

 private:
  static int OnStart(sd_bus_message* call, void* context, sd_bus_error*) {
    return Handle([&] {
      Scanner& self = *static_cast<Scanner*>(context);
      Check(static_cast<int>(ReadBuffers(call)), "the request's buffers");
      uint32_t callback;
      Check(sd_bus_message_read_basic(call, 'u', &callback), "the request's callback");
      self.handles.insert(++self.lastHandle);
      Check(sd_bus_reply_method_return(call, "u", self.lastHandle), "sd_bus_reply_method_return");
      self.Deliver(callback);
    });
  }

  void Deliver(uint32_t callback) {
    const Message call = MakeCall(bus.get(), kCallbackPath, kCallbackInterface, "Deliver");
    Check(sd_bus_message_append_basic(call.get(), 'u', &callback), "sd_bus_message_append_basic");
    Append(call.get(), result);
    Check(sd_bus_call_async(bus.get(), nullptr, call.get(), OnAnswer, this, 0), "sd_bus_call_async");
    uint64_t cookie;
    Check(sd_bus_message_get_cookie(call.get(), &cookie), "sd_bus_message_get_cookie");
    delivered.emplace(cookie, callback);
  }

  // An error is an answer as well.
  static int OnAnswer(sd_bus_message* answer, void* context, sd_bus_error*) {
    return Handle([&] {
      Scanner& self = *static_cast<Scanner*>(context);
      uint64_t cookie;
      Check(sd_bus_message_get_reply_cookie(answer, &cookie), "sd_bus_message_get_reply_cookie");
      if (const auto call = self.delivered.extract(cookie)) {
        GiveBack(self.bus.get(), kCallbackPath, kCallbackInterface, call.mapped());
      }
    });
  }

  static int OnRelease(sd_bus_message* call, void* context, sd_bus_error*) {
    return Handle([&] {
      uint32_t handle;
      Check(sd_bus_message_read_basic(call, 'u', &handle), "the handle");
      static_cast<Scanner*>(context)->handles.erase(handle);
    });
  }

  const Buffers& result;
  Bus bus;
  std::unordered_set<uint32_t> handles;
  uint32_t lastHandle = 0;
  std::unordered_map<uint64_t, uint32_t> delivered;  // the callbacks whose answer is awaited, by the call's cookie
};

void Serve(const std::string& path, const Payload& payload) {
  const Buffers result = MakeBuffers(payload.result);
  const fenk::UniqueFd listener = MakeSocket();
  const sockaddr_un address = AddressOf(path);
  if (bind(listener.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
      listen(listener.Get(), SOMAXCONN) != 0) {
    throw std::system_error(errno, std::generic_category(), "listen");
  }
  for (;;) {
    const int fd = accept4(listener.Get(), nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) throw std::system_error(errno, std::generic_category(), "accept");
    std::thread([fd, &result] {
      fenk::UniqueFd connection(fd);
      try {
        Scanner(result).Serve(std::move(connection));
      } catch (const std::exception&) {
        // The client has gone.
      }
    }).detach();
  }
}

class SdBusClient final : public ClientEnd {
 public:
  SdBusClient(const std::string& path, const Payload& payload) : request(MakeBuffers(payload.request)) {
    static const sd_bus_vtable kMethods[] = {
        SD_BUS_VTABLE_START(0), SD_BUS_METHOD("Deliver", "uayayayay", "", OnDeliver, SD_BUS_VTABLE_UNPRIVILEGED),
        SD_BUS_METHOD("Release", "u", "", OnRelease, SD_BUS_VTABLE_UNPRIVILEGED | SD_BUS_VTABLE_METHOD_NO_REPLY),
        SD_BUS_VTABLE_END};
    fenk::UniqueFd socket = MakeSocket();
    const sockaddr_un address = AddressOf(path);
    if (connect(socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
      throw std::system_error(errno, std::generic_category(), "connect");
    }
    bus = MakeBus(std::move(socket), false);
    Check(sd_bus_add_object_vtable(bus.get(), nullptr, kCallbackPath, kCallbackInterface, kMethods, this),
          "sd_bus_add_object_vtable");
    Check(sd_bus_start(bus.get()), "sd_bus_start");
  }

  std::size_t Request() override {
    received.reset();
    ++callback;
    const Message call = MakeCall(bus.get(), kScannerPath, kScannerInterface, "Start");
    Append(call.get(), request);
    Check(sd_bus_message_append_basic(call.get(), 'u', &callback), "sd_bus_message_append_basic");
    sd_bus_message* answer = nullptr;
    Check(sd_bus_call(bus.get(), call.get(), 0, nullptr, &answer), "Start");
    const Message reply(answer);
    uint32_t handle;
    Check(sd_bus_message_read_basic(answer, 'u', &handle), "the handle");
    Process(bus.get(), [this] { return givenBack != callback; });
    if (!received) throw std::runtime_error("sd-bus: no result");
    GiveBack(bus.get(), kScannerPath, kScannerInterface, handle);
    return *received;
  }

 private:
  static int OnDeliver(sd_bus_message* call, void* context, sd_bus_error*) {
    return Handle([&] {
      SdBusClient& self = *static_cast<SdBusClient*>(context);
      uint32_t number;
      Check(sd_bus_message_read_basic(call, 'u', &number), "the callback");
      const ssize_t size = ReadBuffers(call);
      Check(size < 0 ? static_cast<int>(size) : 0, "the result's buffers");
      if (number == self.callback) self.received = static_cast<std::size_t>(size);
      Check(sd_bus_reply_method_return(call, nullptr), "sd_bus_reply_method_return");
    });
  }

  static int OnRelease(sd_bus_message* call, void* context, sd_bus_error*) {
    return Handle([&] {
      SdBusClient& self = *static_cast<SdBusClient*>(context);
      Check(sd_bus_message_read_basic(call, 'u', &self.givenBack), "the callback");
    });
  }

  const Buffers request;
  Bus bus;
  uint32_t callback = 0;   // of the request in flight
  uint32_t givenBack = 0;  // the last one that came back
  std::optional<std::size_t> received;
};

std::unique_ptr<ClientEnd> Connect(const std::string& path, const Payload& payload) {
  return std::make_unique<SdBusClient>(path, payload);
}

}  // namespace

Contender SdBusPeer() { return {"sd-bus", Serve, Connect}; }

}  // namespace bench
