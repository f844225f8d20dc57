#include "host/vexo_client/scene/neighbourhood.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <numbers>
#include <string_view>

#include "host/vexo_client/scene/noise.h"
#include "host/wifi/channels.h"

namespace vexo_host {
namespace {

// Streams of noise, apart from those of the generated access points.
constexpr uint64_t kSignalStream = 1ull << 40;

constexpr uint64_t kOwnFirst = 0x021A00000000;  // generated BSSIDs: locally administered, numbered from here

constexpr uint64_t kLibraryOpen = 0x0A1B2C3D4E10, kLibraryOwe = 0x0A1B2C3D4E11;
constexpr char kLibrarySsid[] = "Stadtbibliothek", kLibraryOweSsid[] = "_owetm_Stadtbibliothek";

struct BuiltIn {
  uint64_t bssid;
  std::string_view ssid;
  uint32_t frequencyMhz, widthMhz;
  Phy phy;
  Security security;
  Ftm ftm;
  int32_t transmitDbm;
  Position position;
};

// What an SSID needs beyond these is set in MakeBuiltIn.
constexpr std::array<BuiltIn, kBuiltInAccessPoints> kBuiltIn{{
    {0x02A0C9114501, "Linden 12", 2412, 20, Phy::kHt, Security::kWpa2Psk, Ftm::kNone, 20, {4, 3, 2.2}},
    {0x02A0C9114505, "Linden 12", 5180, 80, Phy::kVht, Security::kWpa2Psk, Ftm::kAnswers, 23, {4, 3, 2.2}},
    {0x06D41E7720A0, "Kaffee Gr\xC3\xBCn", 2437, 20, Phy::kHt, Security::kOpen, Ftm::kAnswers, 20, {-18, 25, 3}},
    {0x0240F4031299, "old-printer", 2462, 20, Phy::kDsss, Security::kWep, Ftm::kNone, 15, {11, -6, 0.8}},
    {0x026045AA0815, "WLAN-0815", 2462, 20, Phy::kErp, Security::kWpaPsk, Ftm::kNone, 17, {-30, -12, 5}},
    {0x0AF58A61C0D0, "Werk3-Corp", 5220, 80, Phy::kHe, Security::kWpa2Enterprise, Ftm::kAnswers, 23, {22, 40, 4}},
    {0x0E7C33905A20, "Aurora", 6135, 320, Phy::kEht, Security::kWpa3Sae, Ftm::kAnswers, 23, {-2, 5, 2.4}},
    {0x0E7C33905A21, "Aurora", 5500, 160, Phy::kHe, Security::kWpa2Wpa3Transition, Ftm::kAnswers, 24, {-2, 5, 2.4}},
    {kLibraryOpen, kLibrarySsid, 5260, 80, Phy::kVht, Security::kOweTransition, Ftm::kRefuses, 23, {55, -20, 6}},
    {kLibraryOwe, kLibraryOweSsid, 5260, 80, Phy::kVht, Security::kOwe, Ftm::kBusy, 23, {55, -20, 6}},
    {0x02BBCC01F00D, "Caf\xE9 M\xFCller", 2437, 20, Phy::kHe, Security::kOwe, Ftm::kSilent, 20, {-40, 8, 3}},
    {0x02E0FC5510B7, "backoffice", 2472, 40, Phy::kHt, Security::kWpa2Psk, Ftm::kNone, 20, {9, 31, 3}},
    {0x02005E00DEAD, "\x1B[31mred\x1B[0m\r\n\x07", 2422, 20, Phy::kHt, Security::kOpen, Ftm::kNone, 20, {13, 14, 1}},
}};

AccessPoint MakeBuiltIn(const BuiltIn& entry) {
  AccessPoint ap;
  ap.bssid = entry.bssid;
  ap.ssid = entry.ssid;
  ap.frequencyMhz = entry.frequencyMhz;
  ap.widthMhz = entry.widthMhz;
  ap.phy = entry.phy;
  ap.security = entry.security;
  ap.transmitDbm = entry.transmitDbm;
  ap.position = entry.position;
  ap.utf8Ssid = entry.ssid.starts_with("Kaffee");
  ap.ftm = entry.ftm;
  ap.sitePlan = entry.security == Security::kWpa2Enterprise;
  if (entry.ssid == "backoffice") ap.ssidInBeacon = SsidInBeacon::kZeroed;
  if (entry.bssid == kLibraryOpen) {
    ap.partnerBssid = kLibraryOwe;
    ap.partnerSsid = kLibraryOweSsid;
  } else if (entry.bssid == kLibraryOwe) {
    ap.ssidInBeacon = SsidInBeacon::kEmpty;
    ap.partnerBssid = kLibraryOpen;
    ap.partnerSsid = kLibrarySsid;
  }
  return ap;
}

template <typename T, size_t Size>
T Pick(const std::array<T, Size>& list, Noise& noise) {
  return list[noise.Below(Size)];
}

AccessPoint Generate(uint32_t index, uint64_t seed) {
  Noise noise(seed, index);
  AccessPoint ap;
  ap.bssid = kOwnFirst + index;

  constexpr std::array<std::string_view, 8> kNames{"Home",   "Buero", "Studio", "guest",
                                                   "Mesh-5", "Villa", "Lager",  "Praxis"};
  char name[32];
  std::snprintf(name, sizeof name, "%s %05u", Pick(kNames, noise).data(), index);
  ap.ssid = name;
  const uint32_t hidden = noise.Below(20);
  if (hidden == 0) ap.ssidInBeacon = SsidInBeacon::kEmpty;
  if (hidden == 1) ap.ssidInBeacon = SsidInBeacon::kZeroed;

  switch (noise.Below(5)) {
    case 0:
    case 1:
      ap.frequencyMhz = Pick(std::array{2412u, 2437u, 2462u, 2472u}, noise);
      ap.phy = Pick(std::array{Phy::kErp, Phy::kHt, Phy::kHt, Phy::kHe}, noise);
      break;
    case 4:
      ap.frequencyMhz = 5955 + 80 * noise.Below(12);
      ap.phy = Pick(std::array{Phy::kHe, Phy::kEht}, noise);
      ap.widthMhz = Pick(std::array{80u, 160u}, noise);
      break;
    default:
      ap.frequencyMhz = Pick(std::array{5180u, 5220u, 5260u, 5300u, 5500u, 5580u}, noise);
      ap.phy = Pick(std::array{Phy::kVht, Phy::kHe, Phy::kEht}, noise);
      ap.widthMhz = 80;
  }
  if (ap.phy == Phy::kErp) {
    ap.security = Pick(std::array{Security::kWpaPsk, Security::kWep, Security::kOpen}, noise);
  } else if (wifi::Is6GHz(ap.frequencyMhz)) {
    ap.security = Pick(std::array{Security::kWpa3Sae, Security::kOwe}, noise);
  } else {
    ap.security = Pick(std::array{Security::kWpa2Psk, Security::kWpa2Psk, Security::kWpa2Enterprise, Security::kOpen,
                                  Security::kWpa2Wpa3Transition, Security::kWpa3Sae},
                       noise);
  }
  if (ap.phy >= Phy::kVht && noise.Below(3) == 0) ap.ftm = Ftm::kAnswers;
  ap.sitePlan = noise.Below(10) == 0;
  ap.transmitDbm = static_cast<int32_t>(15 + noise.Below(10));

  const double radius = 3 + 150 * std::sqrt(noise.Unit());
  const double angle = 2 * std::numbers::pi * noise.Unit();
  ap.position = {radius * std::cos(angle), radius * std::sin(angle), 3.0 * noise.Below(6) + 2};
  return ap;
}

}  // namespace

std::vector<AccessPoint> MakeNeighbourhood(uint32_t count, uint64_t seed) {
  std::vector<AccessPoint> all;
  all.reserve(count);
  for (uint32_t i = 0; i < count; ++i) {
    all.push_back(i < kBuiltInAccessPoints ? MakeBuiltIn(kBuiltIn[i]) : Generate(i, seed));
  }
  return all;
}

double Distance(const Position& a, const Position& b) { return std::hypot(a.x - b.x, a.y - b.y, a.z - b.z); }

int32_t SignalMbm(const AccessPoint& ap, uint64_t seed) {
  constexpr double kExponent = 2.8;   // of the path loss, indoors and through a few walls
  constexpr double kShadowingDb = 3;  // standard deviation
  const double freeSpaceAt1m = 20 * std::log10(ap.frequencyMhz) - 27.55;
  const double loss = freeSpaceAt1m + 10 * kExponent * std::log10(std::max(1.0, Distance(ap.position, kListener)));
  const double received = ap.transmitDbm - loss + kShadowingDb * Noise(seed, kSignalStream ^ ap.bssid).Normal();
  return std::max(kWeakestSignalMbm, static_cast<int32_t>(std::lround(100 * received)));
}

}  // namespace vexo_host
