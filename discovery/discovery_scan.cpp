#include "discovery/discovery_scan.h"

#include <algorithm>
#include <cstring>
#include <memory>

#include "discovery/discovery_result.h"
#include "dispatcher/buffers.h"
#include "dispatcher/vexo_dispatcher.h"
#include "ipc/services.h"
#include "marshal/records.h"
#include "platform/log.h"
#include "platform/vexo_request.h"

using zv_loc_fw::eBand;
using zv_loc_fw::eRequestMode;
using zv_loc_fw::eScanType;
using zv_loc_fw::log_debug;
using zv_loc_fw::VEXOChannelInfo;
using zv_loc_fw::VEXODiscoveryScanRequest;
using zv_loc_fw::VEXOMacAddress;
using zv_loc_fw::VEXOSsid;

namespace {

constexpr char kTag[] = "kesd";

enum Slot : uint32_t { kParamsSlot, kChannelsSlot, kSsidsSlot, kMacsSlot, kCallbackSlot, kHandleSlot };

// A request's lists, in the order of its buffers. An entry that finds no memory is missing.
struct Lists {
  explicit Lists(const ObjectArg* args) {
    for (uint64_t i = 0; i < RecordCount<DiscoveryChannelEntry>(args[kChannelsSlot]); ++i) {
      channels.push_back(VEXOChannelInfo(RecordAt<DiscoveryChannelEntry>(args[kChannelsSlot], i).channel));
    }
    for (uint64_t i = 0; i < RecordCount<DiscoverySsidEntry>(args[kSsidsSlot]); ++i) {
      const auto entry = RecordAt<DiscoverySsidEntry>(args[kSsidsSlot], i);
      VEXOSsid ssid;
      ssid.setSSID(entry.ssid, std::min<int>(entry.length, sizeof(entry.ssid)));
      ssids.push_back(ssid);
    }
    for (uint64_t i = 0; i < RecordCount<DiscoveryMacEntry>(args[kMacsSlot]); ++i) {
      const auto entry = RecordAt<DiscoveryMacEntry>(args[kMacsSlot], i);
      VEXOMacAddress address;
      address.setMac(static_cast<int>(entry.hi24), static_cast<int>(entry.lo24));
      macAddresses.push_back(address);
    }
  }

  zv_loc_fw::vector<VEXOChannelInfo> channels;
  zv_loc_fw::vector<VEXOSsid> ssids;
  zv_loc_fw::vector<VEXOMacAddress> macAddresses;
};

void LogFreshScan(const zv_loc_fw::vector<VEXOChannelInfo>&, const DiscoveryScanParams& params, eScanType) {
  log_debug(kTag, "DiscoveryScan: createFreshScanRequest (channel) mode %d\n", static_cast<int>(params.mode));
}

void LogFreshScan(eBand band, const DiscoveryScanParams& params, eScanType scanType) {
  log_debug(kTag, "DiscoveryScan: createFreshScanRequest (band %d) mode %d scan_type %d age_filter %d timeout %d\n",
            static_cast<int>(band), static_cast<int>(params.mode), static_cast<int>(scanType),
            static_cast<int>(params.age_filter), static_cast<int>(params.timeout));
}

// `where` is what the factories take in its place: a channel list or a band. Null when the mode is unknown or the
// factory made no request.
template <typename Where>
VEXODiscoveryScanRequest* MakeRequest(uint32_t id, Where& where, const DiscoveryScanParams& params) {
  const auto scanType = static_cast<eScanType>(params.scan_type != 0);
  const bool cacheFlag = params.cache_flag != 0;
  const bool freshFlag = params.fresh_flag != 0;
  switch (params.mode) {
    case 0:
    case 1:
      LogFreshScan(where, params, scanType);
      return VEXODiscoveryScanRequest::createFreshScanRequest(id, where, scanType, params.age_filter, params.timeout,
                                                              static_cast<eRequestMode>(params.mode), freshFlag);
    case 2:
      return VEXODiscoveryScanRequest::createCacheOnlyRequest(id, where, params.age_filter, params.timeout, cacheFlag);
    case 3:
      return VEXODiscoveryScanRequest::createCacheFallbackRequest(
          id, where, scanType, params.age_filter, params.fallback_param, params.timeout, cacheFlag, freshFlag);
    default:
      return nullptr;
  }
}

VEXODiscoveryScanRequest* MakeRequest(uint32_t id, Lists& lists, const DiscoveryScanParams& params) {
  if (lists.channels.count != 0) return MakeRequest(id, lists.channels, params);
  auto band = static_cast<eBand>(std::min<uint32_t>(params.band, zv_loc_fw::BAND_2));
  return MakeRequest(id, band, params);
}

int32_t Send(uint32_t id, Lists& lists, const DiscoveryScanParams& params, Object callback, Object* handle) try {
  const std::unique_ptr<VEXODiscoveryScanRequest> request(MakeRequest(id, lists, params));
  if (request == nullptr) return OBJECT_ERROR;
  if (lists.ssids.count != 0) request->ssids = lists.ssids;
  if (lists.macAddresses.count != 0) request->macAddresses = lists.macAddresses;
  const int32_t sent = VexoDispatcher::Get().SendRequest(request.get(), discovery::ResponseReceived, callback, handle);
  return sent == 0 ? OBJECT_OK : OBJECT_ERROR;
} catch (...) {  // a library that throws is one that refuses
  return OBJECT_ERROR;
}

int32_t StartScan(ObjectArg* args) {
  Lists lists(args);
  DiscoveryScanParams params = {};
  std::memcpy(&params, args[kParamsSlot].buffer.ptr, kDiscoveryScanParamsSize);
  const uint32_t id = ++VexoDispatcher::Get().requestIdCounter;
  const int32_t result = Send(id, lists, params, args[kCallbackSlot].object, &args[kHandleSlot].object);
  log_debug(kTag, "DiscoveryScan: StartScan returning %d\n", result);
  return result;
}

int32_t discovery_scan_invoke(void*, uint32_t op, ObjectArg* args, ArgCounts counts) try {
  if (ObjectOperation(op) != kStartDiscoveryScan) return OBJECT_ERROR_INVALID;
  if (counts != kStartDiscoveryScanCounts) return OBJECT_ERROR_INVALID;
  if (args[kParamsSlot].buffer.size < kDiscoveryScanParamsSize) return OBJECT_ERROR_INVALID;
  if (args[kCallbackSlot].object.invoke == nullptr) return OBJECT_ERROR_INVALID;
  return StartScan(args);
} catch (...) {  // nothing leaves an invocation but its result
  return OBJECT_ERROR;
}

}  // namespace

Object CreateVexoDiscoveryScan() { return {discovery_scan_invoke, nullptr}; }
