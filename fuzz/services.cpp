// The argument slots of the root object, of both services and of request handles, as a client may fill them, while the
// library accepts, refuses, throws, answers and runs out of memory: each callback is given back as often as it was
// taken, and there is a handle exactly where the answer says so.
#include "ipc/services.h"

#include <array>
#include <cstring>

#include "dispatcher/vexo_dispatcher.h"
#include "fuzz/input.h"
#include "marshal/records.h"
#include "platform/vexo_response.h"
#include "service/root_object.h"
#include "tests/scripted_platform.h"

namespace {

using fuzz::Input;
using fuzz::Require;

constexpr ArgCounts kCounts[] = {kRootOpenCounts, kStartDiscoveryScanCounts, kStartRangingScanCounts};

class Client {
 public:
  explicit Client(Input& someInput) : input(someInput) {
    VexoDispatcher::Get();  // makes the library's client
    scripted::TheLibrary().Reset();
    scripted::TheLibrary().onSend = [this](zv_loc_fw::VEXORequest& request) {
      const scripted::FailingMemory::Exempt exempt;
      requests.push_back(request.getRequestId());
    };
  }

  ~Client() {
    while (!handles.empty()) ReleaseHandle();
    for (const uint32_t id : requests) Answer(id);
    for (const scripted::Callback& callback : callbacks) {
      Require(callback.retains == callback.releases, "a callback is given back as often as it was taken");
      Require(callback.deliveries <= callback.retains, "one result a request");
    }
    Require(scripted::TheLibrary().liveRequests == 0, "requests are deleted");
    scripted::TheLibrary().Reset();
    (void)scripted::TakeLog();
  }

  void Step() {
    scripted::Library& library = scripted::TheLibrary();
    switch (input.Below(8)) {
      case 0:
        if (!handles.empty()) ReleaseHandle();
        break;
      case 1:
        if (!requests.empty()) Answer(requests[input.Below(256) % requests.size()]);
        break;
      case 2:
        Answer(input.Take<uint32_t>());
        break;
      case 3:
        library.sendResult = static_cast<int8_t>(input.Take<uint8_t>() % 4);
        library.throws = input.Below(4) == 3;
        library.factoryFails = input.Below(4) == 3;
        break;
      default:
        Invoke();
    }
  }

 private:
  void ReleaseHandle() {
    ObjectRelease(handles.back());
    handles.pop_back();
  }

  void Answer(uint32_t id) {
    zv_loc_fw::VEXODiscoveryScanResponse scan(id);
    zv_loc_fw::VEXORangingScanResponse distances(id);
    const unsigned kind = input.Below(8);
    scripted::TheLibrary().listener->responseReceived(kind == 7       ? nullptr
                                                      : kind % 2 == 0 ? static_cast<zv_loc_fw::VEXOResponse*>(&scan)
                                                                      : &distances);
    if (kind == 7) scripted::TheLibrary().listener->responseReceived(&scan);
  }

  Object TakeObject() {
    switch (input.Below(8)) {
      case 0:
        return {nullptr, nullptr};
      case 1:
        return {nullptr, this};
      case 2:
        return root;
      case 3:
        return services[input.Below(2)];
      case 4:
        return handles.empty() ? Object{nullptr, nullptr} : handles.front();
      default:
        return callbacks[input.Below(3)].AsObject();
    }
  }

  static bool IsDiscovery(uint32_t op, const std::vector<ObjectArg>& args) {
    return ObjectOperation(op) == kStartDiscoveryScan && args[0].buffer.size >= kDiscoveryScanParamsSize &&
           args[4].object.invoke != nullptr;
  }
  static bool IsRanging(uint32_t op, const std::vector<ObjectArg>& args) {
    return ObjectOperation(op) <= kStartPeriodicRangingScan && args[1].buffer.size == sizeof(RangingScanParams) &&
           args[2].object.invoke != nullptr;
  }

  void Invoke() {
    const unsigned which = input.Below(4);
    const bool isHandle = which == 3 && !handles.empty();
    const Object target = which == 0 ? root : which < 3 ? services[which - 1] : handles.empty() ? root : handles.back();
    uint32_t op = input.Below(4) != 0 ? input.Below(2) : input.Take<uint32_t>();
    if (isHandle && ObjectOperation(op) >= OBJECT_OP_RETAIN) op = 0;  // those that this target does not keep count of
    const ArgCounts counts = input.Below(4) != 0 ? kCounts[which % 3] : input.Take<uint32_t>();

    // A slot for each that is announced and a buffer of its very size, at an odd address.
    std::vector<ObjectArg> args;
    std::vector<std::vector<uint8_t>> buffers;
    buffers.reserve(30);
    for (uint32_t i = 0; i < (counts & 15) + (counts >> 4 & 15); ++i) {
      static constexpr uint16_t kSizes[] = {4, 8, 30, 32, 36, 52, 64, 104, 128};
      const unsigned choice = input.Below(16);
      const std::size_t size = choice < std::size(kSizes) ? kSizes[choice] : input.Take<uint16_t>() % 2048;
      std::vector<uint8_t> buffer = input.Bytes(size);
      buffer.resize(size);
      buffer.insert(buffer.begin(), 0);
      buffer.shrink_to_fit();
      buffers.push_back(std::move(buffer));
      args.push_back({.buffer = {size == 0 ? nullptr : buffers.back().data() + 1, size}});
    }
    for (uint32_t i = 0; i < (counts >> 8 & 15); ++i) args.push_back({.object = TakeObject()});
    const std::size_t outputs = args.size();
    for (uint32_t i = 0; i < (counts >> 12 & 15); ++i) args.push_back({.object = {nullptr, this}});
    args.shrink_to_fit();

    (void)scripted::TakeLog();
    const uint32_t lastId = VexoDispatcher::Get().requestIdCounter;
    const unsigned memory = input.Below(64);
    int32_t result;
    {
      const scripted::FailingMemory failing(static_cast<int>(memory), memory < 16 ? 1 : 0);
      result = target.invoke(target.context, op, args.empty() ? nullptr : args.data(), counts);
    }
    Require(result >= OBJECT_OK && result <= OBJECT_ERROR_INVALID, "a result of the contract");
    const bool untouched = outputs == args.size() || args.back().object.context == this;
    if (which == 0 && ObjectOperation(op) >= OBJECT_OP_RETAIN) {
      Require(result == OBJECT_OK && untouched, "the root object is not counted");
    } else if (which == 0) {
      const bool isOpen = ObjectOperation(op) == ROOT_OP_OPEN && counts == kRootOpenCounts && args[0].buffer.size == 4;
      uint32_t id = 0;
      if (isOpen) std::memcpy(&id, args[0].buffer.ptr, sizeof id);
      const bool isKnown = id == SERVICE_ID_DISCOVERY_SCAN || id == SERVICE_ID_RANGING_SCAN;
      Require(result == (isKnown ? OBJECT_OK : OBJECT_ERROR_INVALID), "two IDs open services");
      Require(untouched != isOpen, "the slot is written, or cleared, for whatever is an ID");
    }
    if (which == 1 || which == 2) {
      const bool isScan = counts == kCounts[which] && (which == 1 ? IsDiscovery(op, args) : IsRanging(op, args));
      Require(isScan == (result != OBJECT_ERROR_INVALID), "what is malformed is refused as such, and nothing else");
      Require(isScan != (VexoDispatcher::Get().requestIdCounter == lastId), "a request ID for each that is not");
      Require(isScan || (scripted::TakeLog().empty() && untouched), "what is malformed leaves no trace");
    }
    if (ObjectOperation(op) >= OBJECT_OP_RETAIN) return;
    bool written = false;
    for (std::size_t i = outputs; i < args.size(); ++i) written |= args[i].object.invoke != nullptr;
    Require(written == (result == OBJECT_OK), "an object exactly when the answer is OK");
    if (!written) return;
    Require(counts == kCounts[which % 3] && !isHandle, "counts that are expected");
    if (which == 1 || which == 2) handles.push_back(args.back().object);
  }

  Input& input;
  const Object root = RootObject();
  const Object services[2] = {scripted::Open(root, SERVICE_ID_DISCOVERY_SCAN),
                              scripted::Open(root, SERVICE_ID_RANGING_SCAN)};
  std::array<scripted::Callback, 3> callbacks;
  std::vector<Object> handles;
  std::vector<uint32_t> requests;
};

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  Input input(data, size);
  Client client(input);
  for (int i = 0; i < 64 && !input.AtEnd(); ++i) client.Step();
  return 0;
}
