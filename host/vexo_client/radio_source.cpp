#include "host/vexo_client/radio_source.h"

#include <dlfcn.h>

#include <new>
#include <utility>

#include "platform/log.h"

namespace vexo_host {
namespace {

using wifi::ScanStatus;

constexpr char kTag[] = "vexo_client";
constexpr char kModule[] = "libvexo_nl80211.so";

}  // namespace

bool RadioSource::Open(const std::string& interface, std::string& error) {
  void* const module = dlopen(kModule, RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
  void* const symbol = module == nullptr ? nullptr : dlsym(module, "vexo_open_radio");
  if (symbol == nullptr) {
    const char* reason = dlerror();
    error = reason != nullptr ? reason : std::string(kModule) + " could not be loaded";
    return false;
  }
  nl80211::RadioReports reports;
  reports.scan = [this](nl80211::ScanRequests served, std::vector<Bss> found) { Report(served, std::move(found)); };
  reports.ranging = [this](RangingDone done, ScanStatus status, std::vector<RangedPeer> peers) {
    Report(std::move(done), status, std::move(peers));
  };
  radio.reset(reinterpret_cast<decltype(&nl80211::vexo_open_radio)>(symbol)(interface.c_str(), &reports));
  if (radio == nullptr) error = "no memory, descriptor or thread for the radio";
  return radio != nullptr;
}

void RadioSource::Report(nl80211::ScanRequests served, std::vector<Bss> found) noexcept {
  BssList list;
  bool isListed = true;
  try {
    list = MakeBssList(std::move(found));
  } catch (const std::bad_alloc&) {
    isListed = false;
  }
  for (const auto& request : served) {
    const ScanStatus status = isListed ? request->status : ScanStatus::kFailed;
    bool kept = false;
    try {
      kept = scheduler.Now([request, status, list] { request->done(status, list); });
    } catch (const std::bad_alloc&) {
      // As when the scheduler has none.
    }
    // Not called here: this thread may not wait, and at the end nobody may be called any more.
    if (!kept) zv_loc_fw::log_error(kTag, "a scan's result is dropped: no memory, or this is the end\n");
  }
}

void RadioSource::Report(RangingDone done, ScanStatus status, std::vector<RangedPeer> peers) noexcept {
  bool kept = false;
  try {
    kept = scheduler.Now([done = std::move(done), status, peers = std::move(peers)] { done(status, peers); });
  } catch (const std::bad_alloc&) {
    // As when the scheduler has none.
  }
  if (!kept) zv_loc_fw::log_error(kTag, "a ranging result is dropped: no memory, or this is the end\n");
}

}  // namespace vexo_host
