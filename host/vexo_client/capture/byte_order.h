// Unsigned integers out of untrusted octets.
#ifndef KESD_HOST_VEXO_CLIENT_CAPTURE_BYTE_ORDER_H_
#define KESD_HOST_VEXO_CLIENT_CAPTURE_BYTE_ORDER_H_

#include <bit>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace vexo_host {

// The integer of `octets` octets, at most 8, at `offset`; nothing when it does not lie wholly inside `bytes`.
inline std::optional<uint64_t> ReadUnsigned(std::span<const uint8_t> bytes, size_t offset, size_t octets,
                                            std::endian order) {
  if (offset > bytes.size() || bytes.size() - offset < octets) return std::nullopt;
  uint64_t value = 0;
  for (size_t i = 0; i < octets; ++i) {
    value = value << 8 | bytes[offset + (order == std::endian::big ? i : octets - 1 - i)];
  }
  return value;
}

template <std::unsigned_integral T>
std::optional<T> ReadLittle(std::span<const uint8_t> bytes, size_t offset) {
  const std::optional<uint64_t> value = ReadUnsigned(bytes, offset, sizeof(T), std::endian::little);
  return value ? std::optional<T>(static_cast<T>(*value)) : std::nullopt;
}

}  // namespace vexo_host

#endif  // KESD_HOST_VEXO_CLIENT_CAPTURE_BYTE_ORDER_H_
