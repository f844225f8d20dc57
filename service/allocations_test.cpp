// How often the daemon asks for memory for a request, and what for; and what happens when there is none.
#include <gtest/gtest.h>

#include <cstddef>
#include <utility>
#include <vector>

#include "dispatcher/vexo_dispatcher.h"
#include "ipc/services.h"
#include "marshal/records.h"
#include "service/root_object.h"
#include "tests/scripted_platform.h"

namespace {

using scripted::TheLibrary;
using Bytes = std::vector<uint8_t>;

Bytes Mode(uint8_t mode) {
  Bytes params(kDiscoveryScanParamsSize);
  params[offsetof(DiscoveryScanParams, mode)] = mode;
  return params;
}

const Bytes kChannel(4), kSsid(36), kAddress(8), kNode(52), kPeriodicNode(64), kTs(8);
const struct RequestCase {
  const char* name;
  uint32_t operation;
  std::vector<Bytes> buffers;  // four for a discovery
  int allocations;
} kRequests[] = {
    // The entry in the table and the handle: the one can outlive the other.
    {"fresh", 0, {Mode(0), {}, {}, {}}, 2},
    {"cache only", 0, {Mode(2), {}, {}, {}}, 2},
    {"cache with fallback", 0, {Mode(3), {}, {}, {}}, 2},
    // And the list's block, for 64 entries; a second one, twice as large, for more.
    {"64 channels", 0, {Mode(0), Bytes(64 * 4), {}, {}}, 2 + 1},
    {"65 channels", 0, {Mode(0), Bytes(65 * 4), {}, {}}, 2 + 2},
    // And the list's copy in the library's request, which the library may keep.
    {"one of each", 0, {Mode(0), kChannel, kSsid, kAddress}, 2 + 1 + 2 + 2},
    // And the library's request itself, which the service makes here.
    {"ranging, no node", 0, {{}, kTs}, 3},
    {"ranging, a node", 0, {kNode, kTs}, 3 + 2},
    {"periodic ranging, a node", 1, {kPeriodicNode, kTs}, 3 + 2},
};

int32_t Send(const RequestCase& c, scripted::Invocation& invocation) {
  static const Object services[] = {scripted::Open(RootObject(), SERVICE_ID_DISCOVERY_SCAN),
                                    scripted::Open(RootObject(), SERVICE_ID_RANGING_SCAN)};
  const bool ranging = c.buffers.size() == 2;
  return invocation.Invoke(services[ranging], c.operation,
                           ranging ? kStartRangingScanCounts : kStartDiscoveryScanCounts, c.buffers);
}

// Whatever there is no memory for: the request is sent, perhaps with less in its lists, or refused without a trace.
TEST(Allocations, ThatFailRefuseARequestOrShortenItsLists) {
  VexoDispatcher::Get();
  TheLibrary().Reset();
  scripted::Invocation first;  // makes the table's array, which is kept
  Send(kRequests[0], first);
  for (const RequestCase& c : kRequests) {
    for (const int failures : {1, 2, 3, 4, scripted::kForEver}) {
      for (int skip = 0, allocations = 0; skip <= allocations; ++skip) {
        SCOPED_TRACE(testing::Message() << c.name << ": allocations: " << skip << " succeed, then " << failures
                                        << " fail");
        scripted::Invocation request, next;
        request.skip = skip;
        request.failures = failures;
        const int sentBefore = TheLibrary().sendCalls;
        const int32_t result = Send(c, request);
        allocations = request.allocations;
        const bool sent = result == OBJECT_OK;
        EXPECT_TRUE(sent || result == OBJECT_ERROR);
        EXPECT_EQ(TheLibrary().sendCalls, sentBefore + sent);
        EXPECT_EQ(TheLibrary().liveRequests, 0);
        EXPECT_EQ(request.HandleWritten(), sent);
        EXPECT_EQ(request.callback.retains, sent);
        if (sent) ObjectRelease(std::exchange(request.handle, {nullptr, nullptr}));
        EXPECT_EQ(request.callback.releases, sent);
        EXPECT_EQ(Send(c, next), OBJECT_OK);
        EXPECT_EQ(next.allocations, c.allocations);
      }
    }
  }
}

}  // namespace
