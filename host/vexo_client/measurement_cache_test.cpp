#include "host/vexo_client/measurement_cache.h"

#include <gtest/gtest.h>

#include "host/vexo_client/test_support.h"

namespace vexo_host {
namespace {

using std::chrono::milliseconds;
constexpr auto kAnyAge = MeasurementCache::TimePoint::min();

BssPointer Share(Bss bss) { return std::make_shared<const SharedBss>(std::move(bss)); }
BssList List(std::vector<BssPointer> all) { return std::make_shared<const std::vector<BssPointer>>(std::move(all)); }

TEST(MeasurementCache, KeepsTheLatestOfEachPairOfBssidAndSsid) {
  MeasurementCache cache;
  const BssPointer old = Share(MakeBss(1, "one", 2412, milliseconds(500)));
  const BssPointer latest = Share(MakeBss(1, "one", 2437, milliseconds(5)));
  const BssPointer hidden = Share(MakeBss(1, "", 2412));
  const BssPointer without = Share(MakeBss(1, nullptr, 2412));
  cache.Insert(List({old, latest, hidden, without}));
  cache.Insert(List({old}));
  EXPECT_EQ(cache.TakenSince(kAnyAge), (std::vector{without, hidden, latest}));
}

TEST(MeasurementCache, DropsTheOldestWhenFull) {
  MeasurementCache cache(3);
  std::vector<BssPointer> all;
  for (uint32_t i = 0; i < 5; ++i) all.push_back(Share(MakeBss(i, "x", 2412, milliseconds(i == 4 ? 9'000 : 100 * i))));
  cache.Insert(List({all[3], all[4], all[1]}));
  cache.Insert(List({all[0], all[2]}));
  EXPECT_EQ(cache.TakenSince(kAnyAge), (std::vector{all[0], all[1], all[2]}));

  MeasurementCache sameAge(3);  // of measurements of one age, any may go, but no more than have to
  for (int i = 0; i < 5; ++i) {
    Bss bss = static_cast<const Bss&>(*all[0]);
    bss.bssid = static_cast<uint64_t>(i);
    sameAge.Insert(List({Share(std::move(bss))}));
  }
  EXPECT_EQ(sameAge.TakenSince(kAnyAge).size(), 3u);
}

}  // namespace
}  // namespace vexo_host
