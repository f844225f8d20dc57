#include "host/vexo_client/capture/byte_order.h"
#include "host/vexo_client/capture/radio_header.h"
#include "host/wifi/channels.h"

namespace vexo_host {
namespace {

using std::endian;

// Prism: message code, message length, device name, then items of 12 octets: identifier, status, length, value.
constexpr size_t kPrismFixedOctets = 24;
constexpr size_t kItemOctets = 12;

// AVS: all fields in network order, the version first.
constexpr uint32_t kAvsMagic = 0x80211000;
constexpr size_t kAvsFixedOctets = 64;

uint32_t Read32(std::span<const uint8_t> bytes, size_t offset, endian order) {
  return static_cast<uint32_t>(ReadUnsigned(bytes, offset, 4, order).value_or(0));
}

uint32_t Read16(std::span<const uint8_t> bytes, size_t offset, endian order) {
  return static_cast<uint32_t>(ReadUnsigned(bytes, offset, 2, order).value_or(0));
}

// Items are numbered alike under message codes 0x44 and 0x41, in different bits of their identifiers.
uint32_t ItemNumber(uint32_t identifier) {
  if ((identifier & 0xFFFF) == 0x0044) return identifier >> 16;
  if ((identifier & 0xFFFF0FFF) == 0x0041) return identifier >> 12;
  return 0;
}

void TakeItem(std::span<const uint8_t> item, endian order, RadioHeader& radio) {
  constexpr uint32_t kChannel = 3;
  constexpr uint32_t kSignal = 6;
  const bool given = Read16(item, 4, order) == 0 && Read16(item, 6, order) == 4;
  if (!given) return;
  const uint32_t value = Read32(item, 8, order);
  switch (ItemNumber(Read32(item, 0, order))) {
    case kChannel:
      radio.frequencyMhz = wifi::FrequencyOfChannel(value);
      break;
    case kSignal: {
      // Some drivers write dBm, others the chip's own scale, which has no negative values.
      const auto signal = static_cast<int32_t>(value);
      if (signal < 0 && signal >= INT8_MIN) radio.signalMbm = 100 * signal;
      break;
    }
    default:
      break;
  }
}

std::optional<RadioHeader> ReadAvs(std::span<const uint8_t> packet) {
  RadioHeader radio;
  radio.length = Read32(packet, 4, endian::big);
  if (radio.length < kAvsFixedOctets || radio.length > packet.size()) return std::nullopt;
  radio.frequencyMhz = wifi::FrequencyOfChannel(Read32(packet, 28, endian::big));
  constexpr uint32_t kSignalInDbm = 2;
  if (Read32(packet, 44, endian::big) == kSignalInDbm) {
    const auto signal = static_cast<int32_t>(Read32(packet, 48, endian::big));
    if (signal >= INT8_MIN && signal <= INT8_MAX) radio.signalMbm = 100 * signal;
  }
  return radio;
}

}  // namespace

std::optional<RadioHeader> ReadPrism(std::span<const uint8_t> packet) {
  if (packet.size() < kPrismFixedOctets) return std::nullopt;
  if ((Read32(packet, 0, endian::big) & 0xFFFFF000) == kAvsMagic) return ReadAvs(packet);

  // The capturing machine's own byte order: only in one of them can the length be true.
  const auto fits = [&](uint32_t length) { return length >= kPrismFixedOctets && length <= packet.size(); };
  const endian order = fits(Read32(packet, 4, endian::little)) ? endian::little : endian::big;
  RadioHeader radio;
  radio.length = Read32(packet, 4, order);
  if (!fits(Read32(packet, 4, order))) return std::nullopt;
  for (size_t at = kPrismFixedOctets; radio.length - at >= kItemOctets; at += kItemOctets) {
    TakeItem(packet.subspan(at, kItemOctets), order, radio);
  }
  return radio;
}

}  // namespace vexo_host
