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
    VexoDispatcher::Get();
    TheLibrary().Reset();
    scripted::TakeLog();
  }
  void TearDown() override { EXPECT_EQ(TheLibrary().liveRequests, 0) << "every request is deleted"; }
};

TEST_F(DiscoveryScan, MapsEachModeToItsFactory) {
  // Timeout, scan type, mode, age filter, fallback parameter, band, cache and fresh flag.
  const DiscoveryScanParams kFull = {0x1'0000'0001, 7, 0, 0xFFFFFFFF, 22, 7, 0x80, 0, {}};
  const std::string kStart = "D kesd DiscoveryScan: ", kFresh = kStart + "createFreshScanRequest (";
  const struct {
    uint32_t mode;
    bool channels;
    const char* call;
    Log log = {};
  } kCases[] = {
      {0,
       false,
       "fresh band=2 1 4294967295 4294967297 0 0",
       {kFresh + "band 2) mode 0 scan_type 1 age_filter -1 timeout 1\n"}},
      {1,
       false,
       "fresh band=2 1 4294967295 4294967297 1 0",
       {kFresh + "band 2) mode 1 scan_type 1 age_filter -1 timeout 1\n"}},
      {1, true, "fresh channels=6,4000000000 1 4294967295 4294967297 1 0", {kFresh + "channel) mode 1\n"}},
      {2, false, "cache band=2 4294967295 4294967297 1"},
      {2, true, "cache channels=6,4000000000 4294967295 4294967297 1"},
      {3, false, "fallback band=2 1 4294967295 22 4294967297 1 0"},
      {3, true, "fallback channels=6,4000000000 1 4294967295 22 4294967297 1 0"},
      {4, false, nullptr},
  };
  for (auto c : kCases) {
    SCOPED_TRACE(c.mode);
    TheLibrary().factoryCalls.clear();
    scripted::TakeLog();
    Invocation invocation;
    invocation.params = kFull;
    invocation.params.mode = c.mode;
    invocation.channels = {6, 0, 0};                                                  // less than one
    if (c.channels) invocation.channels = scripted::BytesOf(6, 4'000'000'000u, 'x');  // two, and some
    const bool made = c.call != nullptr;
    EXPECT_EQ(invocation.Run(0x10000), made ? OBJECT_OK : OBJECT_ERROR) << "bit 16 of the operation is ignored";
    EXPECT_EQ(TheLibrary().factoryCalls, made ? Log{c.call} : Log{});
    c.log.push_back(kStart + "StartScan returning " + (made ? "0\n" : "1\n"));
    EXPECT_EQ(scripted::TakeLog(), c.log);
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
  EXPECT_EQ(TheLibrary().sendCalls, 1);
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
  Invocation invocation;
  invocation.channels = scripted::BytesOf(uint32_t{6});
  invocation.failures = 1;
  EXPECT_EQ(invocation.Run(), OBJECT_OK);
  EXPECT_EQ(TheLibrary().factoryCalls[0].substr(0, 12), "fresh band=0") << "no channel is left";
  EXPECT_EQ(scripted::TakeLog()[0], "E vector insertion failed -1");
}

}  // namespace
