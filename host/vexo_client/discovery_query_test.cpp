#include "host/vexo_client/discovery_query.h"

#include <gtest/gtest.h>

#include <string>

#include "host/vexo_client/test_support.h"

namespace vexo_host {
namespace {

using wifi::Band;

const struct {
  const char* name;
  Band band;
  std::vector<uint32_t> channels;
  std::vector<const char*> ssids;  // null is one that holds no value
  std::vector<uint64_t> macAddresses;
  const char* admitted;  // of the BSSs below, by letter
} kFilterCases[] = {
    {"2.4 GHz", Band::k2GHz, {}, {}, {}, "ab"},
    {"5 GHz", Band::k5GHz, {}, {}, {}, "c"},
    {"channel number", Band::k5GHz, {6}, {}, {}, "a"},
    {"6 GHz channel in MHz", Band::kAll, {5955}, {}, {}, "d"},
    {"channels of several bands, one of them twice", Band::kAll, {36, 6, 5955, 36}, {}, {}, "acd"},
    {"SSID of another case", Band::kAll, {}, {"One"}, {}, ""},
    {"empty SSID", Band::kAll, {}, {""}, {}, "d"},
    {"SSID without value", Band::kAll, {}, {nullptr}, {}, ""},
    {"two SSIDs", Band::kAll, {}, {"two", "one"}, {}, "abc"},
    {"MAC address", Band::kAll, {}, {}, {0xFEDCBA987654}, "f"},
    {"all kinds together", Band::kAll, {6, 36}, {"one", "two"}, {3, 2, 4}, "c"},
    {"kinds that exclude one another", Band::k2GHz, {}, {"one"}, {3}, ""},
};

TEST(DiscoveryFilters, AdmitWhatPassesEveryKind) {
  const std::vector<Bss> all = {MakeBss(1, "one", 2437), MakeBss(2, "two", 2412), MakeBss(3, "one", 5180),
                                MakeBss(4, "", 5955),    MakeBss(5, nullptr, 0),  MakeBss(0xFEDCBA987654, nullptr, 0)};
  for (const auto& c : kFilterCases) {
    SCOPED_TRACE(c.name);
    const DiscoveryFilters filters = MakeFilters(c.band, c.channels, c.ssids, c.macAddresses);
    std::string admitted;
    for (size_t i = 0; i < all.size(); ++i) {
      if (filters.Admits(all[i])) admitted += static_cast<char>('a' + i);
    }
    EXPECT_EQ(admitted, c.admitted);
  }
}

TEST(DiscoveryFilters, RefuseChannelsThatDoNotExist) {
  for (const uint32_t channel : {0u, 15u, 31u, 178u, 999u, 1000u, 2413u, 5956u, 7200u, 0xFFFFFFFFu}) {
    SCOPED_TRACE(channel);
    zv_loc_fw::vector<zv_loc_fw::VEXOChannelInfo> channels;
    channels.push_back(zv_loc_fw::VEXOChannelInfo(6));
    channels.push_back(zv_loc_fw::VEXOChannelInfo(channel));
    DiscoveryFilters filters;
    EXPECT_FALSE(filters.SetChannels(channels));
    EXPECT_FALSE(filters.Admits(MakeBss(1, "one", 2437)));
  }
}

}  // namespace
}  // namespace vexo_host
