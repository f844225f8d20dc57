// What a discovery request asks of a source and admits into its answer.
#ifndef KESD_HOST_VEXO_CLIENT_DISCOVERY_QUERY_H_
#define KESD_HOST_VEXO_CLIENT_DISCOVERY_QUERY_H_

#include <cstdint>
#include <vector>

#include "host/vexo_client/bss.h"
#include "host/wifi/discovery_parameters.h"
#include "platform/vexo_types.h"
#include "support/vector.h"

namespace vexo_host {

using Ssid = std::vector<uint8_t>;  // octets, at most 32

// A BSS must pass every kind of filter; a list admits what equals one of its entries. An empty list admits everything.
// Each Set may throw std::bad_alloc.
class DiscoveryFilters {
 public:
  explicit DiscoveryFilters(wifi::Band someBand = wifi::Band::kAll) : band(someBand) {}

  // A list replaces the band. False when a channel does not exist; then nothing is admitted.
  bool SetChannels(const zv_loc_fw::vector<zv_loc_fw::VEXOChannelInfo>& channels);
  // An SSID that holds no value equals no BSS's.
  void SetSsids(const zv_loc_fw::vector<zv_loc_fw::VEXOSsid>& list);
  void SetMacAddresses(const zv_loc_fw::vector<zv_loc_fw::VEXOMacAddress>& list);

  bool Admits(const Bss& bss) const;

  // The unknown frequency, 0, is in no band and on no channel: only Band::kAll admits it.
  bool AdmitsFrequency(uint32_t frequencyMhz) const;

  bool ListsSsid(const Ssid& ssid) const;

  bool ListsChannels() const { return byChannel; }

  // The lists, in ascending order.
  const std::vector<Ssid>& Ssids() const { return ssids; }
  const std::vector<uint64_t>& MacAddresses() const { return macAddresses; }

 private:
  wifi::Band band;
  bool byChannel = false, bySsid = false, byMac = false;
  std::vector<uint32_t> frequenciesMhz;  // this list and those below are sorted
  std::vector<Ssid> ssids;
  std::vector<uint64_t> macAddresses;
};

struct DiscoveryQuery {
  wifi::ScanType scanType = wifi::ScanType::kPassive;
  DiscoveryFilters filters;
};

// The address as a number of 48 bits.
inline uint64_t AddressBits(const zv_loc_fw::VEXOMacAddress& address) {
  return (static_cast<uint64_t>(address.getHi24()) & 0xFFFFFF) << 24 |
         (static_cast<uint64_t>(address.getLo24()) & 0xFFFFFF);
}

}  // namespace vexo_host

#endif  // KESD_HOST_VEXO_CLIENT_DISCOVERY_QUERY_H_
