// The location client library's value types. Their bodies live in libvexo_client.so.
#ifndef KESD_PLATFORM_VEXO_TYPES_H_
#define KESD_PLATFORM_VEXO_TYPES_H_

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace zv_loc_fw {

// A 48-bit MAC address, held as two 24-bit halves.
class VEXOMacAddress {
 public:
  VEXOMacAddress();
  VEXOMacAddress(const VEXOMacAddress&) = default;
  VEXOMacAddress& operator=(const VEXOMacAddress& other);

  void setMac(int hi24, int lo24);
  int getHi24() const;
  int getLo24() const;

 private:
  int32_t lo24;
  int32_t hi24;
};
static_assert(sizeof(VEXOMacAddress) == 8 && alignof(VEXOMacAddress) == 4);

// An SSID: up to 32 octets, not text; it may hold no value at all.
class VEXOSsid {
 public:
  VEXOSsid();

  // Takes `length` octets, at most 32.
  void setSSID(const unsigned char* octets, int length);
  bool isSSIDValid() const;
  // Writes the octets (at most 32) to `octets` and their number to `length`. Returns 0 on success.
  int getSSID(unsigned char* octets, int* length) const;

 private:
  uint16_t valid;
  uint16_t length;
  unsigned char octets[32];
};
static_assert(sizeof(VEXOSsid) == 36 && alignof(VEXOSsid) <= 4);
static_assert(std::is_trivially_copyable_v<VEXOSsid>);

// A channel of a discovery request.
class VEXOChannelInfo {
 public:
  VEXOChannelInfo();
  explicit VEXOChannelInfo(unsigned int channel);
  VEXOChannelInfo(const VEXOChannelInfo&) = default;
  VEXOChannelInfo& operator=(const VEXOChannelInfo&) = default;
  ~VEXOChannelInfo();  // NOLINT(performance-trivially-destructible): the library's own

  uint32_t channel;
};
static_assert(sizeof(VEXOChannelInfo) == 4);

// A node of a one-shot ranging request. The library gives the values their meaning.
class VEXONodeInfo {
 public:
  VEXONodeInfo();

  VEXOMacAddress address;
  int32_t value1;
  int32_t value2;
  int32_t value3;
  uint32_t choice1;
  VEXOMacAddress secondAddress;
  uint32_t choice2;
  uint32_t choice3;
  uint32_t unset1;  // stays as the constructor made it
  uint32_t choice4;
  uint8_t byte1;
  uint8_t byte2;
  int32_t value4;
  uint32_t unset2;  // stays as the constructor made it
};
static_assert(offsetof(VEXONodeInfo, value1) == 8 && offsetof(VEXONodeInfo, choice1) == 20 &&
              offsetof(VEXONodeInfo, secondAddress) == 24 && offsetof(VEXONodeInfo, choice3) == 36 &&
              offsetof(VEXONodeInfo, unset1) == 40);

// A node of a periodic ranging request: a node, and what the repetition needs.
class VEXOPeriodicNodeInfo : public VEXONodeInfo {
 public:
  VEXOPeriodicNodeInfo();

  uint8_t byte3;
  int32_t value5;
  int32_t value6;
};

}  // namespace zv_loc_fw

#endif  // KESD_PLATFORM_VEXO_TYPES_H_
