#include "client/security.h"

#include <algorithm>
#include <array>
#include <optional>

#include "host/wifi/information_elements.h"

namespace kes {
namespace {

constexpr uint16_t kCapabilityPrivacy = 1 << 4;
constexpr uint16_t kRsnMfpRequired = 1 << 6;

using Oui = std::array<uint8_t, 3>;
constexpr Oui kOuiIeee{0x00, 0x0F, 0xAC};
constexpr Oui kOuiWpa{0x00, 0x50, 0xF2};
constexpr Oui kOuiWfa{0x50, 0x6F, 0x9A};
constexpr uint8_t kVendorTypeWpa = 1;
constexpr uint8_t kVendorTypeOweTransition = 28;
constexpr uint8_t kVendorTypeRsnOverride = 41;
constexpr uint8_t kVendorTypeRsnOverride2 = 42;

constexpr std::size_t kSuiteOctets = 4;
constexpr uint32_t kAkm8021X = 1;

bool StartsWith(std::span<const uint8_t> bytes, const Oui& oui) {
  return bytes.size() >= oui.size() && std::equal(oui.begin(), oui.end(), bytes.begin());
}

bool IsVendor(const wifi::Element& element, const Oui& oui, uint8_t type) {
  return element.id == wifi::kElementVendorSpecific && element.payload.size() >= 4 &&
         StartsWith(element.payload, oui) && element.payload[3] == type;
}

uint16_t Little16(std::span<const uint8_t> bytes) { return static_cast<uint16_t>(bytes[0] | bytes[1] << 8); }

// The authentication and key management that an RSN or WPA element offers: a bit for each suite type below 32 of the
// element's own organisation. Others leave no bit.
struct KeyManagement {
  uint32_t suites = 0;
  bool mfpRequired = false;

  bool HasAny(std::initializer_list<uint32_t> types) const {
    return std::any_of(types.begin(), types.end(), [this](uint32_t type) { return (suites >> type & 1) != 0; });
  }
};

// Takes a suite list with its count off the front of `rest`; nothing when it does not fit or has no suite.
std::optional<std::span<const uint8_t>> TakeSuites(std::span<const uint8_t>& rest) {
  if (rest.size() < 2) return std::nullopt;
  const std::size_t count = Little16(rest);
  rest = rest.subspan(2);
  if (count == 0 || count > rest.size() / kSuiteOctets) return std::nullopt;
  const std::span<const uint8_t> suites = rest.first(count * kSuiteOctets);
  rest = rest.subspan(suites.size());
  return suites;
}

// Reads the body that RSN and WPA elements share: version, group cipher, pairwise ciphers, key management, and for RSN
// the capabilities. It may end after any of these; then the defaults hold. Nothing when it is damaged.
std::optional<KeyManagement> ReadBody(std::span<const uint8_t> rest, const Oui& oui) {
  KeyManagement offered;
  offered.suites = 1u << kAkm8021X;
  if (rest.size() < 2 || Little16(rest) != 1) return std::nullopt;
  rest = rest.subspan(2);
  if (rest.empty()) return offered;
  if (rest.size() < kSuiteOctets) return std::nullopt;
  rest = rest.subspan(kSuiteOctets);
  if (rest.empty()) return offered;
  if (!TakeSuites(rest)) return std::nullopt;
  if (rest.empty()) return offered;

  std::optional<std::span<const uint8_t>> suites = TakeSuites(rest);
  if (!suites) return std::nullopt;
  offered.suites = 0;
  for (; !suites->empty(); suites = suites->subspan(kSuiteOctets)) {
    const uint8_t type = (*suites)[3];
    if (StartsWith(*suites, oui) && type < 32) offered.suites |= 1u << type;
  }
  if (rest.size() == 1) return std::nullopt;
  offered.mfpRequired = rest.size() >= 2 && (Little16(rest) & kRsnMfpRequired) != 0;
  return offered;
}

// Adds what an RSN element offers (Table 9-151 and its amendments).
void AddRsn(const KeyManagement& rsn, Security& security) {
  security.personal.wpa2 |= rsn.HasAny({2, 4, 6, 19, 20});
  security.personal.wpa3 |= rsn.HasAny({8, 9, 24, 25});
  // Enterprise with SHA-256 is the third generation once frames must be protected, or beside the older suites.
  const bool older = rsn.HasAny({1, 3});
  const bool sha256 = rsn.HasAny({5});
  const bool newer = rsn.HasAny({11, 12, 13, 22, 23});
  security.enterprise.wpa2 |= older || (sha256 && !rsn.mfpRequired);
  security.enterprise.wpa3 |= newer || (sha256 && (rsn.mfpRequired || older));
  security.fils |= rsn.HasAny({14, 15, 16, 17});
  security.owe |= rsn.HasAny({18});
}

// Such an element has the body of an RSN element, for stations that know it: the RSN element beside it stays as
// stations of before WPA3 expect it.
bool IsRsnOverride(const wifi::Element& element) {
  return IsVendor(element, kOuiWfa, kVendorTypeRsnOverride) || IsVendor(element, kOuiWfa, kVendorTypeRsnOverride2);
}

}  // namespace

Security SecurityOf(std::span<const uint8_t> elements, uint16_t capability, bool complete) {
  Security security;
  if (elements.empty()) return security;

  bool hasRsn = false;
  bool hasOverride = false;
  bool hasWpa = false;
  bool damaged = false;
  wifi::ElementReader reader(elements);
  while (const std::optional<wifi::Element> element = reader.Next()) {
    const bool isOverride = IsRsnOverride(*element);
    if ((element->id == wifi::kElementRsn && !hasRsn) || isOverride) {
      hasRsn |= !isOverride;
      hasOverride |= isOverride;
      const std::optional<KeyManagement> rsn = ReadBody(element->payload.subspan(isOverride ? 4 : 0), kOuiIeee);
      if (rsn) AddRsn(*rsn, security);
      damaged |= !rsn;
    } else if (IsVendor(*element, kOuiWpa, kVendorTypeWpa) && !hasWpa) {
      hasWpa = true;
      const std::optional<KeyManagement> wpa = ReadBody(element->payload.subspan(4), kOuiWpa);
      security.personal.wpa = wpa && wpa->HasAny({2});
      security.enterprise.wpa = wpa && wpa->HasAny({1});
      damaged |= !wpa;
    } else if (IsVendor(*element, kOuiWfa, kVendorTypeOweTransition)) {
      security.oweTransition = true;
    }
  }
  complete = complete && reader.Rest().empty();

  if (hasRsn || hasOverride || hasWpa) {
    const bool known = security.personal.Any() || security.enterprise.Any() || security.fils || security.owe;
    if (damaged || !known) return Security{};
    security.base = Security::Base::kProtected;
    security.oweTransition = false;  // this one is the twin
  } else if ((capability & kCapabilityPrivacy) == 0) {
    security.base = Security::Base::kOpen;
  } else if (complete) {
    security.base = Security::Base::kWep;
    security.oweTransition = false;
  }
  return security;
}

}  // namespace kes
