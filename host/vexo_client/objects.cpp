// Bodies of the value types, requests, responses and measurements that the platform's headers declare, apart from the
// discovery factories and the client itself. A list of pointers does not own what it points to.
#include <algorithm>
#include <cstring>

#include "platform/vexo_client.h"

namespace zv_loc_fw {
namespace {

constexpr int32_t kHalfMask = 0xFFFFFF;
constexpr int kMaxSsidOctets = 32;

}  // namespace

VEXOMacAddress::VEXOMacAddress() : lo24(0), hi24(0) {}

VEXOMacAddress& VEXOMacAddress::operator=(const VEXOMacAddress& other) = default;

void VEXOMacAddress::setMac(int high, int low) {
  hi24 = high & kHalfMask;
  lo24 = low & kHalfMask;
}

int VEXOMacAddress::getHi24() const { return hi24; }
int VEXOMacAddress::getLo24() const { return lo24; }

VEXOSsid::VEXOSsid() : valid(0), length(0), octets() {}

void VEXOSsid::setSSID(const unsigned char* from, int count) {
  *this = VEXOSsid();
  if (count < 0 || (from == nullptr && count > 0)) return;
  length = static_cast<uint16_t>(std::min(count, kMaxSsidOctets));
  if (length > 0) std::memcpy(octets, from, length);
  valid = 1;
}

bool VEXOSsid::isSSIDValid() const { return valid != 0; }

int VEXOSsid::getSSID(unsigned char* to, int* count) const {
  if (valid == 0 || to == nullptr || count == nullptr) return -1;
  std::memcpy(to, octets, length);
  *count = length;
  return 0;
}

VEXOChannelInfo::VEXOChannelInfo() : channel(0) {}
VEXOChannelInfo::VEXOChannelInfo(unsigned int number) : channel(number) {}
VEXOChannelInfo::~VEXOChannelInfo() = default;

VEXONodeInfo::VEXONodeInfo()
    : value1(0),
      value2(0),
      value3(0),
      choice1(0),
      choice2(0),
      choice3(0),
      unset1(0),
      choice4(0),
      byte1(0),
      byte2(0),
      value4(0),
      unset2(0) {}

VEXOPeriodicNodeInfo::VEXOPeriodicNodeInfo() : byte3(0), value5(0), value6(0) {}

VEXORequest::VEXORequest(unsigned int id) : requestId(id) {}
VEXORequest::~VEXORequest() = default;
unsigned int VEXORequest::getRequestId() const { return requestId; }

VEXODiscoveryScanRequest::VEXODiscoveryScanRequest(unsigned int id) : VEXORequest(id) {}
VEXODiscoveryScanRequest::~VEXODiscoveryScanRequest() = default;

VEXORangingScanRequest::VEXORangingScanRequest(unsigned int id, vector<VEXONodeInfo>& someNodes, long time)
    : VEXORequest(id), ts(time) {
  nodes = someNodes;
}
VEXORangingScanRequest::~VEXORangingScanRequest() = default;

VEXOPeriodicRangingScanRequest::VEXOPeriodicRangingScanRequest(unsigned int id, vector<VEXOPeriodicNodeInfo>& someNodes,
                                                               long time)
    : VEXORequest(id), ts(time) {
  nodes = someNodes;
}
VEXOPeriodicRangingScanRequest::~VEXOPeriodicRangingScanRequest() = default;

VEXOResponse::VEXOResponse(unsigned int id) : requestId(id) {}
VEXOResponse::~VEXOResponse() = default;
unsigned int VEXOResponse::getRequestId() { return requestId; }

VEXODiscoveryScanResponse::VEXODiscoveryScanResponse(unsigned int id)
    : VEXOResponse(id), scanStatus(0), opaque32(0), opaque64(0) {}
VEXODiscoveryScanResponse::~VEXODiscoveryScanResponse() = default;
int32_t VEXODiscoveryScanResponse::getResponseType() const { return RESPONSE_TYPE_DISCOVERY_SCAN; }

VEXORangingScanResponse::VEXORangingScanResponse(unsigned int id) : VEXOResponse(id), scanStatus(0) {}
VEXORangingScanResponse::~VEXORangingScanResponse() = default;
int32_t VEXORangingScanResponse::getResponseType() const { return RESPONSE_TYPE_RANGING_SCAN; }

VEXOScanMeasurement::VEXOScanMeasurement()
    : value10(0),
      reserved14(),
      value40(0),
      value41(0),
      reserved42(),
      value44(0),
      value48(0),
      reserved70(),
      value78(0),
      value79(0),
      reserved7A(),
      value98(0),
      value9C(0),
      value9D(0),
      reserved9E(),
      valueA0(0),
      valueA4(0),
      valueA6(0),
      valueA8(0),
      reservedAC(),
      valueC8(0),
      valueCA(0),
      valueCC(0),
      valueCD(0),
      valueCE(0),
      reservedCF(0),
      element1(nullptr),
      element2(nullptr),
      reservedE0(),
      valueE8(0),
      valueEC(0),
      valueF0(0),
      valueF4(0),
      valueF8(0) {}
VEXOScanMeasurement::~VEXOScanMeasurement() = default;
int32_t VEXOScanMeasurement::getMeasurementType() const { return MEASUREMENT_TYPE_PLAIN; }

VEXOFullBeaconScanMeasurement::VEXOFullBeaconScanMeasurement() : vendorExtraByte(0), reserved101() {}
VEXOFullBeaconScanMeasurement::~VEXOFullBeaconScanMeasurement() = default;
int32_t VEXOFullBeaconScanMeasurement::getMeasurementType() const { return MEASUREMENT_TYPE_FULL_BEACON; }

VEXORangingScanMeasurement::VEXORangingScanMeasurement() : reserved100() {}
VEXORangingScanMeasurement::~VEXORangingScanMeasurement() = default;
int32_t VEXORangingScanMeasurement::getMeasurementType() const { return MEASUREMENT_TYPE_RANGING; }

VEXOClientListener::~VEXOClientListener() = default;
VEXOClient::VEXOClient() = default;
VEXOClient::~VEXOClient() = default;

}  // namespace zv_loc_fw
