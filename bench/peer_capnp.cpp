// Cap'n Proto RPC between two parties: an event loop at each end.
#include <capnp/message.h>
#include <capnp/rpc-twoparty.h>
#include <kj/async-io.h>

#include <optional>
#include <stdexcept>

#include "bench/peers.h"
#include "peer_capnp.capnp.h"

namespace bench {
namespace {

namespace schema = capnp_schema;

capnp::Data::Reader DataOf(const std::vector<unsigned char>& buffer) { return {buffer.data(), buffer.size()}; }

// Room for the message with these buffers in one segment: each of them in whole words, and the parameters themselves.
capnp::MessageSize SizeOf(const std::array<std::size_t, 4>& buffers) {
  capnp::MessageSize size{16, 1};
  for (const std::size_t bytes : buffers) size.wordCount += (bytes + sizeof(capnp::word) - 1) / sizeof(capnp::word);
  return size;
}

// Runs `body` with the errors of the library as those of a contender.
template <typename Body>
auto Translated(const Body& body) {
  try {
    return body();
  } catch (const kj::Exception& error) {
    throw std::runtime_error(kj::str("Cap'n Proto: ", error.getDescription()).cStr());
  }
}

class Handle final : public schema::Handle::Server {};

class Scanner final : public schema::Scanner::Server {
 public:
  explicit Scanner(const Payload& payload) : result(MakeBuffers(payload.result)), resultSize(SizeOf(payload.result)) {}

  kj::Promise<void> start(StartContext context) override {
    schema::Callback::Client callback = context.getParams().getCallback();
    context.releaseParams();
    context.getResults(capnp::MessageSize{8, 1}).setHandle(kj::heap<Handle>());
    // The result follows the handle. Dropping the callback gives it back: after the answer, or with the connection.
    kj::evalLast([this, callback]() mutable {
      return Deliver(callback).attach(kj::mv(callback));
    }).detach([](kj::Exception&&) {});
    return kj::READY_NOW;
  }

 private:
  kj::Promise<void> Deliver(schema::Callback::Client& callback) const {
    auto request = callback.deliverRequest(resultSize);
    request.setHeader(DataOf(result[0]));
    request.setMeasurements(DataOf(result[1]));
    request.setInfos(DataOf(result[2]));
    request.setBytes(DataOf(result[3]));
    return request.send().ignoreResult();
  }

  const Buffers result;
  const capnp::MessageSize resultSize;
};

void Serve(const std::string& path, const Payload& payload) {
  Translated([&] {
    kj::AsyncIoContext io = kj::setupAsyncIo();
    capnp::TwoPartyServer server(kj::heap<Scanner>(payload));
    auto address = io.provider->getNetwork().parseAddress(kj::str("unix:", path)).wait(io.waitScope);
    server.listen(*address->listen()).wait(io.waitScope);
  });
}

// Lives until the server gives it back.
class Callback final : public schema::Callback::Server {
 public:
  Callback(std::optional<std::size_t>& receivedBytes, kj::Own<kj::PromiseFulfiller<void>> whenGivenBack)
      : received(receivedBytes), givenBack(kj::mv(whenGivenBack)) {}
  ~Callback() noexcept(false) { givenBack->fulfill(); }

  kj::Promise<void> deliver(DeliverContext context) override {
    const auto result = context.getParams();
    received = result.getHeader().size() + result.getMeasurements().size() + result.getInfos().size() +
               result.getBytes().size();
    return kj::READY_NOW;
  }

 private:
  std::optional<std::size_t>& received;
  kj::Own<kj::PromiseFulfiller<void>> givenBack;
};

// A thread has one event loop, which its clients share.
kj::AsyncIoContext& ThreadsEventLoop() {
  thread_local kj::AsyncIoContext io = kj::setupAsyncIo();
  return io;
}

class CapnpClient final : public ClientEnd {
 public:
  CapnpClient(const std::string& path, const Payload& payload)
      : io(ThreadsEventLoop()),
        stream(io.provider->getNetwork()
                   .parseAddress(kj::str("unix:", path))
                   .wait(io.waitScope)
                   ->connect()
                   .wait(io.waitScope)),
        client(*stream),
        scanner(client.bootstrap().castAs<schema::Scanner>()),
        request(MakeBuffers(payload.request)),
        requestSize(SizeOf(payload.request)) {
    scanner.whenResolved().wait(io.waitScope);
  }
  ~CapnpClient() noexcept override = default;

  std::size_t Request() override {
    return Translated([this] {
      std::optional<std::size_t> received;
      auto givenBack = kj::newPromiseAndFulfiller<void>();
      {
        const schema::Handle::Client handle = Start(received, kj::mv(givenBack.fulfiller));
        givenBack.promise.wait(io.waitScope);
      }
      // The loop writes the message that gives the handle back.
      kj::evalLast([] {}).wait(io.waitScope);
      if (!received) throw std::runtime_error("Cap'n Proto: no result");
      return *received;
    });
  }

 private:
  schema::Handle::Client Start(std::optional<std::size_t>& received,
                               kj::Own<kj::PromiseFulfiller<void>> whenGivenBack) {
    auto start = scanner.startRequest(requestSize);
    start.setParameters(DataOf(request[0]));
    start.setChannels(DataOf(request[1]));
    start.setSsids(DataOf(request[2]));
    start.setMacs(DataOf(request[3]));
    start.setCallback(kj::heap<Callback>(received, kj::mv(whenGivenBack)));
    return start.send().wait(io.waitScope).getHandle();
  }

  kj::AsyncIoContext& io;
  kj::Own<kj::AsyncIoStream> stream;
  capnp::TwoPartyClient client;
  schema::Scanner::Client scanner;
  const Buffers request;
  const capnp::MessageSize requestSize;
};

std::unique_ptr<ClientEnd> Connect(const std::string& path, const Payload& payload) {
  return Translated([&] { return std::make_unique<CapnpClient>(path, payload); });
}

}  // namespace

Contender CapnpPeer() { return {"Cap'n Proto", Serve, Connect}; }

}  // namespace bench
