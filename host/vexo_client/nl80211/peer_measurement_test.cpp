#include "host/vexo_client/nl80211/peer_measurement.h"

#include <gtest/gtest.h>
#include <linux/nl80211.h>

#include <cstring>
#include <vector>

namespace vexo_host::nl80211 {
namespace {

using Octets = std::vector<uint8_t>;

// An attribute, its payload padded as the kernel does.
Octets Attribute(int type, const Octets& payload) {
  Octets bytes(NLA_HDRLEN);
  const nlattr header{static_cast<uint16_t>(NLA_HDRLEN + payload.size()), static_cast<uint16_t>(type)};
  memcpy(bytes.data(), &header, sizeof header);
  bytes.insert(bytes.end(), payload.begin(), payload.end());
  bytes.resize(static_cast<size_t>(NLA_ALIGN(static_cast<int>(bytes.size()))));
  return bytes;
}

template <typename... Parts>
Octets Nest(int type, const Parts&... parts) {
  Octets payload;
  (payload.insert(payload.end(), parts.begin(), parts.end()), ...);
  return Attribute(type, payload);
}

Octets ResultMessage(const Octets& address = {2, 0, 0, 0, 0, 7}, const Octets& status = {0, 0, 0, 0},
                     const Octets& rtt = {0x4C, 0x82, 0, 0, 0, 0, 0, 0}) {
  const auto ftm = Nest(NL80211_PMSR_TYPE_FTM, Attribute(NL80211_PMSR_FTM_RESP_ATTR_RSSI_AVG, {0x9C, 255, 255, 255}),
                        Attribute(NL80211_PMSR_FTM_RESP_ATTR_RTT_AVG, rtt),
                        Attribute(NL80211_PMSR_FTM_RESP_ATTR_RTT_VARIANCE, {1, 0, 0, 0, 0, 0, 0, 0}));
  const auto response = Nest(NL80211_PMSR_PEER_ATTR_RESP, Attribute(NL80211_PMSR_RESP_ATTR_STATUS, status),
                             Attribute(NL80211_PMSR_RESP_ATTR_FINAL, {}), Nest(NL80211_PMSR_RESP_ATTR_DATA, ftm));
  const auto peer = Nest(1, Attribute(NL80211_PMSR_PEER_ATTR_ADDR, address), response);
  return Nest(NL80211_ATTR_PEER_MEASUREMENTS, Nest(NL80211_PMSR_ATTR_PEERS, peer));
}

std::vector<FtmResult> Read(Octets bytes) {
  std::vector<FtmResult> results;
  ReadFtmResults(reinterpret_cast<nlattr*>(bytes.data()), [&](const FtmResult& result) { results.push_back(result); });
  return results;
}

TEST(FtmResults, AreReadWholeOrNotAtAll) {
  const std::vector<FtmResult> whole = Read(ResultMessage());
  ASSERT_EQ(whole.size(), 1u);
  EXPECT_EQ(whole[0].address, 0x020000000007u);
  EXPECT_EQ(whole[0].values.rttPs, 33'356);
  EXPECT_EQ(whole[0].values.distanceMm, 5'000);
  EXPECT_EQ(whole[0].values.signalMbm, -5'000);

  const Octets address = {2, 0, 0, 0, 0, 7};
  EXPECT_TRUE(Read(ResultMessage({2, 0, 0, 0, 0})).empty());
  EXPECT_TRUE(Read(ResultMessage(address, {0, 0})).empty());
  EXPECT_EQ(Read(ResultMessage(address, {0, 0, 0, 0}, {1, 0, 0, 0})).at(0).values.status, wifi::RangingStatus::kFailed);
}

}  // namespace
}  // namespace vexo_host::nl80211
