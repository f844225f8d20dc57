// A location client library that breaks every promise, under the real services and many threads.
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <memory>
#include <random>
#include <thread>
#include <utility>
#include <vector>

#include "dispatcher/vexo_dispatcher.h"
#include "ipc/services.h"
#include "marshal/records.h"
#include "service/root_object.h"
#include "tests/scripted_platform.h"
#include "tests/test_measurements.h"

namespace {

using scripted::TheLibrary;

constexpr int kThreads = 8;
#ifdef KESD_EMULATOR
constexpr int kRequests = 100'000;
#else
constexpr int kRequests = 1'000'000;
#endif

// Retained and released once, and not touched since; `accepted` is false for a request that was refused.
bool IsDone(const scripted::Callback& callback, bool accepted) {
  return callback.retains == accepted && callback.releases == accepted && callback.deliveries <= accepted;
}

// The IDs that the library has heard lately: of requests that are being sent, are pending, answered or aborted.
std::array<std::atomic<uint32_t>, 16> heard{};
thread_local uint32_t heardHere = 0;

void Hear(zv_loc_fw::VEXORequest& request) {
  heardHere = request.getRequestId();
  heard[heardHere % heard.size()] = heardHere;
}

class Misbehaviour {
 public:
  explicit Misbehaviour(unsigned seed) : random(seed) {
    beacon.beaconElements.push_back(nullptr);
    plain.infoList.push_back(nullptr);
  }

  // Sends a request, answers others and perhaps itself, and lets the handle go. False when its callback, or one of the
  // last that were done with, was treated otherwise than it must be.
  bool Request() {
    Kept& kept = callbacks[next++ % callbacks.size()];
    if (kept.invocation != nullptr && !IsDone(kept.invocation->callback, kept.accepted)) return false;
    kept.invocation = std::make_unique<scripted::Invocation>();
    const scripted::Callback& callback = kept.invocation->callback;
    kept.invocation->callback.onDelivery = [&] {
      late += callback.releases != 0;
      if (heardHere % 16 == 0) throw heardHere;
    };
    TheLibrary().sendResult = Chance(16) ? 5 : 0;  // for whoever sends next
    kept.accepted = Send(*kept.invocation);
    if (Chance(4)) Respond(heardHere);
    for (uint32_t i = random() % 4; i != 0; --i) Respond(heard[random() % heard.size()]);
    if (Chance(4)) std::this_thread::yield();
    refused += !kept.accepted;
    if (!kept.accepted) return IsDone(callback, false);
    ObjectRelease(std::exchange(kept.invocation->handle, {nullptr, nullptr}));
    // Whoever has taken the entry releases the callback, at the latest after a delivery that is in progress.
    const auto patience = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (callback.releases == 0 && std::chrono::steady_clock::now() < patience) std::this_thread::yield();
    ++(callback.deliveries != 0 ? delivered : aborted);
    return IsDone(callback, true);
  }

  int delivered = 0, aborted = 0, refused = 0;
  static inline std::atomic<int> late = 0;  // delivered after the release

 private:
  bool Chance(uint32_t oneIn) { return random() % oneIn == 0; }

  // False when the request was refused.
  bool Send(scripted::Invocation& invocation) {
    const int32_t result =
        Chance(2) ? invocation.Invoke(rangingService, 0, kStartRangingScanCounts, {node, ts})
                  : invocation.Invoke(discoveryService, 0, kStartDiscoveryScanCounts, {params, {}, {}, {}});
    return result == OBJECT_OK;
  }

  void Respond(uint32_t id) {
    zv_loc_fw::VEXOClientListener& listener = *TheLibrary().listener;
    if (Chance(16)) return listener.responseReceived(nullptr);
    if (Chance(16)) id = static_cast<uint32_t>(random());  // nobody's
    if (Chance(2)) {
      zv_loc_fw::VEXODiscoveryScanResponse response(id);
      Fill(response.measurements);
      listener.responseReceived(&response);
      if (Chance(4)) listener.responseReceived(&response);
    } else {
      zv_loc_fw::VEXORangingScanResponse response(id);
      Fill(response.measurements);
      listener.responseReceived(&response);
    }
  }

  // Of every kind, and with nothing where something belongs.
  void Fill(zv_loc_fw::vector<zv_loc_fw::VEXOScanMeasurement*>& measurements) {
    if (Chance(2)) return;
    measurements.push_back(nullptr);
    measurements.push_back(&plain);
    measurements.push_back(&beacon);
    measurements.push_back(&ranged);
  }

  std::minstd_rand random;
  const std::vector<uint8_t> params = std::vector<uint8_t>(kDiscoveryScanParamsSize), node = std::vector<uint8_t>(52),
                             ts = std::vector<uint8_t>(8);
  const Object discoveryService = scripted::Open(RootObject(), SERVICE_ID_DISCOVERY_SCAN);
  const Object rangingService = scripted::Open(RootObject(), SERVICE_ID_RANGING_SCAN);
  scripted::Measurement<zv_loc_fw::VEXOScanMeasurement> plain;
  scripted::Measurement<zv_loc_fw::VEXOFullBeaconScanMeasurement> beacon;
  scripted::Measurement<zv_loc_fw::VEXORangingScanMeasurement> ranged;
  // Kept for a while after they are done with, so that a second release is seen.
  struct Kept {
    std::unique_ptr<scripted::Invocation> invocation;
    bool accepted = false;
  };
  std::array<Kept, 64> callbacks;
  size_t next = 0;
};

TEST(MisbehavingLibrary, LeavesEveryCallbackReleasedOnceAndInvokedAtMostOnce) {
  VexoDispatcher::Get();
  TheLibrary().Reset();
  TheLibrary().forgets = true;
  TheLibrary().onSend = Hear;
  std::atomic<int> left = kRequests;
  std::atomic<int> wrong = 0, delivered = 0, aborted = 0, refused = 0;
  std::vector<std::thread> threads;
  for (unsigned seed = 1; seed <= kThreads; ++seed) {
    threads.emplace_back([&, seed] {
      Misbehaviour misbehaviour(seed);
      while (wrong == 0 && left.fetch_sub(1) > 0) wrong += !misbehaviour.Request();
      for (size_t i = 0; i < 64; ++i) wrong += !misbehaviour.Request();  // looks at the last ones once more
      delivered += misbehaviour.delivered;
      aborted += misbehaviour.aborted;
      refused += misbehaviour.refused;
    });
  }
  for (std::thread& thread : threads) thread.join();
  TheLibrary().Reset();
  EXPECT_EQ(wrong + Misbehaviour::late, 0);
  EXPECT_EQ(TheLibrary().liveRequests, 0);
  for (const int count : {delivered.load(), aborted.load(), refused.load()}) EXPECT_GT(count, kRequests / 100);
  std::printf("%d delivered, %d aborted, %d refused\n", delivered.load(), aborted.load(), refused.load());
}

}  // namespace
