#include "tests/kernel/access_points.h"

#include <algorithm>
#include <cctype>
#include <fstream>
#include <iterator>
#include <sstream>

namespace kernel_test {
namespace {

#define RSN "wpa=2\nrsn_pairwise=CCMP\n"
#define HT "wmm_enabled=1\nieee80211n=1\n"
#define VHT HT "ht_capab=[HT40+]\nieee80211ac=1\nvht_oper_chwidth=1\n"
#define HE VHT "ieee80211ax=1\nhe_oper_chwidth=1\n"

std::vector<std::string> Configure(const std::vector<AccessPoint>& accessPoints) {
  std::vector<std::string> command = {"/usr/sbin/hostapd"};
  for (const AccessPoint& accessPoint : accessPoints) {
    command.push_back(std::string("/tmp/") + accessPoint.interface + ".conf");
    std::ofstream(command.back()) << "driver=nl80211\ncountry_code=US\ninterface=" << accessPoint.interface << "\nssid="
                                  << accessPoint.ssid << "\nignore_broadcast_ssid=" << accessPoint.hidden << "\n"
                                  << accessPoint.configuration;
  }
  return command;
}

}  // namespace

const std::vector<AccessPoint> kAccessPoints = {
    {"wlan1", "Linden open", 2412, "hw_mode=g\nchannel=1\n", "open", "g"},
    {"wlan2", "Linden WPA2", 2437, "hw_mode=g\nchannel=6\nwpa_key_mgmt=WPA-PSK\nwpa_passphrase=12345678\n" RSN HT,
     "WPA2-Personal", "HT"},
    {"wlan3", "Linden WPA3", 5180,
     "hw_mode=a\nchannel=36\nvht_oper_centr_freq_seg0_idx=42\nwpa_key_mgmt=SAE\nieee80211w=2\nsae_password="
     "12345678\n" RSN VHT,
     "WPA3-Personal", "VHT"},
    {"wlan4", "Linden OWE", 5745,
     "hw_mode=a\nchannel=149\nvht_oper_centr_freq_seg0_idx=155\nhe_oper_centr_freq_seg0_idx=155\n"
     "wpa_key_mgmt=OWE\nieee80211w=2\n" RSN HE,
     "OWE", "HE"},
    {"wlan5", "Linden hidden", 2462, "hw_mode=g\nchannel=11\nwpa_key_mgmt=WPA-PSK\nwpa_passphrase=12345678\n" RSN HT,
     "WPA2-Personal", "HT", true},
};

Hostapd::Hostapd(const std::vector<AccessPoint>& accessPoints)
    : process(Configure(accessPoints), testing_process::Output::kMerged) {
  for (size_t left = accessPoints.size(); left > 0; --left) {
    if (process.ReadLinesUntil("AP-ENABLED").back().empty()) return;
  }
  ready = true;
}

std::string AddressOf(const std::string& interface) {
  std::string address;
  std::ifstream("/sys/class/net/" + interface + "/address") >> address;
  return address;
}

testing_process::Outcome Command(const std::string& line) {
  std::istringstream words(line);
  return testing_process::Run({std::istream_iterator<std::string>(words), std::istream_iterator<std::string>()});
}

}  // namespace kernel_test
