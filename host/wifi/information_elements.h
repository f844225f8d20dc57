// Information elements as they stand in a frame (IEEE Std 802.11-2020, 9.4.2): identifier, length, payload.
#ifndef KESD_HOST_WIFI_INFORMATION_ELEMENTS_H_
#define KESD_HOST_WIFI_INFORMATION_ELEMENTS_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace wifi {

// Element identifiers (Table 9-92 and its amendments).
enum ElementId : uint8_t {
  kElementSsid = 0,
  kElementSupportedRates = 1,
  kElementDsParameterSet = 3,
  kElementTim = 5,
  kElementCountry = 7,
  kElementBssLoad = 11,
  kElementPowerConstraint = 32,
  kElementTpcReport = 35,
  kElementErp = 42,
  kElementHtCapabilities = 45,
  kElementRsn = 48,
  kElementExtendedSupportedRates = 50,
  kElementHtOperation = 61,
  kElementRmEnabledCapabilities = 70,
  kElementExtendedCapabilities = 127,
  kElementVhtCapabilities = 191,
  kElementVhtOperation = 192,
  kElementReducedNeighborReport = 201,
  kElementVendorSpecific = 221,
  kElementRsnExtension = 244,
  kElementExtension = 255,  // the payload's first octet tells which
};

enum ElementIdExtension : uint8_t {
  kExtensionHeCapabilities = 35,
  kExtensionHeOperation = 36,
  kExtensionHe6GhzBandCapabilities = 59,
  kExtensionEhtOperation = 106,
  kExtensionMultiLink = 107,
  kExtensionEhtCapabilities = 108,
};

struct Element {
  uint8_t id;
  std::span<const uint8_t> payload;
};

// Walks the elements in `bytes`, which it borrows; ends at the first that does not fit.
class ElementReader {
 public:
  explicit ElementReader(std::span<const uint8_t> bytes) : rest(bytes) {}

  std::optional<Element> Next() {
    if (rest.size() < 2 || rest.size() - 2 < rest[1]) return std::nullopt;
    const Element element{rest[0], rest.subspan(2, rest[1])};
    rest = rest.subspan(2 + element.payload.size());
    return element;
  }

  // What Next has not read; empty after a walk over nothing but whole elements.
  std::span<const uint8_t> Rest() const { return rest; }

 private:
  std::span<const uint8_t> rest;
};

// The first element with `id`, if there is one.
inline std::optional<Element> FindElement(std::span<const uint8_t> bytes, uint8_t id) {
  ElementReader reader(bytes);
  while (const std::optional<Element> element = reader.Next()) {
    if (element->id == id) return element;
  }
  return std::nullopt;
}

}  // namespace wifi

#endif  // KESD_HOST_WIFI_INFORMATION_ELEMENTS_H_
