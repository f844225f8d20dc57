// The location client library's requests. Their bodies live in libvexo_client.so.
#ifndef KESD_PLATFORM_VEXO_REQUEST_H_
#define KESD_PLATFORM_VEXO_REQUEST_H_

#include <cstdint>

#include "platform/vexo_types.h"
#include "support/vector.h"

namespace zv_loc_fw {

// The library gives the values their meaning; these are the numbers that exist.
enum eBand : int { BAND_0 = 0, BAND_1 = 1, BAND_2 = 2 };
enum eScanType : int { SCAN_TYPE_0 = 0, SCAN_TYPE_1 = 1 };
enum eRequestMode : int { REQUEST_MODE_0 = 0, REQUEST_MODE_1 = 1 };

class VEXORequest {
 public:
  virtual ~VEXORequest();

  // The ID that the request was made with.
  unsigned int getRequestId() const;

 protected:
  explicit VEXORequest(unsigned int requestId);

 private:
  uint32_t requestId;
};

// A discovery scan. The factories copy what they keep of `channels`; they return null when they make no
// request, and the caller deletes what they return.
class VEXODiscoveryScanRequest : public VEXORequest {
 public:
  static VEXODiscoveryScanRequest* createFreshScanRequest(unsigned int requestId, eBand band, eScanType scanType,
                                                          unsigned int ageFilter, long timeout, eRequestMode mode,
                                                          bool freshFlag);
  static VEXODiscoveryScanRequest* createFreshScanRequest(unsigned int requestId, vector<VEXOChannelInfo>& channels,
                                                          eScanType scanType, unsigned int ageFilter, long timeout,
                                                          eRequestMode mode, bool freshFlag);
  static VEXODiscoveryScanRequest* createCacheOnlyRequest(unsigned int requestId, eBand band, unsigned int ageFilter,
                                                          long timeout, bool cacheFlag);
  static VEXODiscoveryScanRequest* createCacheOnlyRequest(unsigned int requestId, vector<VEXOChannelInfo>& channels,
                                                          unsigned int ageFilter, long timeout, bool cacheFlag);
  static VEXODiscoveryScanRequest* createCacheFallbackRequest(unsigned int requestId, eBand band, eScanType scanType,
                                                              unsigned int ageFilter, unsigned int fallbackParam,
                                                              long timeout, bool cacheFlag, bool freshFlag);
  static VEXODiscoveryScanRequest* createCacheFallbackRequest(unsigned int requestId, vector<VEXOChannelInfo>& channels,
                                                              eScanType scanType, unsigned int ageFilter,
                                                              unsigned int fallbackParam, long timeout, bool cacheFlag,
                                                              bool freshFlag);
  ~VEXODiscoveryScanRequest() override;

  // Filters; an empty list admits everything. Assigned by whoever asked for the request.
  vector<VEXOSsid> ssids;
  vector<VEXOMacAddress> macAddresses;

 protected:
  explicit VEXODiscoveryScanRequest(unsigned int requestId);
};

// One ranging measurement towards each node. Copies `nodes`. `ts` is the library's to interpret.
class VEXORangingScanRequest : public VEXORequest {
 public:
  VEXORangingScanRequest(unsigned int requestId, vector<VEXONodeInfo>& nodes, long ts);
  ~VEXORangingScanRequest() override;

  vector<VEXONodeInfo> nodes;
  long ts;
};

// Ranging measurements towards each node, again and again. Copies `nodes`. `ts` is the library's to interpret.
class VEXOPeriodicRangingScanRequest : public VEXORequest {
 public:
  VEXOPeriodicRangingScanRequest(unsigned int requestId, vector<VEXOPeriodicNodeInfo>& nodes, long ts);
  ~VEXOPeriodicRangingScanRequest() override;

  vector<VEXOPeriodicNodeInfo> nodes;
  long ts;
};

}  // namespace zv_loc_fw

#endif  // KESD_PLATFORM_VEXO_REQUEST_H_
