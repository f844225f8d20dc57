#include "host/vexo_client/nl80211/interface.h"

#include <net/if.h>
#include <netlink/attr.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <new>

namespace vexo_host::nl80211 {
namespace {

using wifi::ScanStatus;

// Without memory to look it is taken to be not.
bool IsBlocked(const std::string& name) noexcept try {
  std::error_code error;
  const std::filesystem::path radio = "/sys/class/net/" + name + "/phy80211";
  for (std::filesystem::directory_iterator entry(radio, error), end; !error && entry != end; entry.increment(error)) {
    if (entry->path().filename().string().rfind("rfkill", 0) != 0) continue;
    for (const char* kind : {"hard", "soft"}) {
      int blocked = 0;
      if (std::ifstream(entry->path() / kind) >> blocked && blocked != 0) return true;
    }
  }
  return false;
} catch (const std::exception&) {
  return false;
}

// Calls `function` for each attribute that is nested in `nest`, if it is there.
template <typename Function>
void ForEachNested(nlattr* nest, const Function& function) {
  if (nest == nullptr) return;
  nlattr* nested = nullptr;
  int rest = 0;
  nla_for_each_nested(nested, nest, rest) function(nested);
}

void AddFrequencies(nlattr* bands, std::vector<uint32_t>& frequenciesMhz) {
  std::array<nla_policy, NL80211_BAND_ATTR_MAX + 1> bandPolicy{};
  bandPolicy[NL80211_BAND_ATTR_FREQS].type = NLA_NESTED;
  std::array<nla_policy, NL80211_FREQUENCY_ATTR_MAX + 1> policy{};
  policy[NL80211_FREQUENCY_ATTR_FREQ].type = NLA_U32;
  ForEachNested(bands, [&](nlattr* band) {
    const int number = nla_type(band);  // the others scan in other ways, or name channels by more than whole MHz
    if (number != NL80211_BAND_2GHZ && number != NL80211_BAND_5GHZ && number != NL80211_BAND_6GHZ) return;
    std::array<nlattr*, NL80211_BAND_ATTR_MAX + 1> ofBand{};
    if (nla_parse_nested(ofBand.data(), NL80211_BAND_ATTR_MAX, band, bandPolicy.data()) != 0) return;
    ForEachNested(ofBand[NL80211_BAND_ATTR_FREQS], [&](nlattr* frequency) {
      std::array<nlattr*, NL80211_FREQUENCY_ATTR_MAX + 1> of{};
      if (nla_parse_nested(of.data(), NL80211_FREQUENCY_ATTR_MAX, frequency, policy.data()) != 0) return;
      if (of[NL80211_FREQUENCY_ATTR_FREQ] == nullptr || of[NL80211_FREQUENCY_ATTR_DISABLED] != nullptr) return;
      frequenciesMhz.push_back(nla_get_u32(of[NL80211_FREQUENCY_ATTR_FREQ]));
    });
  });
}

}  // namespace

void ReadWiphy(const Attributes& attributes, Interface& interface) {
  if (attributes[NL80211_ATTR_MAX_NUM_SCAN_SSIDS] != nullptr) {
    interface.maxScanSsids = std::max<size_t>(1, nla_get_u8(attributes[NL80211_ATTR_MAX_NUM_SCAN_SSIDS]));
  }
  if (const auto ftm = ReadFtmCapabilities(attributes[NL80211_ATTR_PEER_MEASUREMENTS])) interface.ftm = ftm;
  AddFrequencies(attributes[NL80211_ATTR_WIPHY_BANDS], interface.frequenciesMhz);
}

ScanStatus StatusOf(int error, const std::string& name) noexcept {
  switch (error) {
    case 0:
      return ScanStatus::kOk;
    case ENODEV:
    case ENXIO:
      return ScanStatus::kInterfaceGone;
    case ENETDOWN:
      return IsBlocked(name) ? ScanStatus::kRadioBlocked : ScanStatus::kInterfaceDown;
    case ERFKILL:
      return ScanStatus::kRadioBlocked;
    case EPERM:
    case EACCES:
      return ScanStatus::kNotPermitted;
    case EOPNOTSUPP:
      return ScanStatus::kWrongInterface;
    default:
      return ScanStatus::kFailed;
  }
}

namespace {

// 0, or the errno of what the socket's device is asked about the interface.
int AskDevice(const std::string& name, const Netlink& netlink, unsigned long question, ifreq& request) {
  if (name.size() >= sizeof(request.ifr_name)) return ENODEV;  // no interface has a longer name
  std::memcpy(request.ifr_name, name.data(), name.size());
  return ioctl(netlink.Descriptor(), question, &request) == 0 ? 0 : errno;
}

}  // namespace

uint32_t IndexOf(const std::string& name, const Netlink& netlink) {
  ifreq request{};
  errno = AskDevice(name, netlink, SIOCGIFINDEX, request);
  return errno == 0 ? static_cast<uint32_t>(request.ifr_ifindex) : 0;
}

ScanStatus StateOf(const std::string& name, const Netlink& netlink, uint32_t index) noexcept {
  if (IndexOf(name, netlink) != index) return ScanStatus::kInterfaceGone;
  ifreq request{};
  const int error = AskDevice(name, netlink, SIOCGIFFLAGS, request);
  return StatusOf(error == 0 && (request.ifr_flags & IFF_UP) == 0 ? ENETDOWN : error, name);
}

ScanStatus FindInterface(const std::string& name, Netlink& netlink, Interface& interface) {
  interface.index = IndexOf(name, netlink);
  if (interface.index == 0) return StatusOf(errno, name);

  Message ask = netlink.New(NL80211_CMD_GET_INTERFACE);
  if (nla_put_u32(ask.get(), NL80211_ATTR_IFINDEX, interface.index) != 0) throw std::bad_alloc();
  bool isRadio = false;
  const int error = netlink.Ask(std::move(ask), [&](uint8_t, const Attributes& attributes) {
    if (attributes[NL80211_ATTR_WIPHY] == nullptr) return;
    isRadio = true;
    interface.wiphy = nla_get_u32(attributes[NL80211_ATTR_WIPHY]);
  });
  if (error == ENODEV && IndexOf(name, netlink) != 0) return ScanStatus::kWrongInterface;  // it has no radio
  if (error != 0) return StatusOf(error, name);
  return isRadio ? ScanStatus::kOk : ScanStatus::kWrongInterface;
}

ScanStatus LookUp(const std::string& name, Netlink& netlink, Interface& interface) {
  interface = Interface();
  const ScanStatus status = FindInterface(name, netlink, interface);
  if (status != ScanStatus::kOk) return status;

  Message ask = netlink.New(NL80211_CMD_GET_WIPHY, NLM_F_DUMP);
  if (nla_put_u32(ask.get(), NL80211_ATTR_WIPHY, interface.wiphy) != 0 ||
      nla_put_flag(ask.get(), NL80211_ATTR_SPLIT_WIPHY_DUMP) != 0) {
    throw std::bad_alloc();
  }
  bool outOfMemory = false;
  const int dumpError = netlink.Ask(std::move(ask), [&](uint8_t, const Attributes& attributes) {
    try {
      ReadWiphy(attributes, interface);
    } catch (const std::bad_alloc&) {
      outOfMemory = true;
    }
  });
  if (outOfMemory) throw std::bad_alloc();
  if (dumpError == 0 && interface.frequenciesMhz.empty()) return ScanStatus::kInterfaceGone;  // in between
  return StatusOf(dumpError, name);
}

}  // namespace vexo_host::nl80211
