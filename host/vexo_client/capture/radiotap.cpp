#include <iterator>

#include "host/vexo_client/capture/byte_order.h"
#include "host/vexo_client/capture/radio_header.h"

namespace vexo_host {
namespace {

constexpr size_t kFixedOctets = 8;  // version, pad, length, first presence word

// Bits of a presence word.
enum Bit : unsigned {
  kFlags = 1,
  kChannel = 3,
  kAntennaSignal = 5,
  kFieldBits = 29,  // bits from here on say what the next word means
  kRadiotapNamespace = 29,
  kVendorNamespace = 30,
  kAnotherWord = 31,
};

enum Flag : uint8_t {
  kFcsAtEnd = 0x10,
  kBadFcs = 0x40,
  // 0x20, padding behind the 802.11 header to a multiple of 4 octets, has no effect on a management frame: its
  // header is 24 or 28 octets long.
};

struct Layout {
  uint8_t align;
  uint8_t size;
};

// By bit. A field of a bit beyond the table is of unknown size.
constexpr Layout kLayouts[] = {
    {8, 8},  {1, 1},  {1, 1},  {2, 4},  {2, 2}, {1, 1}, {1, 1},  // TSFT to antenna noise
    {2, 2},  {2, 2},  {2, 2},  {1, 1},  {1, 1}, {1, 1}, {1, 1},  // lock quality to dB antenna noise
    {2, 2},  {2, 2},  {1, 1},  {1, 1},  {4, 8}, {1, 3}, {4, 8},  // RX flags to A-MPDU status
    {2, 12}, {8, 12}, {2, 12}, {2, 12}, {2, 6}, {1, 1}, {2, 4},  // VHT to L-SIG
};

// Walks the fields of a header that is as long as its length field says.
class FieldReader {
 public:
  FieldReader(std::span<const uint8_t> fields, size_t first) : header(fields), position(first) {}

  // Reads what one presence word announces. False when the rest of the header cannot be read: a field of unknown size
  // stands there, or one that does not fit.
  bool ReadWord(uint32_t present, RadioHeader& radio) {
    for (unsigned bit = 0; !vendor && bit < kFieldBits; ++bit) {
      if ((present >> bit & 1) == 0) continue;
      // The numbering goes on from word to word until a namespace begins; all such fields are unknown.
      if (continued || bit >= std::size(kLayouts)) return false;
      if (!Align(kLayouts[bit].align, kLayouts[bit].size)) return false;
      Take(static_cast<Bit>(bit), radio);
      position += kLayouts[bit].size;
    }
    continued = true;
    if ((present >> kRadiotapNamespace & 1) != 0) vendor = continued = false;
    if ((present >> kVendorNamespace & 1) != 0) return SkipVendorFields();
    return true;
  }

 private:
  // Alignment counts from the start of the header.
  bool Align(size_t align, size_t size) {
    position += (align - position % align) % align;
    return position <= header.size() && header.size() - position >= size;
  }

  void Take(Bit bit, RadioHeader& radio) const {
    switch (bit) {
      case kFlags:
        radio.fcsAtEnd = (header[position] & kFcsAtEnd) != 0;
        radio.badFcs = (header[position] & kBadFcs) != 0;
        break;
      case kChannel:
        radio.frequencyMhz = ReadLittle<uint16_t>(header, position).value_or(0);
        break;
      case kAntennaSignal:
        if (radio.signalMbm == wifi::kSignalUnknown) radio.signalMbm = 100 * static_cast<int8_t>(header[position]);
        break;
      default:
        break;
    }
  }

  // OUI, sub-namespace and the length of all that follows until the next namespace begins.
  bool SkipVendorFields() {
    if (!Align(2, 6)) return false;
    position += size_t{6} + *ReadLittle<uint16_t>(header, position + 4);
    vendor = true;
    return position <= header.size();
  }

  std::span<const uint8_t> header;
  size_t position;
  bool vendor = false;     // the next word's bits are a vendor's own
  bool continued = false;  // the next word's bits are numbers 32 and up
};

}  // namespace

std::optional<RadioHeader> ReadRadiotap(std::span<const uint8_t> packet) {
  if (packet.size() < kFixedOctets || packet[0] != 0) return std::nullopt;
  RadioHeader radio;
  radio.length = *ReadLittle<uint16_t>(packet, 2);
  if (radio.length < kFixedOctets || radio.length > packet.size()) return std::nullopt;
  const std::span<const uint8_t> header = packet.first(radio.length);

  size_t wordsEnd = 4;
  std::optional<uint32_t> present;
  do {
    present = ReadLittle<uint32_t>(header, wordsEnd);
    if (!present) return std::nullopt;
    wordsEnd += 4;
  } while ((*present >> kAnotherWord & 1) != 0);

  FieldReader fields(header, wordsEnd);
  for (size_t word = 4; word < wordsEnd; word += 4) {
    if (!fields.ReadWord(*ReadLittle<uint32_t>(header, word), radio)) break;
  }
  return radio;
}

}  // namespace vexo_host
