#include "host/vexo_client/capture/beacon_frame.h"

#include <optional>

#include "host/vexo_client/capture/byte_order.h"
#include "host/wifi/channels.h"
#include "host/wifi/information_elements.h"

namespace vexo_host {
namespace {

constexpr size_t kHeaderOctets = 24;       // management frame without HT Control (9.3.3.1)
constexpr size_t kHtControlOctets = 4;     // there when the +HTC subfield of the frame control field is set
constexpr size_t kBssidOffset = 16;        // Address 3
constexpr size_t kFixedFieldsOctets = 12;  // Timestamp, Beacon Interval, Capability Information
constexpr size_t kMaximumSsidOctets = 32;

// Protocol version, type and subtype of the first octet.
constexpr uint8_t kProbeResponse = 0x50;
constexpr uint8_t kBeacon = 0x80;
// Of the second.
constexpr uint8_t kHtControlFollows = 0x80;

uint32_t FrequencyOf6GHzChannel(uint32_t channel) {
  if (channel == 0) return 0;
  const uint32_t frequency = channel == 2 ? 5935 : 5950 + 5 * channel;
  return wifi::ChannelOfFrequency(frequency) == channel ? frequency : 0;
}

// The primary channel in the 6 GHz Operation Information of an HE Operation element (9.4.2.249); 0 without one.
uint32_t FrequencyOfHeOperation(std::span<const uint8_t> elements) {
  constexpr uint32_t kVhtInformation = 1u << 14;
  constexpr uint32_t kCoHostedBss = 1u << 15;
  constexpr uint32_t k6GHzInformation = 1u << 17;
  wifi::ElementReader reader(elements);
  while (const std::optional<wifi::Element> element = reader.Next()) {
    const std::span<const uint8_t> payload = element->payload;
    if (element->id != wifi::kElementExtension || payload.empty()) continue;
    if (payload[0] != wifi::kExtensionHeOperation) continue;
    const auto parameters = static_cast<uint32_t>(ReadUnsigned(payload, 1, 3, std::endian::little).value_or(0));
    if ((parameters & k6GHzInformation) == 0) return 0;
    const size_t offset =
        7u + ((parameters & kVhtInformation) != 0 ? 3 : 0) + ((parameters & kCoHostedBss) != 0 ? 1 : 0);
    return FrequencyOf6GHzChannel(ReadLittle<uint8_t>(payload, offset).value_or(0));
  }
  return 0;
}

// The channel that an element's first octet names by its number in the 2.4 or 5 GHz band; 0 without one.
uint32_t FrequencyOfElement(std::span<const uint8_t> elements, wifi::ElementId id) {
  const std::optional<wifi::Element> element = wifi::FindElement(elements, id);
  return element && !element->payload.empty() ? wifi::FrequencyOfChannel(element->payload[0]) : 0;
}

uint32_t PrimaryFrequency(std::span<const uint8_t> elements, uint32_t radioFrequencyMhz) {
  // Numbers of the 6 GHz band look like those of the others, and only HE Operation names them.
  if (!wifi::Is6GHz(radioFrequencyMhz)) {
    if (const uint32_t named = FrequencyOfElement(elements, wifi::kElementDsParameterSet)) return named;
    if (const uint32_t named = FrequencyOfElement(elements, wifi::kElementHtOperation)) return named;
  }
  if (const uint32_t named = FrequencyOfHeOperation(elements)) return named;
  return radioFrequencyMhz;
}

}  // namespace

FrameKind ReadBeacon(std::span<const uint8_t> frame, uint32_t radioFrequencyMhz, Bss& bss) {
  if (frame.size() < 2) return FrameKind::kTooShort;
  if (frame[0] != kBeacon && frame[0] != kProbeResponse) return FrameKind::kOther;
  const size_t header = kHeaderOctets + ((frame[1] & kHtControlFollows) != 0 ? kHtControlOctets : 0);
  if (frame.size() < header + kFixedFieldsOctets) return FrameKind::kTooShort;
  const std::span<const uint8_t> body = frame.subspan(header);

  const std::span<const uint8_t> rest = body.subspan(kFixedFieldsOctets);
  wifi::ElementReader reader(rest);
  while (reader.Next()) {
  }
  const std::span<const uint8_t> elements = rest.first(rest.size() - reader.Rest().size());

  bss.bssid = *ReadUnsigned(frame, kBssidOffset, 6, std::endian::big);
  bss.timestampUs = *ReadLittle<uint64_t>(body, 0);
  bss.beaconIntervalTu = *ReadLittle<uint16_t>(body, 8);
  bss.capability = *ReadLittle<uint16_t>(body, 10);
  bss.elements.assign(elements.begin(), elements.end());
  bss.ssid.reset();
  const std::optional<wifi::Element> ssid = wifi::FindElement(elements, wifi::kElementSsid);
  if (ssid && ssid->payload.size() <= kMaximumSsidOctets) bss.ssid.emplace(ssid->payload.begin(), ssid->payload.end());
  bss.frequencyMhz = PrimaryFrequency(elements, radioFrequencyMhz);
  return reader.Rest().empty() ? FrameKind::kWhole : FrameKind::kOverrunElements;
}

}  // namespace vexo_host
