// The location client library's responses. Their bodies live in libvexo_client.so. A response and its
// measurements belong to the library; a listener only reads them, during the report.
#ifndef KESD_PLATFORM_VEXO_RESPONSE_H_
#define KESD_PLATFORM_VEXO_RESPONSE_H_

#include <cstdint>

#include "platform/vexo_measurement.h"
#include "support/vector.h"

namespace zv_loc_fw {

// What getResponseType answers.
inline constexpr int32_t RESPONSE_TYPE_DISCOVERY_SCAN = 1;
inline constexpr int32_t RESPONSE_TYPE_RANGING_SCAN = 2;

class VEXOResponse {
 public:
  VEXOResponse(const VEXOResponse&) = delete;
  VEXOResponse& operator=(const VEXOResponse&) = delete;
  virtual ~VEXOResponse();
  virtual int32_t getResponseType() const = 0;

  // The ID of the request that this response answers.
  unsigned int getRequestId();

 protected:
  explicit VEXOResponse(unsigned int requestId);

 private:
  uint32_t requestId;
};

class VEXODiscoveryScanResponse : public VEXOResponse {
 public:
  explicit VEXODiscoveryScanResponse(unsigned int requestId);
  ~VEXODiscoveryScanResponse() override;
  int32_t getResponseType() const override;

  uint32_t scanStatus;
  uint32_t opaque32;
  uint64_t opaque64;
  vector<VEXOScanMeasurement*> measurements;
};

class VEXORangingScanResponse : public VEXOResponse {
 public:
  explicit VEXORangingScanResponse(unsigned int requestId);
  ~VEXORangingScanResponse() override;
  int32_t getResponseType() const override;

  uint32_t scanStatus;
  vector<VEXOScanMeasurement*> measurements;
};

}  // namespace zv_loc_fw

#endif  // KESD_PLATFORM_VEXO_RESPONSE_H_
