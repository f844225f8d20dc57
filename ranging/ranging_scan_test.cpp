#include "ranging/ranging_scan.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "dispatcher/vexo_dispatcher.h"
#include "ipc/services.h"
#include "marshal/records.h"
#include "tests/scripted_platform.h"

namespace {

using scripted::TheLibrary;
using Log = std::vector<std::string>;
using Bytes = std::vector<uint8_t>;

struct Invocation : scripted::Invocation {
  Bytes nodes;
  Bytes params = Bytes(8);

  int32_t Run(uint32_t op) { return Invoke(CreateVexoRangingScan(), op, kStartRangingScanCounts, {nodes, params}); }
};

class RangingScan : public testing::Test {
 protected:
  void SetUp() override {
    counter = &VexoDispatcher::Get().requestIdCounter;
    TheLibrary().Reset();
    TheLibrary().onSend = [this](zv_loc_fw::VEXORequest& request) {
      sent = {.id = request.getRequestId()};
      const auto note = [this](const auto& ranging) {
        sent.ts = ranging.ts;
        for (uint32_t i = 0; i < ranging.nodes.count; ++i) {
          using Node = std::remove_cvref_t<decltype(ranging.nodes[i])>;
          static_cast<Node&>(sent.nodes.emplace_back()) = ranging.nodes[i];
        }
      };
      if (const auto* once = dynamic_cast<zv_loc_fw::VEXORangingScanRequest*>(&request)) return note(*once);
      sent.periodic = true;
      note(dynamic_cast<zv_loc_fw::VEXOPeriodicRangingScanRequest&>(request));
    };
    scripted::TakeLog();
  }
  std::atomic<uint32_t>* counter;
  // What the library was sent, whichever of the two kinds it was.
  struct {
    uint32_t id = 0;
    int64_t ts = 0;
    bool periodic = false;
    std::vector<zv_loc_fw::VEXOPeriodicNodeInfo> nodes = {};
  } sent;
};

// Its members in their order, a value of its own in each.
const PeriodicRangingNodeRecord kFull = {
    {0x010203, 0x040506, -1, 2, 3, 5, 0x0708, 0x090A, 3, 4, 3, -4, 0xB1, 0xB2, {0xFF, 0xFF}},
    5,
    -6,
    0xB3,
    {0xFF, 0xFF, 0xFF}};

TEST_F(RangingScan, EveryFieldOfANodeReachesTheMemberOfItsName) {
  const zv_loc_fw::VEXOPeriodicNodeInfo asMade;
  for (const uint32_t op : {0x30000u | kStartRangingScan, 0x10000u | kStartPeriodicRangingScan}) {
    const bool periodic = (op & 1) != 0;
    Invocation invocation;
    invocation.nodes = periodic ? scripted::BytesOf(kFull) : scripted::BytesOf(kFull.node);
    invocation.params = scripted::BytesOf(int64_t{-5'000'000'000});
    EXPECT_EQ(invocation.Run(op), OBJECT_OK);
    EXPECT_TRUE(invocation.HandleWritten());
    EXPECT_EQ(sent.id, *counter);
    EXPECT_EQ(sent.periodic, periodic);
    EXPECT_EQ(sent.ts, -5'000'000'000);
    ASSERT_EQ(sent.nodes.size(), 1u);
    const zv_loc_fw::VEXOPeriodicNodeInfo& node = sent.nodes[0];
    EXPECT_EQ(node.address.getHi24(), 0x040506);
    EXPECT_EQ(node.address.getLo24(), 0x010203);
    EXPECT_EQ(node.secondAddress.getHi24(), 0x090A);
    EXPECT_EQ(node.secondAddress.getLo24(), 0x0708);
    EXPECT_EQ(std::vector<int>({node.value1, node.value2, node.value3, node.value4}), std::vector<int>({-1, 2, 3, -4}));
    EXPECT_EQ(std::vector<uint32_t>({node.choice1, node.choice2, node.choice3, node.choice4}),
              std::vector<uint32_t>({5, 3, 4, 3}));
    EXPECT_EQ(node.byte1, 0xB1);
    EXPECT_EQ(node.byte2, 0xB2);
    EXPECT_EQ(node.unset1, asMade.unset1);
    EXPECT_EQ(node.unset2, asMade.unset2);
    EXPECT_EQ(node.byte3, periodic ? 0xB3 : asMade.byte3);
    EXPECT_EQ(node.value5, periodic ? 5 : asMade.value5);
    EXPECT_EQ(node.value6, periodic ? -6 : asMade.value6);
  }
}

TEST_F(RangingScan, AChoiceOutOfItsRangeBecomesItsDefault) {
  const struct {
    uint32_t given;
    uint32_t choices[4];
  } kCases[] = {{0, {0, 0, 0, 0}}, {1, {1, 1, 1, 1}},          {2, {2, 2, 2, 2}},
                {3, {3, 3, 3, 3}}, {4, {4, 1, 4, 0}},          {5, {5, 1, 0, 0}},
                {6, {0, 1, 0, 0}}, {0x80000001, {0, 1, 0, 0}}, {0xFFFFFFFF, {0, 1, 0, 0}}};
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.given);
    RangingNodeRecord record = {};
    record.choice1 = record.choice2 = record.choice3 = record.choice4 = c.given;
    Invocation invocation;
    invocation.nodes = scripted::BytesOf(record);
    EXPECT_EQ(invocation.Run(kStartRangingScan), OBJECT_OK);
    ASSERT_EQ(sent.nodes.size(), 1u);
    const auto& node = sent.nodes[0];
    EXPECT_EQ(std::vector<uint32_t>({node.choice1, node.choice2, node.choice3, node.choice4}),
              std::vector<uint32_t>(c.choices, c.choices + 4));
  }
}

TEST_F(RangingScan, TakesTheWholeRecordsInBufferOrder) {
  const struct {
    uint32_t op;
    size_t size;
    size_t nodes;
  } kCases[] = {{0, 0, 0},        {0, 51, 0}, {0, 100, 1}, {0, 104, 2},
                {0, 52 * 70, 70}, {1, 63, 0}, {1, 100, 1}, {1, 128, 2}};
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.size);
    Invocation invocation;
    invocation.nodes.resize(c.size);
    const size_t recordSize = c.op == 0 ? 52 : 64;
    for (size_t i = 0; i < c.size; ++i)
      invocation.nodes[i] = static_cast<uint8_t>(i % recordSize == 0 ? i / recordSize : 0);
    EXPECT_EQ(invocation.Run(c.op), OBJECT_OK);
    ASSERT_EQ(sent.nodes.size(), c.nodes);
    for (size_t i = 0; i < c.nodes; ++i) EXPECT_EQ(sent.nodes[i].address.getLo24(), static_cast<int>(i));
  }
}

TEST_F(RangingScan, EachOperationLogsItsOutcome) {
  for (const int refused : {0, 1}) {
    TheLibrary().sendResult = refused;
    for (const char* log :
         {"StartRangingScan ID 41 ts 30064771073 returning ", "StartPeriodicRangingScan returning "}) {
      *counter = 40;
      scripted::TakeLog();
      Invocation invocation;
      invocation.params = scripted::BytesOf(int64_t{0x7'0000'0001});
      invocation.Run(std::string(log).starts_with("StartPeriodic") ? kStartPeriodicRangingScan : kStartRangingScan);
      EXPECT_EQ(scripted::TakeLog(), Log{"D kesd RangingScan: " + std::string(log) + std::to_string(refused) + "\n"});
    }
  }
}

}  // namespace
