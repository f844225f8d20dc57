// gRPC over a Unix socket. As it has no callbacks, a client has one stream for all its requests.
#include <grpcpp/grpcpp.h>

#include <chrono>
#include <stdexcept>
#include <unordered_set>

#include "bench/peers.h"
#include "peer_grpc.grpc.pb.h"

namespace bench {
namespace {

namespace schema = grpc_schema;

constexpr int kUnlimited = -1;
// The largest result and the messages around it never wait for the reader to grant more room.
constexpr int kWindowBytes = 8 << 20;
constexpr int kFrameBytes = 1 << 20;

struct IntegerArgument {
  const char* name;
  int value;
};
// Both ends: nothing is probed or looked at beyond what carries messages.
constexpr IntegerArgument kArguments[] = {
    {GRPC_ARG_MAX_RECEIVE_MESSAGE_LENGTH, kUnlimited},
    {GRPC_ARG_MAX_SEND_MESSAGE_LENGTH, kUnlimited},
    {GRPC_ARG_HTTP2_STREAM_LOOKAHEAD_BYTES, kWindowBytes},
    {GRPC_ARG_HTTP2_MAX_FRAME_SIZE, kFrameBytes},
    {GRPC_ARG_HTTP2_BDP_PROBE, 0},
    {GRPC_ARG_MINIMAL_STACK, 1},
};

// One client's stream at the server's end. One operation is under way at a time, and its end calls Step. Owns itself.
class Session {
 public:
  Session(schema::Scanner::AsyncService& asyncService, grpc::ServerCompletionQueue& completions, const Buffers& buffers)
      : service(asyncService), queue(completions), resultBuffers(buffers) {
    service.RequestCarry(&context, &stream, &queue, &queue, this);
  }

  // `ok` is false when the client has gone, or the server is ending.
  void Step(bool ok) {
    if (state == State::kEnding || (state == State::kWaiting && !ok)) {
      delete this;
    } else if (!ok) {
      End(grpc::Status::OK);
    } else if (state == State::kWaiting) {
      new Session(service, queue, resultBuffers);  // for the next client
      Read();
    } else if (state == State::kReading) {
      Received();
    } else if (state == State::kSendingHandle) {
      SendResult();
    } else {
      Read();
    }
  }

 private:
  enum class State { kWaiting, kReading, kSendingHandle, kSending, kEnding };

  void Read() {
    state = State::kReading;
    stream.Read(&in, this);
  }

  void Received() {
    switch (in.message_case()) {
      case schema::FromClient::kStart:
        handles.insert(++lastHandle);
        out.set_handle(lastHandle);
        Send(out, State::kSendingHandle);
        return;
      case schema::FromClient::kAnsweredCallback:
        out.set_released_callback(in.answered_callback());
        Send(out, State::kSending);
        return;
      case schema::FromClient::kReleasedHandle:
        handles.erase(in.released_handle());
        Read();
        return;
      case schema::FromClient::MESSAGE_NOT_SET:
        End({grpc::StatusCode::INVALID_ARGUMENT, "not a message of this version"});
    }
  }

  // The message keeps its memory from one request to the next.
  void SendResult() {
    schema::Result& result = *resultOut.mutable_result();
    result.set_callback(in.start().callback());
    result.set_header(resultBuffers[0].data(), resultBuffers[0].size());
    result.set_measurements(resultBuffers[1].data(), resultBuffers[1].size());
    result.set_infos(resultBuffers[2].data(), resultBuffers[2].size());
    result.set_bytes(resultBuffers[3].data(), resultBuffers[3].size());
    Send(resultOut, State::kSending);
  }

  void Send(const schema::FromServer& message, State sending) {
    state = sending;
    stream.Write(message, this);
  }

  void End(const grpc::Status& status) {
    state = State::kEnding;
    stream.Finish(status, this);
  }

  schema::Scanner::AsyncService& service;
  grpc::ServerCompletionQueue& queue;
  const Buffers& resultBuffers;
  grpc::ServerContext context;
  grpc::ServerAsyncReaderWriter<schema::FromServer, schema::FromClient> stream{&context};
  State state = State::kWaiting;
  std::unordered_set<uint32_t> handles;
  uint32_t lastHandle = 0;
  schema::FromClient in;
  schema::FromServer out, resultOut;
};

// One thread and its completion queue serve everybody: with more of each, or with the library's own threads, requests
// take longer for the hand-overs among them.
void Serve(const std::string& path, const Payload& payload) {
  const Buffers result = MakeBuffers(payload.result);
  schema::Scanner::AsyncService service;
  grpc::ServerBuilder builder;
  builder.AddListeningPort("unix:" + path, grpc::InsecureServerCredentials());
  for (const IntegerArgument& argument : kArguments) builder.AddChannelArgument(argument.name, argument.value);
  builder.RegisterService(&service);
  const std::unique_ptr<grpc::ServerCompletionQueue> queue = builder.AddCompletionQueue();
  const std::unique_ptr<grpc::Server> server = builder.BuildAndStart();
  if (server == nullptr) throw std::runtime_error("gRPC: cannot serve at " + path);
  new Session(service, *queue, result);
  void* session;
  bool ok;
  while (queue->Next(&session, &ok)) static_cast<Session*>(session)->Step(ok);
}

class GrpcClient final : public ClientEnd {
 public:
  GrpcClient(const std::string& path, const Payload& payload) {
    grpc::ChannelArguments arguments;
    for (const IntegerArgument& argument : kArguments) arguments.SetInt(argument.name, argument.value);
    arguments.SetInt(GRPC_ARG_USE_LOCAL_SUBCHANNEL_POOL, 1);  // a connection of its own for each client
    const auto channel = grpc::CreateCustomChannel("unix:" + path, grpc::InsecureChannelCredentials(), arguments);
    if (!channel->WaitForConnected(std::chrono::system_clock::now() + kConnectPatience)) {
      throw std::runtime_error("gRPC: nobody serves at " + path);
    }
    stub = schema::Scanner::NewStub(channel);
    stream = stub->Carry(&context);

    const Buffers buffers = MakeBuffers(payload.request);
    schema::Request& request = *start.mutable_start();
    request.set_parameters(buffers[0].data(), buffers[0].size());
    request.set_channels(buffers[1].data(), buffers[1].size());
    request.set_ssids(buffers[2].data(), buffers[2].size());
    request.set_macs(buffers[3].data(), buffers[3].size());
  }
  ~GrpcClient() override {
    context.TryCancel();
    stream->Finish();
  }

  std::size_t Request() override {
    start.mutable_start()->set_callback(++callback);
    Send(start);
    Receive(in, schema::FromServer::kHandle);
    const uint32_t handle = in.handle();
    Receive(resultIn, schema::FromServer::kResult);
    const schema::Result& result = resultIn.result();
    out.set_answered_callback(result.callback());
    Send(out);
    Receive(in, schema::FromServer::kReleasedCallback);
    out.set_released_handle(handle);
    Send(out);
    return result.header().size() + result.measurements().size() + result.infos().size() + result.bytes().size();
  }

 private:
  static constexpr std::chrono::milliseconds kConnectPatience{300};

  void Send(const schema::FromClient& message) {
    if (!stream->Write(message)) throw std::runtime_error("gRPC: the stream has ended");
  }

  void Receive(schema::FromServer& message, schema::FromServer::MessageCase expected) {
    if (!stream->Read(&message)) throw std::runtime_error("gRPC: the stream has ended");
    if (message.message_case() != expected) throw std::runtime_error("gRPC: a message out of turn");
  }

  std::unique_ptr<schema::Scanner::Stub> stub;
  grpc::ClientContext context;
  std::unique_ptr<grpc::ClientReaderWriter<schema::FromClient, schema::FromServer>> stream;
  uint32_t callback = 0;
  // Messages keep their memory from one request to the next.
  schema::FromClient start, out;
  schema::FromServer in, resultIn;
};

std::unique_ptr<ClientEnd> Connect(const std::string& path, const Payload& payload) {
  return std::make_unique<GrpcClient>(path, payload);
}

}  // namespace

Contender GrpcPeer() { return {"gRPC", Serve, Connect}; }

}  // namespace bench
