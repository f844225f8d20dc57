#include "host/vexo_client/source_choice.h"

#include <new>
#include <string>
#include <utility>

#include "host/vexo_client/capture_source.h"
#include "host/vexo_client/radio_source.h"
#include "host/vexo_client/scene/scene_options.h"
#include "host/vexo_client/scene/scene_source.h"
#include "platform/log.h"

namespace vexo_host {
namespace {

constexpr char kTag[] = "vexo_client";

class UnavailableSource final : public MeasurementSource {
 public:
  explicit UnavailableSource(Scheduler& someScheduler) : scheduler(someScheduler) {}

  wifi::SourceKind Kind() const noexcept override { return wifi::SourceKind::kUnknown; }
  bool StartScan(std::shared_ptr<const DiscoveryQuery>, ScanDone done) noexcept override { return Answer(done); }
  bool StartRanging(std::shared_ptr<const RangingQuery>, RangingDone done) noexcept override { return Answer(done); }

 private:
  template <typename Done>
  bool Answer(Done& done) noexcept try {
    return scheduler.Now([done = std::move(done)] { done(wifi::ScanStatus::kUnavailable, {}); });
  } catch (const std::bad_alloc&) {
    return false;
  }

  Scheduler& scheduler;
};

std::unique_ptr<MeasurementSource> Refuse(std::string_view choice, const std::string& reason, Scheduler& scheduler) {
  zv_loc_fw::log_error(kTag,
                       "VEXO_SOURCE=\"%.*s\": %s; admitted are scene, scene:KEY=VALUE,... (keys %s), capture:FILE and "
                       "nl80211:INTERFACE; every request will be answered as unavailable\n",
                       static_cast<int>(choice.size()), choice.data(), reason.c_str(), kSceneOptionKeys);
  return std::make_unique<UnavailableSource>(scheduler);
}

}  // namespace

std::unique_ptr<MeasurementSource> MakeSource(std::string_view choice, Scheduler& scheduler) {
  const size_t colon = choice.find(':');
  const std::string_view kind = choice.substr(0, colon);
  const std::string_view rest = colon == std::string_view::npos ? std::string_view() : choice.substr(colon + 1);

  if (choice.empty() || kind == "scene") {
    SceneOptions options;
    std::string error;
    if (colon != std::string_view::npos && !ParseSceneOptions(rest, options, error))
      return Refuse(choice, error, scheduler);
    zv_loc_fw::log_info(kTag, "measuring a scene of %u access points, seed %llu\n", options.accessPoints,
                        static_cast<unsigned long long>(options.seed));
    return std::make_unique<SceneSource>(options, scheduler);
  }
  if (kind == "capture") {
    if (rest.empty()) return Refuse(choice, "no file is named", scheduler);
    zv_loc_fw::log_info(kTag, "measuring the capture %.*s\n", static_cast<int>(rest.size()), rest.data());
    return std::make_unique<CaptureSource>(std::string(rest), scheduler);
  }
  if (kind == "nl80211") {
    if (rest.empty()) return Refuse(choice, "no interface is named", scheduler);
    auto source = std::make_unique<RadioSource>(scheduler);
    std::string error;
    if (!source->Open(std::string(rest), error)) return Refuse(choice, error, scheduler);
    zv_loc_fw::log_info(kTag, "measuring with the radio of %.*s\n", static_cast<int>(rest.size()), rest.data());
    return source;
  }
  return Refuse(choice, "there is no such source", scheduler);
}

}  // namespace vexo_host
