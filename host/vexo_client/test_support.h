// What the tests of this folder share: a listener that records, a source that a test drives, and a log to look into.
#ifndef KESD_HOST_VEXO_CLIENT_TEST_SUPPORT_H_
#define KESD_HOST_VEXO_CLIENT_TEST_SUPPORT_H_

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "host/vexo_client/source.h"
#include "host/wifi/measurement_values.h"
#include "host/wifi/ranging_values.h"
#include "platform/vexo_client.h"

namespace vexo_host {

inline constexpr std::chrono::seconds kPatienceOfTests{30};

struct Heard {
  uint64_t bssid = 0;
  std::optional<Ssid> ssid;
  uint32_t frequencyMhz = 0, ageMs = 0;
  std::vector<uint8_t> elements;
};

// A ranging measurement as the daemon's records tell it.
struct Ranged {
  uint64_t bssid = 0;
  wifi::RangingValues values;
};

struct Report {
  uint32_t id = 0;
  int32_t type = 0;
  wifi::ScanStatus status{};
  wifi::SourceKind source{};
  uint64_t madeAtUs = 0;
  std::vector<Heard> heard;
  std::vector<Ranged> ranged;
};

Report Copy(zv_loc_fw::VEXOResponse& response);

// Records a copy of every response.
class RecordingListener final : public zv_loc_fw::VEXOClientListener {
 public:
  void responseReceived(zv_loc_fw::VEXOResponse* response) override;

  // Waits until there are `count` reports; fewer when they do not come.
  std::vector<Report> WaitFor(size_t count);
  Report WaitForOne() { return WaitFor(1).at(0); }

  std::function<void(uint32_t id)> onReport = [](uint32_t) {};  // while the report is in progress

 private:
  std::mutex mutex;
  std::condition_variable changed;
  std::vector<Report> reports;
};

// Keeps what it is asked for until the test answers. Ranging it never starts.
class FakeSource final : public MeasurementSource {
 public:
  wifi::SourceKind Kind() const noexcept override { return wifi::SourceKind::kRadio; }
  bool StartScan(std::shared_ptr<const DiscoveryQuery> query, ScanDone done) noexcept override;
  bool StartRanging(std::shared_ptr<const RangingQuery> query, RangingDone done) noexcept override;

  // Waits for the scan to be asked for.
  void Answer(size_t scan, wifi::ScanStatus status, std::vector<Bss> found);
  size_t ScanCount();

 private:
  std::mutex mutex;
  std::condition_variable changed;
  std::vector<ScanDone> scans;
};

Bss MakeBss(uint64_t bssid, const char* ssid, uint32_t frequencyMhz,
            std::chrono::milliseconds age = std::chrono::milliseconds(0));

// What the lists of a request come to. A null SSID is one that holds no value.
DiscoveryFilters MakeFilters(wifi::Band band, const std::vector<uint32_t>& channels,
                             const std::vector<const char*>& ssids = {},
                             const std::vector<uint64_t>& macAddresses = {});

// The lines logged under this folder's tag since the last call, each with its level in front: "E: ...".
std::vector<std::string> TakeLog();

}  // namespace vexo_host

#endif  // KESD_HOST_VEXO_CLIENT_TEST_SUPPORT_H_
