// The source whose air is a capture file.
#ifndef KESD_HOST_VEXO_CLIENT_CAPTURE_SOURCE_H_
#define KESD_HOST_VEXO_CLIENT_CAPTURE_SOURCE_H_

#include <string>
#include <vector>

#include "host/vexo_client/capture_reader.h"
#include "host/vexo_client/scheduler.h"
#include "host/vexo_client/source.h"
#include "support/mutex.h"

namespace vexo_host {

// Reads the file anew for every scan. Scans that are asked for while it is being read share the next reading.
class CaptureSource final : public MeasurementSource {
 public:
  CaptureSource(std::string somePath, Scheduler& someScheduler) : path(std::move(somePath)), scheduler(someScheduler) {}

  wifi::SourceKind Kind() const noexcept override { return wifi::SourceKind::kCapture; }
  bool StartScan(std::shared_ptr<const DiscoveryQuery> query, ScanDone done) noexcept override KESD_EXCLUDES(mutex);
  bool StartRanging(std::shared_ptr<const RangingQuery> query, RangingDone done) noexcept override;

 private:
  void ReadForAll() noexcept KESD_EXCLUDES(mutex);
  wifi::ScanStatus Read(BssList& found) const;
  void Finish(const ScanDone& done, wifi::ScanStatus status, const BssList& found) noexcept;
  void LogContents(const CaptureContents& contents, const std::string& damage) const;

  const std::string path;
  Scheduler& scheduler;
  kesd::Mutex mutex;
  std::vector<ScanDone> waiting KESD_GUARDED_BY(mutex);
  bool reading KESD_GUARDED_BY(mutex) = false;
};

}  // namespace vexo_host

#endif  // KESD_HOST_VEXO_CLIENT_CAPTURE_SOURCE_H_
