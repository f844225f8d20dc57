#include "host/vexo_client/capture_source.h"

#include <dlfcn.h>

#include <chrono>
#include <new>
#include <utility>

#include "host/vexo_client/capture_reader.h"
#include "platform/log.h"

namespace vexo_host {
namespace {

using wifi::ScanStatus;

constexpr char kTag[] = "vexo_client";
constexpr char kModule[] = "libvexo_capture.so";

using ReadFunction = decltype(&vexo_read_capture);

// The reader admits one call at a time in a process.
kesd::Mutex readerMutex;
void* module KESD_GUARDED_BY(readerMutex) = nullptr;  // stays loaded

// The module's reader; null, with the reason, when it is not to be had.
ReadFunction LoadReader(std::string& error) KESD_REQUIRES(readerMutex) {
  if (module == nullptr) module = dlopen(kModule, RTLD_NOW | RTLD_LOCAL);
  void* const symbol = module == nullptr ? nullptr : dlsym(module, "vexo_read_capture");
  if (symbol == nullptr) {
    const char* reason = dlerror();
    error = reason != nullptr ? reason : std::string(kModule) + " could not be loaded";
  }
  return reinterpret_cast<ReadFunction>(symbol);
}

}  // namespace

bool CaptureSource::StartScan(std::shared_ptr<const DiscoveryQuery>, ScanDone done) noexcept {
  const kesd::MutexLock lock(mutex);
  try {
    waiting.push_back(std::move(done));
    if (reading) return true;
    reading = scheduler.Now([this] { ReadForAll(); });
  } catch (const std::bad_alloc&) {  // from keeping it; the scheduler says it with its answer
    return false;
  }
  if (!reading) waiting.pop_back();
  return reading;
}

void CaptureSource::ReadForAll() noexcept {
  for (;;) {
    std::vector<ScanDone> served;
    {
      const kesd::MutexLock lock(mutex);
      served.swap(waiting);
      if (served.empty()) {
        reading = false;
        return;
      }
    }
    BssList found;
    ScanStatus status = ScanStatus::kFailed;
    try {
      status = Read(found);
    } catch (const std::bad_alloc&) {
      zv_loc_fw::log_error(kTag, "no memory to read %s\n", path.c_str());
    }
    for (const ScanDone& done : served) Finish(done, status, found);
  }
}

void CaptureSource::Finish(const ScanDone& done, ScanStatus status, const BssList& found) noexcept {
  try {
    if (scheduler.Now([done, status, found] { done(status, found); })) return;
  } catch (const std::bad_alloc&) {
    // Called here, then, for which the others have to wait.
  }
  done(status, found);
}

// `damage`: what ended the reading early; empty when nothing did.
void CaptureSource::LogContents(const CaptureContents& contents, const std::string& damage) const {
  if (!damage.empty()) zv_loc_fw::log_warning(kTag, "capture %s: %s\n", path.c_str(), damage.c_str());
  const bool complete = contents.badFcs == 0 && contents.tooShort == 0 && contents.overrunElements == 0;
  const auto log = complete ? zv_loc_fw::log_info : zv_loc_fw::log_warning;
  log(kTag,
      "capture %s: %zu networks in %llu frames; dropped with a wrong checksum %llu, too short %llu; element lists cut "
      "off %llu\n",
      path.c_str(), contents.found.size(), static_cast<unsigned long long>(contents.frames),
      static_cast<unsigned long long>(contents.badFcs), static_cast<unsigned long long>(contents.tooShort),
      static_cast<unsigned long long>(contents.overrunElements));
}

ScanStatus CaptureSource::Read(BssList& found) const {
  CaptureContents contents;
  std::string error;
  {
    const kesd::MutexLock lock(readerMutex);
    const ReadFunction read = LoadReader(error);
    if (read == nullptr || !read(path.c_str(), &contents, &error)) {
      zv_loc_fw::log_error(kTag, "cannot read the capture %s: %s\n", path.c_str(), error.c_str());
      return ScanStatus::kUnavailable;
    }
  }
  LogContents(contents, error);
  const auto now = std::chrono::steady_clock::now();
  for (Bss& bss : contents.found) bss.takenAt = now;
  found = MakeBssList(std::move(contents.found));
  return ScanStatus::kOk;
}

bool CaptureSource::StartRanging(std::shared_ptr<const RangingQuery>, RangingDone done) noexcept try {
  return scheduler.Now([done = std::move(done)] { done(ScanStatus::kUnsupported, {}); });
} catch (const std::bad_alloc&) {
  return false;
}

}  // namespace vexo_host
