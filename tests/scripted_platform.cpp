#include "tests/scripted_platform.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <mutex>
#include <stdexcept>
#include <utility>

#include "ipc/services.h"
#include "tests/log_stand_in.h"

namespace {

using scripted::FailingMemory;

std::mutex logMutex;
std::vector<std::string> logLines;

struct Client : zv_loc_fw::VEXOClient {};

}  // namespace

void testing_log::Write(char level, const char* tag, const char* text) {
  if (scripted::TheLibrary().forgets) return;
  const FailingMemory::Exempt exempt;
  const std::lock_guard<std::mutex> lock(logMutex);
  logLines.push_back(std::string(1, level) + " " + tag + " " + text);
}

namespace scripted {

std::vector<std::string> TakeLog() {
  const std::lock_guard<std::mutex> lock(logMutex);
  return std::exchange(logLines, {});
}

Library& TheLibrary() {
  static Library library;
  return library;
}

void Library::Reset() {
  createFails = createThrows = factoryFails = throws = forgets = false;
  sendResult = 0;
  onSend = nullptr;
  sendCalls = 0;
  factoryCalls.clear();
}

DiscoveryRequest::~DiscoveryRequest() { --TheLibrary().liveRequests; }

int32_t Callback::Invoke(void* context, uint32_t op, ObjectArg* args, uint32_t counts) {
  auto& self = *static_cast<Callback*>(context);
  if (op == OBJECT_OP_RETAIN || op == OBJECT_OP_RELEASE) {
    if (args != nullptr || counts != 0) std::abort();  // never in the contract
    ++(op == OBJECT_OP_RETAIN ? self.retains : self.releases);
    return OBJECT_ERROR;
  }
  const FailingMemory::Exempt exempt;
  self.op = op;
  self.counts = counts;
  self.buffers.clear();
  self.isNull.clear();
  for (uint32_t i = 0; i < (counts & 0xF); ++i) {
    const auto* bytes = static_cast<const uint8_t*>(args[i].buffer.ptr);
    self.buffers.emplace_back(bytes, bytes + args[i].buffer.size);
    self.isNull.push_back(bytes == nullptr);
  }
  ++self.deliveries;
  if (self.onDelivery) self.onDelivery();
  return OBJECT_ERROR;  // which the daemon has to ignore
}

ObjectArg InputBuffer(const void* data, uint64_t size) { return {.buffer = {const_cast<void*>(data), size}}; }

Object Open(Object root, uint32_t serviceId) {
  ObjectArg args[2] = {InputBuffer(&serviceId, sizeof serviceId), {}};
  const auto open = [&] {
    const FailingMemory none(0);
    return root.invoke(root.context, ROOT_OP_OPEN, args, kRootOpenCounts);
  };
  EXPECT_EQ(open(), OBJECT_OK);
  return args[1].object;
}

int32_t Invocation::Invoke(Object service, uint32_t op, uint32_t counts, std::vector<std::vector<uint8_t>> buffers) {
  std::vector<ObjectArg> args;
  for (std::vector<uint8_t>& buffer : buffers) {
    buffer.insert(buffer.begin(), 0);
    buffer.shrink_to_fit();
    args.push_back(InputBuffer(buffer.data() + 1, buffer.size() - 1));
  }
  args.push_back({.object = callback.AsObject()});
  args.push_back({.object = handle});
  const FailingMemory memory(skip, failures);
  const int32_t result = service.invoke(service.context, op, args.data(), counts);
  allocations = memory.Allocations();
  handle = args.back().object;
  return result;
}

Invocation::~Invocation() {
  if (HandleWritten()) ObjectRelease(handle);
}

}  // namespace scripted

namespace zv_loc_fw {

VEXOClient* VEXOClient::createInstance(VEXOClientListener* listener, bool flag, eLogLevel logLevel) {
  scripted::Library& library = scripted::TheLibrary();
  if (library.createThrows) throw std::runtime_error("told to");
  if (library.createFails) return nullptr;
  library.listener = listener;
  library.createdWith = "flag=" + std::to_string(flag) + " level=" + std::to_string(logLevel);
  return new Client;
}

int32_t VEXOClient::sendRequest(VEXORequest* request) {
  scripted::Library& library = scripted::TheLibrary();
  ++library.sendCalls;
  if (library.throws) throw std::runtime_error("told to");
  if (library.onSend) library.onSend(*request);
  return library.sendResult;
}

namespace {

std::string Where(eBand band) { return "band=" + std::to_string(band); }
std::string Where(const vector<VEXOChannelInfo>& channels) {
  std::string text = "channels=";
  for (uint32_t i = 0; i < channels.count; ++i) text += (i == 0 ? "" : ",") + std::to_string(channels[i].channel);
  return text;
}

template <typename Place, typename... Values>
VEXODiscoveryScanRequest* Make(unsigned int id, const char* kind, const Place& place, Values... values) {
  const FailingMemory::Exempt exempt;
  scripted::Library& library = scripted::TheLibrary();
  if (!library.forgets) {
    std::string& call = library.factoryCalls.emplace_back(kind + Where(place));
    ((call += " " + std::to_string(values)), ...);
  }
  if (library.factoryFails) return nullptr;
  ++library.liveRequests;
  return new scripted::DiscoveryRequest(id);
}

}  // namespace

using Channels = vector<VEXOChannelInfo>;
using Request = VEXODiscoveryScanRequest;

// The calls are noted as "KIND WHERE" and the remaining arguments in their order.
Request* Request::createFreshScanRequest(unsigned id, eBand band, eScanType type, unsigned age, long timeout,
                                         eRequestMode mode, bool fresh) {
  return Make(id, "fresh ", band, type, age, timeout, mode, fresh);
}
Request* Request::createFreshScanRequest(unsigned id, Channels& channels, eScanType type, unsigned age, long timeout,
                                         eRequestMode mode, bool fresh) {
  return Make(id, "fresh ", channels, type, age, timeout, mode, fresh);
}
Request* Request::createCacheOnlyRequest(unsigned id, eBand band, unsigned age, long timeout, bool cache) {
  return Make(id, "cache ", band, age, timeout, cache);
}
Request* Request::createCacheOnlyRequest(unsigned id, Channels& channels, unsigned age, long timeout, bool cache) {
  return Make(id, "cache ", channels, age, timeout, cache);
}
Request* Request::createCacheFallbackRequest(unsigned id, eBand band, eScanType type, unsigned age, unsigned fallback,
                                             long timeout, bool cache, bool fresh) {
  return Make(id, "fallback ", band, type, age, fallback, timeout, cache, fresh);
}
Request* Request::createCacheFallbackRequest(unsigned id, Channels& channels, eScanType type, unsigned age,
                                             unsigned fallback, long timeout, bool cache, bool fresh) {
  return Make(id, "fallback ", channels, type, age, fallback, timeout, cache, fresh);
}

}  // namespace zv_loc_fw
