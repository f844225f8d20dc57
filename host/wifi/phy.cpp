#include "host/wifi/phy.h"

#include <algorithm>
#include <cstdlib>
#include <optional>

#include "host/wifi/channels.h"
#include "host/wifi/information_elements.h"

namespace wifi {
namespace {

using Bytes = std::span<const uint8_t>;

// The payload of the first element with `id` that has at least `size` octets; empty without one.
Bytes Find(Bytes elements, uint8_t id, std::size_t size) {
  const std::optional<Element> element = FindElement(elements, id);
  return element && element->payload.size() >= size ? element->payload : Bytes{};
}

// The same for an extension element, without the octet that names it.
Bytes FindExtension(Bytes elements, uint8_t extension, std::size_t size) {
  ElementReader reader(elements);
  while (const std::optional<Element> element = reader.Next()) {
    if (element->id != kElementExtension || element->payload.empty() || element->payload[0] != extension) continue;
    return element->payload.size() - 1 >= size ? element->payload.subspan(1) : Bytes{};
  }
  return {};
}

Phy LegacyPhy(Bytes elements, uint32_t frequencyMhz) {
  bool dsss = false;
  bool ofdm = false;
  for (const uint8_t id : {kElementSupportedRates, kElementExtendedSupportedRates}) {
    for (const uint8_t octet : Find(elements, id, 1)) {
      const uint8_t rate = octet & 0x7F;  // in 500 kb/s; above 54 Mb/s stand membership selectors
      const bool isDsss = rate == 2 || rate == 4 || rate == 11 || rate == 22;
      dsss |= isDsss;
      ofdm |= !isDsss && rate >= 12 && rate <= 108;
    }
  }
  if (Is5GHz(frequencyMhz)) return Phy::kA;
  if (Is2GHz(frequencyMhz) || (frequencyMhz == 0 && dsss)) {
    if (ofdm) return Phy::kG;
    if (dsss) return Phy::kB;
  }
  return Phy::kUnknown;
}

// Of two segments' centres, in channel numbers: one 160 MHz channel, or two of 80 MHz apart.
ChannelWidth TwoSegments(uint8_t segment0, uint8_t segment1) {
  const int distance = std::abs(segment1 - segment0);
  if (distance == 8) return ChannelWidth::k160;
  return distance > 16 ? ChannelWidth::k80Plus80 : ChannelWidth::kUnknown;
}

// HT Operation (9.4.2.56). `segment2`: the centre of a second segment that VHT Operation has no room for; 0 is none.
ChannelWidth HtWidth(Bytes ht, uint8_t& segment2) {
  if (ht.empty()) return ChannelWidth::kUnknown;
  segment2 = static_cast<uint8_t>((ht[2] | ht[3] << 8) >> 5);
  const uint8_t secondary = ht[1] & 3;
  const bool wide = (ht[1] & 4) != 0;
  return wide && (secondary == 1 || secondary == 3) ? ChannelWidth::k40 : ChannelWidth::k20;
}

// VHT Operation (9.4.2.158): width, segment 0, segment 1. kUnknown leaves it to HT Operation.
ChannelWidth VhtWidth(Bytes vht, uint8_t htSegment2) {
  if (vht.empty()) return ChannelWidth::kUnknown;
  const uint8_t segment1 = vht[2] != 0 ? vht[2] : htSegment2;
  switch (vht[0]) {
    case 1: {
      const ChannelWidth width = segment1 == 0 ? ChannelWidth::k80 : TwoSegments(vht[1], segment1);
      return width == ChannelWidth::kUnknown ? ChannelWidth::k80 : width;  // reserved distances
    }
    case 2:
      return ChannelWidth::k160;
    case 3:
      return ChannelWidth::k80Plus80;
    default:
      return ChannelWidth::kUnknown;
  }
}

struct HeOperation {
  Bytes vht;           // VHT Operation Information, 3 octets; empty when absent
  Bytes sixGigahertz;  // 6 GHz Operation Information, 5 octets; empty when absent
};

// HE Operation (9.4.2.249 of 802.11ax): parameters 3, colour 1, basic rates 2, then what the parameters announce.
HeOperation ReadHeOperation(Bytes he) {
  HeOperation operation;
  if (he.empty()) return operation;
  const uint32_t parameters = uint32_t{he[0]} | uint32_t{he[1]} << 8 | uint32_t{he[2]} << 16;
  Bytes rest = he.subspan(6);
  const auto take = [&rest](std::size_t size) {
    const Bytes field = rest.size() < size ? Bytes{} : rest.first(size);
    rest = rest.subspan(std::min(rest.size(), size));
    return field;
  };
  if ((parameters >> 14 & 1) != 0) operation.vht = take(3);
  if ((parameters >> 15 & 1) != 0) (void)take(1);  // co-hosted BSSIDs
  if ((parameters >> 17 & 1) != 0) operation.sixGigahertz = take(5);
  return operation;
}

// The width field of EHT Operation, whose first three values are also those of 6 GHz Operation Information.
ChannelWidth WidthOfCode(unsigned code) {
  switch (code) {
    case 0:
      return ChannelWidth::k20;
    case 1:
      return ChannelWidth::k40;
    case 2:
      return ChannelWidth::k80;
    case 3:
      return ChannelWidth::k160;
    case 4:
      return ChannelWidth::k320;
    default:
      return ChannelWidth::kUnknown;
  }
}

// Primary channel, control, segment 0, segment 1, minimum rate. Of the widest, the segments tell which it is.
ChannelWidth SixGigahertzWidth(Bytes info) {
  const unsigned code = info[1] & 3u;
  return code == 3 ? TwoSegments(info[2], info[3]) : WidthOfCode(code);
}

// EHT Operation (802.11be): parameters 1, basic rates 4, then, when bit 0 says so, control and segments.
ChannelWidth EhtWidth(Bytes eht) {
  if (eht.size() < 8 || (eht[0] & 1) == 0) return ChannelWidth::kUnknown;
  return WidthOfCode(eht[5] & 7u);
}

}  // namespace

std::string_view PhyName(Phy phy) {
  switch (phy) {
    case Phy::kB:
      return "b";
    case Phy::kG:
      return "g";
    case Phy::kA:
      return "a";
    case Phy::kHt:
      return "HT";
    case Phy::kVht:
      return "VHT";
    case Phy::kHe:
      return "HE";
    case Phy::kEht:
      return "EHT";
    case Phy::kUnknown:
      break;
  }
  return "?";
}

std::string_view WidthName(ChannelWidth width) {
  switch (width) {
    case ChannelWidth::k20:
      return "20";
    case ChannelWidth::k40:
      return "40";
    case ChannelWidth::k80:
      return "80";
    case ChannelWidth::k160:
      return "160";
    case ChannelWidth::k80Plus80:
      return "80+80";
    case ChannelWidth::k320:
      return "320";
    case ChannelWidth::kUnknown:
      break;
  }
  return "?";
}

Phy PhyOf(Bytes elements, uint32_t frequencyMhz) {
  if (!FindExtension(elements, kExtensionEhtCapabilities, 1).empty()) return Phy::kEht;
  if (!FindExtension(elements, kExtensionHeCapabilities, 1).empty()) return Phy::kHe;
  if (!Find(elements, kElementVhtCapabilities, 1).empty()) return Phy::kVht;
  if (!Find(elements, kElementHtCapabilities, 1).empty()) return Phy::kHt;
  return LegacyPhy(elements, frequencyMhz);
}

ChannelWidth ChannelWidthOf(Bytes elements, uint32_t frequencyMhz) {
  const HeOperation he = ReadHeOperation(FindExtension(elements, kExtensionHeOperation, 6));
  uint8_t segment2 = 0;
  const ChannelWidth ht = HtWidth(Find(elements, kElementHtOperation, 4), segment2);

  // The newest element that gives a width has the last word.
  ChannelWidth width = EhtWidth(FindExtension(elements, kExtensionEhtOperation, 5));
  if (width == ChannelWidth::kUnknown && !he.sixGigahertz.empty()) width = SixGigahertzWidth(he.sixGigahertz);
  if (width == ChannelWidth::kUnknown) width = VhtWidth(he.vht, 0);
  if (width == ChannelWidth::kUnknown) width = VhtWidth(Find(elements, kElementVhtOperation, 3), segment2);
  if (width == ChannelWidth::kUnknown) width = ht;
  if (width != ChannelWidth::kUnknown) return width;

  switch (PhyOf(elements, frequencyMhz)) {
    case Phy::kB:
    case Phy::kG:
    case Phy::kA:
      return ChannelWidth::k20;
    default:
      return ChannelWidth::kUnknown;
  }
}

}  // namespace wifi
