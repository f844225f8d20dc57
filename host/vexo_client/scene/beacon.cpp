#include "host/vexo_client/scene/beacon.h"

#include <algorithm>
#include <initializer_list>
#include <string_view>
#include <utility>

#include "host/wifi/channel_layout.h"
#include "host/wifi/channels.h"
#include "host/wifi/information_elements.h"

namespace vexo_host {
namespace {

constexpr uint8_t kSuiteTkip = 2, kSuiteCcmp = 4, kSuiteBip = 6, kSuiteGcmp256 = 9;
constexpr uint8_t kAkmEnterprise = 1, kAkmPsk = 2, kAkmSae = 8, kAkmOwe = 18, kAkmSaeExtendedKey = 24;

// Appends elements and, within one, little-endian fields.
class ElementWriter {
 public:
  void Begin(uint8_t id) {
    bytes.push_back(id);
    bytes.push_back(0);
    lengthAt = bytes.size() - 1;
  }
  void BeginExtension(uint8_t extension) {
    Begin(wifi::kElementExtension);
    U8(extension);
  }
  void U8(uint32_t value) { bytes.push_back(static_cast<uint8_t>(value)), ++bytes[lengthAt]; }
  void U16(uint32_t value) { U8(value & 0xFF), U8(value >> 8 & 0xFF); }
  void U24(uint32_t value) { U16(value & 0xFFFF), U8(value >> 16); }
  void U32(uint32_t value) { U16(value & 0xFFFF), U16(value >> 16); }
  void Octets(std::initializer_list<uint8_t> list) {
    for (const uint8_t octet : list) U8(octet);
  }
  void Octets(std::string_view text) {
    for (const char octet : text) U8(static_cast<uint8_t>(octet));
  }
  void Zeros(int count) {
    while (count-- > 0) U8(0);
  }
  void Address(uint64_t address) {
    for (int shift = 40; shift >= 0; shift -= 8) U8(address >> shift & 0xFF);
  }

  std::vector<uint8_t> bytes;

 private:
  size_t lengthAt = 0;
};

bool Has5GHzOrAbove(const AccessPoint& ap) { return !wifi::Is2GHz(ap.frequencyMhz); }
bool Is6GHz(const AccessPoint& ap) { return wifi::Is6GHz(ap.frequencyMhz); }
bool HasRsn(const AccessPoint& ap) { return ap.security >= Security::kWpa2Psk && ap.security <= Security::kOwe; }
bool HasSae(const AccessPoint& ap) {
  return ap.security == Security::kWpa3Sae || ap.security == Security::kWpa2Wpa3Transition;
}
// A number of the access point's own, to vary what a real one would have set up.
uint32_t Trait(const AccessPoint& ap) { return static_cast<uint32_t>((ap.bssid ^ ap.bssid >> 13) & 0xFFFF); }

void WriteSsid(const AccessPoint& ap, FrameKind kind, ElementWriter& out) {
  out.Begin(wifi::kElementSsid);
  if (kind == FrameKind::kProbeResponse || ap.ssidInBeacon == SsidInBeacon::kShown) {
    out.Octets(ap.ssid);
  } else if (ap.ssidInBeacon == SsidInBeacon::kZeroed) {
    out.Zeros(static_cast<int>(ap.ssid.size()));
  }
}

// In units of 500 kb/s; the top bit marks a rate that every station must have.
void WriteSupportedRates(const AccessPoint& ap, ElementWriter& out) {
  out.Begin(wifi::kElementSupportedRates);
  if (Has5GHzOrAbove(ap)) {
    out.Octets({0x8C, 0x12, 0x98, 0x24, 0xB0, 0x48, 0x60, 0x6C});
  } else {
    out.Octets({0x82, 0x84, 0x8B, 0x96});
    if (ap.phy != Phy::kDsss) out.Octets({0x0C, 0x12, 0x18, 0x24});
  }
}

void WriteTim(const AccessPoint& ap, ElementWriter& out) {
  const uint32_t period = 1 + Trait(ap) % 3;
  out.Begin(wifi::kElementTim);
  out.U8(Trait(ap) % period);  // beacons until the next DTIM
  out.U8(period);
  out.U16(0);  // nothing is buffered
}

// Triplets of first channel, number of channels and limit in dBm, padded to an even length (9.4.2.8).
void WriteCountry(const AccessPoint& ap, ElementWriter& out) {
  out.Begin(wifi::kElementCountry);
  out.Octets("DE ");
  if (Is6GHz(ap)) {
    out.Octets({201, 131, 0, 1, 24, 23, 0});  // the first three name the operating class of the channels
  } else if (Has5GHzOrAbove(ap)) {
    out.Octets({36, 4, 23, 52, 4, 23, 100, 11, 30});
  } else {
    out.Octets({1, 13, 20});
  }
}

void WriteCipher(uint8_t suite, ElementWriter& out) { out.Octets({0x00, 0x0F, 0xAC, suite}); }

void WriteRsn(const AccessPoint& ap, ElementWriter& out) {
  const bool required = ap.security == Security::kWpa3Sae || ap.security == Security::kOwe;
  const bool frameProtection = required || ap.security == Security::kWpa2Wpa3Transition;
  const bool wide = ap.phy == Phy::kEht && ap.security == Security::kWpa3Sae;
  out.Begin(wifi::kElementRsn);
  out.U16(1);  // version
  WriteCipher(kSuiteCcmp, out);
  out.U16(wide ? 2 : 1);
  WriteCipher(kSuiteCcmp, out);
  if (wide) WriteCipher(kSuiteGcmp256, out);
  switch (ap.security) {
    case Security::kWpa2Enterprise:
      out.U16(1);
      WriteCipher(kAkmEnterprise, out);
      break;
    case Security::kWpa2Wpa3Transition:
      out.U16(2);
      WriteCipher(kAkmPsk, out);
      WriteCipher(kAkmSae, out);
      break;
    case Security::kWpa3Sae:
      out.U16(wide ? 2 : 1);
      WriteCipher(kAkmSae, out);
      if (wide) WriteCipher(kAkmSaeExtendedKey, out);
      break;
    case Security::kOwe:
      out.U16(1);
      WriteCipher(kAkmOwe, out);
      break;
    default:
      out.U16(1);
      WriteCipher(kAkmPsk, out);
  }
  out.U16((frameProtection ? 0x80u : 0u) | (required ? 0x40u : 0u) | 0x0C);  // 16 replay counters
  if (frameProtection) {
    out.U16(0);  // no PMKID
    WriteCipher(kSuiteBip, out);
  }
}

void WriteBssLoad(const AccessPoint& ap, ElementWriter& out) {
  out.Begin(wifi::kElementBssLoad);
  out.U16(Trait(ap) % 23);       // stations
  out.U8(10 + Trait(ap) % 120);  // channel utilisation, in 1/255
  out.U16(0);                    // admission capacity
}

void WriteHt(const AccessPoint& ap, ElementWriter& out) {
  const wifi::ChannelLayout layout = wifi::LayoutOf(ap.frequencyMhz);
  const bool wide = ap.widthMhz >= 40;
  out.Begin(wifi::kElementHtCapabilities);
  out.U16(0x01ADu | (wide ? 0x42u : 0u));  // LDPC, short guard interval, STBC; 40 MHz
  out.U8(0x17);                            // A-MPDU: 64 KiB, 4 us between frames
  out.Octets({0xFF, 0xFF});                // MCS 0 to 15
  out.Zeros(14);
  out.U16(0);
  out.U32(0);
  out.U8(0);

  out.Begin(wifi::kElementHtOperation);
  out.U8(layout.primaryChannel);
  out.U8(wide ? (layout.secondaryAbove ? 0x05u : 0x07u) : 0u);
  out.U16(0);
  out.U16(0);
  out.Zeros(16);
}

void WriteExtendedCapabilities(const AccessPoint& ap, ElementWriter& out) {
  out.Begin(wifi::kElementExtendedCapabilities);
  out.Octets({0x04, 0x00, 0x08, 0x00, 0x00, 0x00});  // channel switching (2), BSS transition (19)
  out.U8(ap.utf8Ssid ? 0x01u : 0x00u);               // the SSID is UTF-8 (48)
  out.U8(0x40);                                      // operating mode notification (62)
  if (ap.ftm != Ftm::kNone || ap.phy >= Phy::kHe) {
    out.U8(ap.ftm != Ftm::kNone ? 0x40u : 0x00u);  // fine timing measurement responder (70)
    if (ap.phy >= Phy::kHe) out.Octets({0x40});    // target wake time responder (78)
  }
}

void WriteVht(const AccessPoint& ap, ElementWriter& out) {
  const wifi::ChannelLayout layout = wifi::LayoutOf(ap.frequencyMhz);
  out.Begin(wifi::kElementVhtCapabilities);
  // MPDUs of 11 KiB, LDPC, short guard interval, STBC, beamforming, A-MPDUs of 1 MiB; 160 MHz.
  out.U32(0x038011B2u | (ap.widthMhz >= 160 ? 0x44u : 0u));
  out.U16(0xFFFA), out.U16(0), out.U16(0xFFFA), out.U16(0);  // two streams, MCS 0 to 9, both ways

  out.Begin(wifi::kElementVhtOperation);
  out.U8(ap.widthMhz >= 80 ? 1u : 0u);
  out.U8(ap.widthMhz >= 80 ? layout.centre80 : 0u);
  out.U8(ap.widthMhz >= 160 ? layout.centre160 : 0u);
  out.U16(0xFFFC);  // every station must have MCS 0 to 7 of one stream
}

// Bits 1 to 4 of the HE PHY capabilities: the widths beyond 20 MHz.
uint32_t HeWidths(const AccessPoint& ap) {
  if (!Has5GHzOrAbove(ap)) return ap.widthMhz >= 40 ? 0x02u : 0x00u;
  return ap.widthMhz >= 160 ? 0x0Cu : 0x04u;
}

void WriteHe(const AccessPoint& ap, ElementWriter& out) {
  const wifi::ChannelLayout layout = wifi::LayoutOf(ap.frequencyMhz);
  out.BeginExtension(wifi::kExtensionHeCapabilities);
  out.Octets({0x05, 0x00, 0x18, 0x12, 0x00, 0x10});  // MAC
  out.U8(HeWidths(ap));                              // PHY; no thresholds follow (bit 78)
  out.Octets({0x20, 0xCE, 0x12, 0x6D, 0x00, 0x31, 0x02, 0x3F, 0x00, 0x00});
  out.U16(0xFFFA), out.U16(0xFFFA);  // two streams, MCS 0 to 11, both ways
  if (HeWidths(ap) & 0x08) out.U16(0xFFFA), out.U16(0xFFFA);

  out.BeginExtension(wifi::kExtensionHeOperation);
  out.U24(0x003FF4u | (Is6GHz(ap) ? 1u << 17 : 0u));
  out.U8(1 + Trait(ap) % 63);  // BSS colour
  out.U16(0xFFFC);
  if (Is6GHz(ap)) {
    out.U8(layout.primaryChannel);
    out.U8(ap.widthMhz >= 160 ? 3u : ap.widthMhz >= 80 ? 2u : 0u);
    out.U8(ap.widthMhz >= 80 ? layout.centre80 : layout.primaryChannel);
    out.U8(ap.widthMhz >= 160 ? layout.centre160 : 0u);
    out.U8(6);  // lowest rate, Mb/s
    out.BeginExtension(wifi::kExtensionHe6GhzBandCapabilities);
    out.U16(0x06BD);
  }
}

void WriteEht(const AccessPoint& ap, ElementWriter& out) {
  const wifi::ChannelLayout layout = wifi::LayoutOf(ap.frequencyMhz);
  out.BeginExtension(wifi::kExtensionEhtOperation);
  out.U8(0x01);  // the operation information is there
  out.Octets({0x22, 0x22, 0x22, 0x00});
  out.U8(ap.widthMhz >= 320 ? 4u : ap.widthMhz >= 160 ? 3u : ap.widthMhz >= 80 ? 2u : 0u);
  out.U8(ap.widthMhz >= 320 ? layout.centre160 : layout.centre80);
  out.U8(ap.widthMhz >= 320 ? layout.centre320 : ap.widthMhz >= 160 ? layout.centre160 : 0u);

  // Basic multi-link element: the device's own address, this link's number, one parameter change count.
  out.BeginExtension(wifi::kExtensionMultiLink);
  out.U16(0x0030);
  out.U8(9);
  out.Address(ap.bssid & 0xFFFFFFFFFFF0);
  out.U8(Is6GHz(ap) ? 2u : 1u);
  out.U8(1);

  out.BeginExtension(wifi::kExtensionEhtCapabilities);
  out.U16(0x0003);                                                                               // MAC
  out.Octets({static_cast<uint8_t>(ap.widthMhz >= 320 ? 0x02 : 0x00), 0, 0, 0, 0, 0, 0, 0, 0});  // PHY
  for (uint32_t width = 80; width <= std::max(ap.widthMhz, 80u); width *= 2) out.Octets({0x22, 0x22, 0x22});
}

void WriteWpa(ElementWriter& out) {
  out.Begin(wifi::kElementVendorSpecific);
  out.Octets({0x00, 0x50, 0xF2, 1});
  out.U16(1);  // version
  out.Octets({0x00, 0x50, 0xF2, kSuiteTkip});
  out.U16(1);
  out.Octets({0x00, 0x50, 0xF2, kSuiteTkip});
  out.U16(1);
  out.Octets({0x00, 0x50, 0xF2, kAkmPsk});
}

void WriteWmm(ElementWriter& out) {
  out.Begin(wifi::kElementVendorSpecific);
  out.Octets({0x00, 0x50, 0xF2, 2, 1, 1, 0x80, 0});  // parameters, version 1, power save delivery
  out.Octets({0x03, 0xA4, 0x00, 0x00, 0x27, 0xA4, 0x00, 0x00, 0x42, 0x43, 0x5E, 0x00, 0x62, 0x32, 0x2F, 0x00});
}

// Wi-Fi Protected Setup: attributes of type and length, both big-endian.
void WriteWps(const AccessPoint& ap, ElementWriter& out) {
  out.Begin(wifi::kElementVendorSpecific);
  out.Octets({0x00, 0x50, 0xF2, 4});
  out.Octets({0x10, 0x4A, 0, 1, 0x10});                                                         // version
  out.Octets({0x10, 0x44, 0, 1, 0x02});                                                         // configured
  out.Octets({0x10, 0x47, 0, 16, 0x2A, 0x5C, 0x11, 0xD0, 0x63, 0x0E, 0x5B, 0x19, 0x92, 0x44});  // its UUID
  out.Address(ap.bssid);
  out.Octets({0x10, 0x3C, 0, 1, static_cast<uint8_t>(Has5GHzOrAbove(ap) ? 2 : 1)});  // band
  out.Octets({0x10, 0x49, 0, 6, 0x00, 0x37, 0x2A, 0x00, 0x01, 0x20});                // version 2
}

void WriteOweTransition(const AccessPoint& ap, ElementWriter& out) {
  out.Begin(wifi::kElementVendorSpecific);
  out.Octets({0x50, 0x6F, 0x9A, 0x1C});
  out.Address(ap.partnerBssid);
  out.U8(static_cast<uint32_t>(ap.partnerSsid.size()));
  out.Octets(ap.partnerSsid);
}

// The scene's own vendor element: type, site and floor, then where the access point stands, in centimetres.
void WriteSitePlan(const AccessPoint& ap, ElementWriter& out) {
  out.Begin(wifi::kElementVendorSpecific);
  out.Octets({0x02, 0x4B, 0x9E, 1});
  out.U16(Trait(ap));
  out.U8(static_cast<uint32_t>(ap.position.z / 3));
  for (const double metres : {ap.position.x, ap.position.y, ap.position.z}) {
    out.U32(static_cast<uint32_t>(static_cast<int32_t>(metres * 100)));
  }
  out.Octets("site plan, edition 3");
}

}  // namespace

uint16_t CapabilityOf(const AccessPoint& ap) {
  uint32_t bits = 1u << 0;  // an infrastructure BSS
  const bool open = ap.security == Security::kOpen || ap.security == Security::kOweTransition;
  if (!open) bits |= 1u << 4;                                         // privacy
  if (!Has5GHzOrAbove(ap)) bits |= 1u << 5;                           // short preamble
  if (wifi::Is5GHz(ap.frequencyMhz)) bits |= 1u << 8;                 // spectrum management
  if (!Has5GHzOrAbove(ap) && ap.phy != Phy::kDsss) bits |= 1u << 10;  // short slot time
  if (ap.phy >= Phy::kHt) bits |= 1u << 12;                           // radio measurement
  return static_cast<uint16_t>(bits);
}

std::vector<uint8_t> ElementsOf(const AccessPoint& ap, FrameKind kind) {
  ElementWriter out;
  out.bytes.reserve(400);
  WriteSsid(ap, kind, out);
  WriteSupportedRates(ap, out);
  if (!Has5GHzOrAbove(ap)) {
    out.Begin(wifi::kElementDsParameterSet);
    out.U8(wifi::ChannelOfFrequency(ap.frequencyMhz));
  }
  if (kind == FrameKind::kBeacon) WriteTim(ap, out);
  if (ap.phy >= Phy::kHt) WriteCountry(ap, out);
  if (wifi::Is5GHz(ap.frequencyMhz)) {
    out.Begin(wifi::kElementPowerConstraint);
    out.U8(0);
    out.Begin(wifi::kElementTpcReport);
    out.U8(static_cast<uint32_t>(ap.transmitDbm));
    out.U8(0);
  }
  if (!Has5GHzOrAbove(ap) && ap.phy != Phy::kDsss) {
    out.Begin(wifi::kElementErp);
    out.U8(0);
    out.Begin(wifi::kElementExtendedSupportedRates);
    out.Octets({0x30, 0x48, 0x60, 0x6C});
  }
  if (HasRsn(ap)) WriteRsn(ap, out);
  if (ap.phy >= Phy::kVht) WriteBssLoad(ap, out);
  if (ap.phy >= Phy::kHt) {
    out.Begin(wifi::kElementRmEnabledCapabilities);
    out.Octets({0x73, 0x00, 0x00, 0x00, 0x00});
    if (!Is6GHz(ap)) WriteHt(ap, out);
    WriteExtendedCapabilities(ap, out);
  }
  if (ap.phy >= Phy::kVht && wifi::Is5GHz(ap.frequencyMhz)) WriteVht(ap, out);
  if (ap.phy >= Phy::kHe) WriteHe(ap, out);
  if (ap.phy >= Phy::kEht) WriteEht(ap, out);
  if (HasSae(ap)) {
    out.Begin(wifi::kElementRsnExtension);
    out.U8(0x20);  // the hash-to-element method
  }
  if (ap.security == Security::kWpaPsk) WriteWpa(out);
  if (ap.phy >= Phy::kHt) WriteWmm(out);
  if (ap.security == Security::kWpa2Psk || ap.security == Security::kWpa2Wpa3Transition) WriteWps(ap, out);
  if (ap.security == Security::kOweTransition || ap.partnerBssid != 0) WriteOweTransition(ap, out);
  if (ap.sitePlan) WriteSitePlan(ap, out);
  return std::move(out.bytes);
}

}  // namespace vexo_host
