// A MAC address, and the two 24-bit words in which the records carry it.
#ifndef KESD_CLIENT_MAC_ADDRESS_H_
#define KESD_CLIENT_MAC_ADDRESS_H_

#include <array>
#include <cstdint>

namespace kes {

using MacAddress = std::array<uint8_t, 6>;  // in the order in which it is written and sent

constexpr uint32_t Low24(const MacAddress& mac) {
  return uint32_t{mac[3]} << 16 | uint32_t{mac[4]} << 8 | uint32_t{mac[5]};
}

constexpr uint32_t High24(const MacAddress& mac) {
  return uint32_t{mac[0]} << 16 | uint32_t{mac[1]} << 8 | uint32_t{mac[2]};
}

// Bits 24 to 31 of the words are not part of the address.
constexpr MacAddress MacAddressOf(uint32_t low24, uint32_t high24) {
  return {static_cast<uint8_t>(high24 >> 16), static_cast<uint8_t>(high24 >> 8), static_cast<uint8_t>(high24),
          static_cast<uint8_t>(low24 >> 16),  static_cast<uint8_t>(low24 >> 8),  static_cast<uint8_t>(low24)};
}

static_assert(MacAddressOf(0x030405, 0x000102) == MacAddress{0, 1, 2, 3, 4, 5});
static_assert(Low24({0, 1, 2, 3, 4, 5}) == 0x030405 && High24({0, 1, 2, 3, 4, 5}) == 0x000102);

}  // namespace kes

#endif  // KESD_CLIENT_MAC_ADDRESS_H_
