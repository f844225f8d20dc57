#include "client/scan_capture.h"

#include <pcap/pcap.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <memory>
#include <new>

#include "host/wifi/channels.h"

namespace kesctl {
namespace {

using Octets = std::vector<uint8_t>;

// The most that readers take of one packet. A longer one is cut, as by a capture of this snapshot length.
constexpr int kSnapshotLength = 262'144;

void Append(Octets& octets, uint64_t littleEndian, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) octets.push_back(static_cast<uint8_t>(littleEndian >> 8 * i));
}

template <typename Range>
void Append(Octets& octets, const Range& more) {
  octets.insert(octets.end(), more.begin(), more.end());
}

// Radiotap (radiotap.org): the Channel and Antenna Signal fields, each where it is known.
Octets RadioHeader(const wifi::ScanValues& values) {
  constexpr uint32_t kChannel = 1u << 3, kAntennaSignal = 1u << 5;
  constexpr uint16_t k2GHz = 0x0080, k5GHzOfdm = 0x0140;  // flags; 6 GHz has none of its own and is marked like 5 GHz
  uint32_t present = 0;
  Octets fields;
  if (values.frequencyMhz != 0 && values.frequencyMhz <= std::numeric_limits<uint16_t>::max()) {
    present |= kChannel;
    Append(fields, values.frequencyMhz, 2);
    Append(fields, wifi::Is2GHz(values.frequencyMhz) ? k2GHz : k5GHzOfdm, 2);
  }
  const double signalDbm = std::round(values.signalMbm / 100.0);
  if (signalDbm >= std::numeric_limits<int8_t>::min() && signalDbm <= std::numeric_limits<int8_t>::max()) {
    present |= kAntennaSignal;
    fields.push_back(static_cast<uint8_t>(static_cast<int8_t>(signalDbm)));
  }
  Octets header;
  Append(header, 0, 2);  // version, padding
  Append(header, 8 + fields.size(), 2);
  Append(header, present, 4);
  Append(header, fields);
  return header;
}

bool IsProbeResponse(const kes::Measurement& measurement) {
  constexpr uint16_t kEss = 1;  // capability: sent by an access point
  return !measurement.incomplete && (measurement.values.capability & kEss) != 0 && !measurement.elements.empty() &&
         !wifi::FindElement(measurement.elements, wifi::kElementTim);
}

// The daemon appends an octet to a vendor's element of 25 to 254 octets. It is taken off again: it was not on the air,
// and would be appended once more when the capture is the daemon's source. Of one with 255 octets nobody can tell; it
// is left alone, and so is it by the daemon.
void AppendElements(Octets& frame, std::span<const uint8_t> elements) {
  constexpr uint8_t kExtendedVendor[] = {0x02, 0x4B, 0x9E};
  wifi::ElementReader reader(elements);
  while (const std::optional<wifi::Element> element = reader.Next()) {
    std::span<const uint8_t> payload = element->payload;
    if (element->id == wifi::kElementVendorSpecific && payload.size() > 25 && payload.size() < 255 &&
        std::equal(std::begin(kExtendedVendor), std::end(kExtendedVendor), payload.begin())) {
      payload = payload.first(payload.size() - 1);
    }
    frame.push_back(element->id);
    frame.push_back(static_cast<uint8_t>(payload.size()));
    Append(frame, payload);
  }
}

// With its radiotap header; without a frame check sequence, which nobody delivers.
Octets PacketOf(const kes::Measurement& measurement) {
  constexpr uint16_t kProbeResponse = 0x0050, kBeacon = 0x0080;
  constexpr kes::MacAddress kBroadcast{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
  const wifi::ScanValues& values = measurement.values;
  Octets packet = RadioHeader(values);
  Append(packet, IsProbeResponse(measurement) ? kProbeResponse : kBeacon, 2);
  Append(packet, 0, 2);  // duration
  Append(packet, kBroadcast);
  Append(packet, measurement.bssid);  // the transmitter
  Append(packet, measurement.bssid);
  Append(packet, 0, 2);  // sequence control
  Append(packet, values.timestampUs, 8);
  Append(packet, values.beaconIntervalTu, 2);
  Append(packet, values.capability, 2);
  AppendElements(packet, measurement.elements);
  return packet;
}

// A moment on two clocks: the one on which measurements are dated, and the one on which packets are.
struct Now {
  uint64_t bootUs;
  std::chrono::microseconds real;
};

Now ReadClocks() {
  timespec boot{};
  clock_gettime(CLOCK_BOOTTIME, &boot);
  return {static_cast<uint64_t>(boot.tv_sec) * 1'000'000 + static_cast<uint64_t>(boot.tv_nsec) / 1'000,
          std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::system_clock::now().time_since_epoch())};
}

timeval TimeOf(const kes::Measurement& measurement, const Now& now) {
  const auto taken = now.real - std::chrono::milliseconds(wifi::AgeMs(measurement.values, now.bootUs));
  timeval time{};
  time.tv_sec = static_cast<time_t>(taken.count() / 1'000'000);
  time.tv_usec = static_cast<suseconds_t>(taken.count() % 1'000'000);
  return time;
}

struct Close {
  void operator()(pcap_t* capture) const { pcap_close(capture); }
};

// What libpcap writes into a stream, as text.
class Memory {
 public:
  Memory() : stream(open_memstream(&first, &size)) {
    if (stream == nullptr) throw std::bad_alloc();
  }
  ~Memory() { std::free(first); }
  Memory(const Memory&) = delete;
  Memory& operator=(const Memory&) = delete;

  std::FILE* Stream() const { return stream; }  // its closing is its user's
  std::string Text() const { return {first, size}; }

 private:
  char* first = nullptr;
  std::size_t size = 0;
  std::FILE* const stream;
};

}  // namespace

std::string ScanCapture(const kes::DiscoveryResult& result) {
  const Now now = ReadClocks();
  std::vector<const kes::Measurement*> byAge;
  for (const kes::Measurement& measurement : result.measurements) byAge.push_back(&measurement);
  std::stable_sort(byAge.begin(), byAge.end(), [&now](const kes::Measurement* a, const kes::Measurement* b) {
    return wifi::AgeMs(a->values, now.bootUs) > wifi::AgeMs(b->values, now.bootUs);
  });

  Memory memory;
  const std::unique_ptr<pcap_t, Close> capture(pcap_open_dead(DLT_IEEE802_11_RADIO, kSnapshotLength));
  pcap_dumper_t* dumper = capture == nullptr ? nullptr : pcap_dump_fopen(capture.get(), memory.Stream());
  if (dumper == nullptr) {
    std::fclose(memory.Stream());
    throw std::bad_alloc();
  }
  for (const kes::Measurement* measurement : byAge) {
    const Octets packet = PacketOf(*measurement);
    const auto length = static_cast<bpf_u_int32>(packet.size());
    const pcap_pkthdr header{TimeOf(*measurement, now), std::min<bpf_u_int32>(length, kSnapshotLength), length};
    pcap_dump(reinterpret_cast<u_char*>(dumper), &header, packet.data());
  }
  const bool isWhole = pcap_dump_flush(dumper) == 0 && std::ferror(memory.Stream()) == 0;
  pcap_dump_close(dumper);
  if (!isWhole) throw std::bad_alloc();
  return memory.Text();
}

}  // namespace kesctl
