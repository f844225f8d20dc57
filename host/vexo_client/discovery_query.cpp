#include "host/vexo_client/discovery_query.h"

#include <algorithm>

#include "host/wifi/channels.h"

namespace vexo_host {
namespace {

// The centre frequency that a channel list's entry names, as a number or in MHz; 0 when there is no such channel.
uint32_t FrequencyOfEntry(uint32_t entry) {
  if (entry < wifi::kFirstChannelFrequencyMhz) return wifi::FrequencyOfChannel(entry);
  return wifi::ChannelOfFrequency(entry) != 0 ? entry : 0;
}

template <typename T>
void Sort(std::vector<T>& list) {
  std::sort(list.begin(), list.end());
  list.erase(std::unique(list.begin(), list.end()), list.end());
}

template <typename T>
bool Contains(const std::vector<T>& sorted, const T& value) {
  return std::binary_search(sorted.begin(), sorted.end(), value);
}

}  // namespace

bool DiscoveryFilters::SetChannels(const zv_loc_fw::vector<zv_loc_fw::VEXOChannelInfo>& channels) {
  byChannel = channels.count > 0;
  frequenciesMhz.clear();
  for (uint32_t i = 0; i < channels.count; ++i) {
    const uint32_t frequency = FrequencyOfEntry(channels[i].channel);
    if (frequency == 0) {
      frequenciesMhz.clear();
      return false;
    }
    frequenciesMhz.push_back(frequency);
  }
  Sort(frequenciesMhz);
  frequenciesMhz.shrink_to_fit();
  return true;
}

void DiscoveryFilters::SetSsids(const zv_loc_fw::vector<zv_loc_fw::VEXOSsid>& list) {
  bySsid = list.count > 0;
  ssids.clear();
  for (uint32_t i = 0; i < list.count; ++i) {
    uint8_t octets[32];
    int length = 0;
    if (list[i].getSSID(octets, &length) == 0) ssids.emplace_back(octets, octets + length);
  }
  Sort(ssids);
}

void DiscoveryFilters::SetMacAddresses(const zv_loc_fw::vector<zv_loc_fw::VEXOMacAddress>& list) {
  byMac = list.count > 0;
  macAddresses.clear();
  for (uint32_t i = 0; i < list.count; ++i) macAddresses.push_back(AddressBits(list[i]));
  Sort(macAddresses);
}

bool DiscoveryFilters::Admits(const Bss& bss) const {
  return AdmitsFrequency(bss.frequencyMhz) && (!bySsid || (bss.ssid && ListsSsid(*bss.ssid))) &&
         (!byMac || Contains(macAddresses, bss.bssid));
}

bool DiscoveryFilters::AdmitsFrequency(uint32_t frequencyMhz) const {
  if (byChannel) return Contains(frequenciesMhz, frequencyMhz);
  switch (band) {
    case wifi::Band::k2GHz:
      return wifi::Is2GHz(frequencyMhz);
    case wifi::Band::k5GHz:
      return wifi::Is5GHz(frequencyMhz);
    case wifi::Band::kAll:
      break;
  }
  return true;
}

bool DiscoveryFilters::ListsSsid(const Ssid& ssid) const { return Contains(ssids, ssid); }

}  // namespace vexo_host
