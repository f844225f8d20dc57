#include "host/vexo_client/discovery_request.h"

#include <memory>
#include <new>

namespace zv_loc_fw {
namespace {

using vexo_host::DiscoveryRequest;
using vexo_host::ScanMode;
using RequestPointer = std::unique_ptr<DiscoveryRequest>;

// Null when there is no memory.
RequestPointer Make(unsigned int requestId, ScanMode mode, unsigned int ageFilter, long timeout) {
  RequestPointer request(new (std::nothrow) DiscoveryRequest(requestId, mode, timeout));
  if (request != nullptr) request->ageFilterMs = ageFilter;
  return request;
}

RequestPointer With(RequestPointer request, eScanType scanType) {
  if (request != nullptr && scanType == SCAN_TYPE_0) request->scanType = wifi::ScanType::kActive;
  return request;
}

RequestPointer WithFallback(RequestPointer request, unsigned int fallbackParam) {
  if (request != nullptr) request->fallbackCount = fallbackParam;
  return request;
}

DiscoveryRequest* On(RequestPointer request, eBand band) {
  if (request != nullptr && band == BAND_0) request->band = wifi::Band::k2GHz;
  if (request != nullptr && band == BAND_1) request->band = wifi::Band::k5GHz;
  return request.release();
}

DiscoveryRequest* On(RequestPointer request, const vector<VEXOChannelInfo>& channels) {
  if (request == nullptr) return nullptr;
  request->channels = channels;
  if (request->channels.count != channels.count) return nullptr;  // no memory: a shorter list would mean another scan
  return request.release();
}

}  // namespace

VEXODiscoveryScanRequest* VEXODiscoveryScanRequest::createFreshScanRequest(unsigned int requestId, eBand band,
                                                                           eScanType scanType, unsigned int ageFilter,
                                                                           long timeout, eRequestMode, bool) {
  return On(With(Make(requestId, ScanMode::kFresh, ageFilter, timeout), scanType), band);
}

VEXODiscoveryScanRequest* VEXODiscoveryScanRequest::createFreshScanRequest(unsigned int requestId,
                                                                           vector<VEXOChannelInfo>& channels,
                                                                           eScanType scanType, unsigned int ageFilter,
                                                                           long timeout, eRequestMode, bool) {
  return On(With(Make(requestId, ScanMode::kFresh, ageFilter, timeout), scanType), channels);
}

VEXODiscoveryScanRequest* VEXODiscoveryScanRequest::createCacheOnlyRequest(unsigned int requestId, eBand band,
                                                                           unsigned int ageFilter, long timeout, bool) {
  return On(Make(requestId, ScanMode::kCacheOnly, ageFilter, timeout), band);
}

VEXODiscoveryScanRequest* VEXODiscoveryScanRequest::createCacheOnlyRequest(unsigned int requestId,
                                                                           vector<VEXOChannelInfo>& channels,
                                                                           unsigned int ageFilter, long timeout, bool) {
  return On(Make(requestId, ScanMode::kCacheOnly, ageFilter, timeout), channels);
}

VEXODiscoveryScanRequest* VEXODiscoveryScanRequest::createCacheFallbackRequest(unsigned int requestId, eBand band,
                                                                               eScanType scanType,
                                                                               unsigned int ageFilter,
                                                                               unsigned int fallbackParam, long timeout,
                                                                               bool, bool) {
  return On(WithFallback(With(Make(requestId, ScanMode::kCacheFallback, ageFilter, timeout), scanType), fallbackParam),
            band);
}

VEXODiscoveryScanRequest* VEXODiscoveryScanRequest::createCacheFallbackRequest(
    unsigned int requestId, vector<VEXOChannelInfo>& channels, eScanType scanType, unsigned int ageFilter,
    unsigned int fallbackParam, long timeout, bool, bool) {
  return On(WithFallback(With(Make(requestId, ScanMode::kCacheFallback, ageFilter, timeout), scanType), fallbackParam),
            channels);
}

}  // namespace zv_loc_fw
