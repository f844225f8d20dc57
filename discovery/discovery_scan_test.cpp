#include "discovery/discovery_scan.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
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
  DiscoveryScanParams params = {};
  Bytes channels, ssids, macs;

  int32_t Run(uint32_t op = kStartDiscoveryScan) {
    Bytes paramsBytes = scripted::BytesOf(params);
    paramsBytes.resize(kDiscoveryScanParamsSize);
    return Invoke(CreateVexoDiscoveryScan(), op, kStartDiscoveryScanCounts, {paramsBytes, channels, ssids, macs});
  }
};

DiscoverySsidEntry Ssid(uint16_t length, const char* octets) {
  DiscoverySsidEntry entry = {.reserved = 0xFFFF, .length = length, .ssid = {}};
  std::memcpy(entry.ssid, octets, std::min(std::strlen(octets), sizeof(entry.ssid)));
  return entry;
}

class DiscoveryScan : public testing::Test {
 protected:
  void SetUp() override {
    counter = &VexoDispatcher::Get().requestIdCounter;
    TheLibrary().Reset();
    scripted::TakeLog();
  }
  void TearDown() override { EXPECT_EQ(TheLibrary().liveRequests, 0) << "every request is deleted"; }
  std::atomic<uint32_t>* counter;
};

TEST_F(DiscoveryScan, MapsEachModeToItsFactory) {
  // Timeout, scan type, mode, age filter, fallback parameter, band, cache and fresh flag.
  const DiscoveryScanParams kFull = {0x1'0000'0001, 7, 0, 0xFFFFFFFF, 22, 7, 0x80, 0, {}};
  const char kChannelLog[] = "D kesd DiscoveryScan: createFreshScanRequest (channel) mode ";
  const char kBandLog[] = "D kesd DiscoveryScan: createFreshScanRequest (band ";
  const struct {
    uint32_t mode;
    bool channels;
    const char* call;
    std::string log;
  } kCases[] = {
      {0, false, "fresh band=2 1 4294967295 4294967297 0 0",
       kBandLog + std::string("2) mode 0 scan_type 1 age_filter -1 timeout 1\n")},
      {1, false, "fresh band=2 1 4294967295 4294967297 1 0",
       kBandLog + std::string("2) mode 1 scan_type 1 age_filter -1 timeout 1\n")},
      {0, true, "fresh channels=6,4000000000 1 4294967295 4294967297 0 0", kChannelLog + std::string("0\n")},
      {1, true, "fresh channels=6,4000000000 1 4294967295 4294967297 1 0", kChannelLog + std::string("1\n")},
      {2, false, "cache band=2 4294967295 4294967297 1", ""},
      {2, true, "cache channels=6,4000000000 4294967295 4294967297 1", ""},
      {3, false, "fallback band=2 1 4294967295 22 4294967297 1 0", ""},
      {3, true, "fallback channels=6,4000000000 1 4294967295 22 4294967297 1 0", ""},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.call);
    TheLibrary().factoryCalls.clear();
    scripted::TakeLog();
    Invocation invocation;
    invocation.params = kFull;
    invocation.params.mode = c.mode;
    if (c.channels) {
      invocation.channels =
          scripted::BytesOf(uint32_t{6}, uint32_t{4000000000}, uint16_t{1});  // 10 bytes: two channels
    } else {
      invocation.channels = {6, 0, 0};  // less than one
    }
    EXPECT_EQ(invocation.Run(0x10000), OBJECT_OK) << "bit 16 of the operation is ignored";
    EXPECT_TRUE(invocation.HandleWritten());
    EXPECT_EQ(TheLibrary().factoryCalls, std::vector<std::string>{c.call});
    Log log = {c.log, "D kesd DiscoveryScan: StartScan returning 0\n"};
    if (c.log.empty()) log.erase(log.begin());
    EXPECT_EQ(scripted::TakeLog(), log);
  }
}

TEST_F(DiscoveryScan, MapsBandAndScanTypeAndFlags) {
  for (const uint32_t value : {0u, 1u, 2u, 3u, 0x80000000u}) {
    TheLibrary().factoryCalls.clear();
    Invocation invocation;
    invocation.params.band = invocation.params.scan_type = value;
    invocation.params.fresh_flag = static_cast<uint8_t>(value);
    invocation.Run();
    EXPECT_EQ(TheLibrary().factoryCalls[0], "fresh band=" + std::to_string(std::min(value, 2u)) + " " +
                                                std::to_string(value != 0) + " 0 0 0 " +
                                                std::to_string((value & 0xFF) != 0));
  }
}

TEST_F(DiscoveryScan, AttachesTheWholeEntriesOfItsLists) {
  Invocation invocation;
  const std::string octets = "0123456789abcdef0123456789ABCDEF";
  invocation.ssids = scripted::BytesOf(Ssid(40, octets.c_str()), Ssid(3, "a\0b"), uint32_t{1});
  invocation.macs = scripted::BytesOf(DiscoveryMacEntry{.lo24 = 0x010203, .hi24 = 0xF0F1F2}, uint32_t{0xFFFFFFFF});
  TheLibrary().onSend = [&](zv_loc_fw::VEXORequest& sent) {
    auto& request = dynamic_cast<zv_loc_fw::VEXODiscoveryScanRequest&>(sent);
    ASSERT_EQ(request.ssids.count, 2u);
    unsigned char ssid[32];
    int length = 0;
    request.ssids[0].getSSID(ssid, &length);
    EXPECT_EQ(std::string(ssid, ssid + length), octets);
    request.ssids[1].getSSID(ssid, &length);
    EXPECT_EQ(length, 3);
    ASSERT_EQ(request.macAddresses.count, 1u);
    EXPECT_EQ(request.macAddresses[0].getHi24(), 0xF0F1F2);
    EXPECT_EQ(request.macAddresses[0].getLo24(), 0x010203);
  };
  EXPECT_EQ(invocation.Run(), OBJECT_OK);

  Invocation partial;
  partial.ssids = Bytes(35, 1);
  partial.macs = Bytes(7, 1);
  TheLibrary().onSend = [](zv_loc_fw::VEXORequest& sent) {
    auto& request = dynamic_cast<zv_loc_fw::VEXODiscoveryScanRequest&>(sent);
    EXPECT_EQ(request.ssids.capacity + request.macAddresses.capacity, 0u) << "lists are left alone";
  };
  EXPECT_EQ(partial.Run(), OBJECT_OK);
  EXPECT_EQ(TheLibrary().sendCalls, 2);
}

TEST_F(DiscoveryScan, ARequestThatCannotBeMadeOrSentUsesUpItsId) {
  const struct {
    const char* name;
    uint32_t mode;
    bool factoryFails;
    int32_t sendResult;
    bool throws;
  } kCases[] = {{"unknown mode", 4, false, 0, false},
                {"largest mode", 0xFFFFFFFF, false, 0, false},
                {"no request from the factory", 2, true, 0, false},
                {"refused", 2, false, -7, false},
                {"a library that throws", 2, false, 0, true}};
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    TheLibrary().Reset();
    TheLibrary().factoryFails = c.factoryFails;
    TheLibrary().sendResult = c.sendResult;
    TheLibrary().throws = c.throws;
    const uint32_t before = *counter;
    scripted::TakeLog();
    Invocation invocation;
    invocation.params.mode = c.mode;
    EXPECT_EQ(invocation.Run(), OBJECT_ERROR);
    EXPECT_EQ(*counter, before + 1);
    EXPECT_EQ(scripted::TakeLog(), Log{"D kesd DiscoveryScan: StartScan returning 1\n"});
    EXPECT_FALSE(invocation.HandleWritten());
    EXPECT_EQ(invocation.callback.retains, 0);
  }
}

// In a process of its own, where no client was made yet.
TEST(DiscoveryScanDeathTest, NothingThatTheLibraryThrowsLeavesTheInvocation) {
  EXPECT_EXIT(
      {
        TheLibrary().createThrows = true;
        const int32_t first = Invocation().Run();
        TheLibrary().createThrows = false;
        std::exit(first == OBJECT_ERROR && Invocation().Run() == OBJECT_OK ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
}

TEST_F(DiscoveryScan, GoesOnWithTheEntriesThatFoundMemory) {
  scripted::Callback callback;
  const DiscoveryScanParams params = {};
  const uint32_t channel = 6;
  ObjectArg args[6] = {scripted::InputBuffer(&params, kDiscoveryScanParamsSize),
                       scripted::InputBuffer(&channel, sizeof channel)};
  args[4].object = callback.AsObject();
  {
    const scripted::FailingMemory noMemory(0, 1);
    EXPECT_EQ(CreateVexoDiscoveryScan().invoke(nullptr, 0, args, kStartDiscoveryScanCounts), OBJECT_OK);
  }
  EXPECT_EQ(TheLibrary().factoryCalls[0].substr(0, 12), "fresh band=0") << "no channel is left";
  EXPECT_EQ(scripted::TakeLog()[0], "E vector insertion failed -1");
  ObjectRelease(args[5].object);
}

}  // namespace
