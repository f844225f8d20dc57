// Capture files for tests, made octet by octet.
#ifndef KESD_HOST_VEXO_CLIENT_CAPTURE_CAPTURE_WRITER_H_
#define KESD_HOST_VEXO_CLIENT_CAPTURE_CAPTURE_WRITER_H_

#include <stdlib.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace vexo_host::test {

using Bytes = std::vector<uint8_t>;

// Link types as the files number them (tcpdump.org/linktypes.html).
inline constexpr uint16_t kEthernet = 1, kBare = 105, kPrism = 119, kRadiotap = 127, kAvs = 163;

inline Bytes operator+(Bytes left, const Bytes& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

inline Bytes Text(std::string_view text) { return {text.begin(), text.end()}; }

inline Bytes Little(uint64_t value, size_t octets) {
  Bytes bytes;
  for (size_t i = 0; i < octets; ++i) bytes.push_back(static_cast<uint8_t>(value >> 8 * i));
  return bytes;
}

inline Bytes Big(uint64_t value, size_t octets) {
  const Bytes little = Little(value, octets);
  return {little.rbegin(), little.rend()};
}

inline Bytes Le16(uint64_t value) { return Little(value, 2); }
inline Bytes Le32(uint64_t value) { return Little(value, 4); }

inline Bytes Element(uint8_t id, const Bytes& payload) {
  return Bytes{id, static_cast<uint8_t>(payload.size())} + payload;
}

inline Bytes Ssid(std::string_view text) { return Element(0, Text(text)); }

// A beacon of 02:00:00:00:00:`bssid` at 0x1122334455667788 us, every 100 TU, capability 0x0431.
inline Bytes Beacon(uint8_t bssid, const Bytes& elements, const Bytes& control = {0x80, 0}, const Bytes& ht = {}) {
  const Bytes address = {2, 0, 0, 0, 0, bssid};
  return control + Bytes{0, 0} + Bytes(6, 0xFF) + address + address + Bytes{0x10, 0} + ht +
         Little(0x1122334455667788, 8) + Le16(100) + Le16(0x0431) + elements;
}

// Radiotap with Flags, Channel and Antenna Signal.
inline Bytes Radiotap(uint8_t flags, uint16_t frequencyMhz, int8_t signalDbm) {
  return Bytes{0, 0, 15, 0} + Le32(0x2A) + Bytes{flags, 0} + Le16(frequencyMhz) + Le16(0) +
         Bytes{static_cast<uint8_t>(signalDbm)};
}

struct CapturedPacket {
  Bytes bytes;
  uint32_t seconds = 1;
  uint32_t microseconds = 0;
  uint32_t leftOut = 0;    // octets that the snapshot length cut off
  uint16_t interface = 0;  // pcapng only, like flags
  uint32_t flags = 0;
};

inline Bytes PcapHeader(uint32_t linkType) {
  return Le32(0xA1B2C3D4) + Le16(2) + Le16(4) + Le32(0) + Le32(0) + Le32(65535) + Le32(linkType);
}

inline Bytes Record(const CapturedPacket& packet) {
  return Le32(packet.seconds) + Le32(packet.microseconds) + Le32(packet.bytes.size()) +
         Le32(packet.bytes.size() + packet.leftOut) + packet.bytes;
}

inline Bytes Pcap(uint32_t linkType, const std::vector<CapturedPacket>& packets) {
  Bytes file = PcapHeader(linkType);
  for (const CapturedPacket& packet : packets) file = file + Record(packet);
  return file;
}

inline Bytes Block(uint32_t type, Bytes body) {
  body.resize((body.size() + 3) / 4 * 4);
  const Bytes length = Le32(body.size() + 12);
  return Le32(type) + length + body + length;
}

inline Bytes SectionHeader() { return Block(0x0A0D0D0A, Le32(0x1A2B3C4D) + Le16(1) + Le16(0) + Bytes(8, 0xFF)); }

inline Bytes Interface(uint16_t linkType, uint32_t snapshotLength = 65535) {
  return Block(1, Le16(linkType) + Le16(0) + Le32(snapshotLength));
}

inline Bytes EnhancedPacket(const CapturedPacket& packet) {
  Bytes data = packet.bytes;
  data.resize((data.size() + 3) / 4 * 4);
  const uint64_t time = packet.seconds * uint64_t{1'000'000} + packet.microseconds;
  const Bytes flags = packet.flags == 0 ? Bytes{} : Le16(2) + Le16(4) + Le32(packet.flags) + Le32(0);
  return Block(6, Le32(packet.interface) + Le32(time >> 32) + Le32(time) + Le32(packet.bytes.size()) +
                      Le32(packet.bytes.size() + packet.leftOut) + data + flags);
}

// A directory that goes with everything in it.
class TemporaryDirectory {
 public:
  TemporaryDirectory() {
    if (mkdtemp(path.data()) == nullptr) throw std::runtime_error("mkdtemp");
  }
  ~TemporaryDirectory() { std::filesystem::remove_all(path); }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  std::string Write(const std::string& name, const Bytes& bytes) const {
    const std::string file = path + "/" + name;
    std::FILE* stream = std::fopen(file.c_str(), "wb");
    if (stream == nullptr) throw std::runtime_error("fopen " + file);
    const bool whole = std::fwrite(bytes.data(), 1, bytes.size(), stream) == bytes.size();
    if (std::fclose(stream) != 0 || !whole) throw std::runtime_error("fwrite " + file);
    return file;
  }
  const std::string& Path() const { return path; }

 private:
  std::string path = std::filesystem::temp_directory_path() / "kesd-capture-XXXXXX";
};

}  // namespace vexo_host::test

#endif  // KESD_HOST_VEXO_CLIENT_CAPTURE_CAPTURE_WRITER_H_
