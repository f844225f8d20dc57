// How often the daemon asks for memory for a request, and what for; and what happens when there is none.
#include <gtest/gtest.h>

#include <cstddef>
#include <deque>
#include <functional>
#include <vector>

#include "dispatcher/vexo_dispatcher.h"
#include "ipc/services.h"
#include "marshal/records.h"
#include "service/root_object.h"
#include "tests/scripted_platform.h"
#include "tests/test_measurements.h"

namespace {

using scripted::TheLibrary;
using Bytes = std::vector<uint8_t>;

// Which of a road's allocations fail.
struct Fault {
  int skip = 0;
  int failures = 0;
};

int CountAllocations(const std::function<void()>& road, const Fault& fault = {}) {
  const scripted::FailingMemory memory(fault.skip, fault.failures);
  road();
  return memory.Allocations();
}

// Takes the road once for each run of 1, 2, 3 and 4 allocations that can fail, and of all from one on. It answers how
// many it made.
void SweepFaults(const std::function<int(const Fault&)>& road) {
  for (const int failures : {1, 2, 3, 4, scripted::kForEver}) {
    for (Fault fault{0, failures};; ++fault.skip) {
      SCOPED_TRACE(testing::Message() << fault.skip << " allocations succeed, then " << failures << " fail");
      if (road(fault) <= fault.skip) break;
    }
  }
}

struct Operation {
  uint32_t serviceId;
  uint32_t code;
  ArgCounts counts;
};
constexpr Operation kDiscovery = {SERVICE_ID_DISCOVERY_SCAN, kStartDiscoveryScan, kStartDiscoveryScanCounts};
constexpr Operation kRanging = {SERVICE_ID_RANGING_SCAN, kStartRangingScan, kStartRangingScanCounts};
constexpr Operation kPeriodicRanging = {SERVICE_ID_RANGING_SCAN, kStartPeriodicRangingScan, kStartRangingScanCounts};

// A client's request, each step of which answers how many allocations it took.
class Request {
 public:
  int Start(const Operation& operation, const std::vector<Bytes>& buffers, const Fault& fault = {}) {
    std::vector<ObjectArg> args;
    for (const Bytes& buffer : buffers) args.push_back(scripted::InputBuffer(buffer.data(), buffer.size()));
    args.push_back({.object = callback.AsObject()});
    args.push_back({.object = {nullptr, nullptr}});
    const Object service = scripted::Open(RootObject(), operation.serviceId);
    const int allocations = CountAllocations(
        [&] { result = service.invoke(service.context, operation.code, args.data(), operation.counts); }, fault);
    handle = args.back().object;
    return allocations;
  }
  int LetGo() {
    return CountAllocations([&] { ObjectRelease(handle); });
  }
  bool HasHandle() const { return handle.invoke != nullptr; }

  scripted::Callback callback;
  int32_t result = OBJECT_ERROR;

 private:
  Object handle = {nullptr, nullptr};
};

Bytes Mode(uint8_t mode) {
  Bytes params(kDiscoveryScanParamsSize);
  params[offsetof(DiscoveryScanParams, mode)] = mode;
  return params;
}

class Allocations : public testing::Test {
 protected:
  void SetUp() override {
    TheLibrary().Reset();
    Request first;  // makes the dispatcher, and its table's array, which is kept
    first.Start(kDiscovery, {Mode(0), {}, {}, {}});
    first.LetGo();
  }
};

const Bytes kChannel(4), kSsid(36), kAddress(8), kNode(52), kPeriodicNode(64), kTs(8);
const struct RequestCase {
  const char* name;
  Operation operation;
  std::vector<Bytes> buffers;
  int allocations;
} kRequests[] = {
    // The entry in the table and the handle: the one can outlive the other.
    {"fresh", kDiscovery, {Mode(0), {}, {}, {}}, 2},
    {"fresh, the other kind", kDiscovery, {Mode(1), {}, {}, {}}, 2},
    {"cache only", kDiscovery, {Mode(2), {}, {}, {}}, 2},
    {"cache with fallback", kDiscovery, {Mode(3), {}, {}, {}}, 2},
    // And the list's block, for 64 entries; a second one, twice as large, for more.
    {"a channel", kDiscovery, {Mode(0), kChannel, {}, {}}, 2 + 1},
    {"64 channels", kDiscovery, {Mode(0), Bytes(64 * 4), {}, {}}, 2 + 1},
    {"65 channels", kDiscovery, {Mode(0), Bytes(65 * 4), {}, {}}, 2 + 2},
    // And the list's copy in the library's request, which the library may keep.
    {"an SSID", kDiscovery, {Mode(0), {}, kSsid, {}}, 2 + 2},
    {"an address", kDiscovery, {Mode(0), {}, {}, kAddress}, 2 + 2},
    {"one of each", kDiscovery, {Mode(0), kChannel, kSsid, kAddress}, 2 + 1 + 2 + 2},
    // And the library's request itself, which the service makes here.
    {"ranging, no node", kRanging, {{}, kTs}, 3},
    {"periodic ranging, no node", kPeriodicRanging, {{}, kTs}, 3},
    {"ranging, a node", kRanging, {kNode, kTs}, 3 + 2},
    {"periodic ranging, a node", kPeriodicRanging, {kPeriodicNode, kTs}, 3 + 2},
};

// Whatever there is no memory for: the request is sent, perhaps with less in its lists, or refused without a trace.
TEST_F(Allocations, ThatFailRefuseARequestOrShortenItsLists) {
  for (const auto& c : kRequests) {
    SCOPED_TRACE(c.name);
    SweepFaults([&](const Fault& fault) {
      Request request, next;
      const int sentBefore = TheLibrary().sendCalls;
      const int allocations = request.Start(c.operation, c.buffers, fault);
      const bool sent = request.result == OBJECT_OK;
      EXPECT_TRUE(sent || request.result == OBJECT_ERROR);
      EXPECT_EQ(TheLibrary().sendCalls, sentBefore + sent);
      EXPECT_EQ(TheLibrary().liveRequests, 0);
      EXPECT_EQ(request.HasHandle(), sent);
      EXPECT_EQ(request.callback.retains, sent);
      if (sent) request.LetGo();
      EXPECT_EQ(request.callback.releases, sent);
      EXPECT_EQ(next.Start(c.operation, c.buffers), c.allocations);
      EXPECT_EQ(next.result, OBJECT_OK);
      EXPECT_EQ(next.LetGo(), 0) << "an abort needs no memory";
      return allocations;
    });
  }
}

}  // namespace
