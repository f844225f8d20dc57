#include "client/scan_table.h"

#include <algorithm>
#include <iterator>

#include "client/element_names.h"
#include "client/text.h"
#include "client/words.h"
#include "host/wifi/channels.h"
#include "host/wifi/phy.h"

namespace kesctl {
namespace {

constexpr Column kColumns[] = {{"BSSID"},     {"SSID"},     {"MHz", true}, {"CHAN", true}, {"WIDTH", true},
                               {"dBm", true}, {"SECURITY"}, {"PHY"},       {"AGE"}};
static_assert(kColumns[kSignalColumn].title == "dBm");

// "  HE Capabilities (255.35), 22 octets: 23010203..."
void AppendElements(std::string& text, std::span<const uint8_t> elements) {
  wifi::ElementReader reader(elements);
  while (const std::optional<wifi::Element> element = reader.Next()) {
    text.append("    ").append(kes::ElementName(*element)).append(" (").append(std::to_string(element->id));
    if (element->id == wifi::kElementExtension && !element->payload.empty()) {
      text.append(".").append(std::to_string(element->payload[0]));
    }
    text.append("), ").append(std::to_string(element->payload.size())).append(" octets");
    if (!element->payload.empty()) text.append(": ").append(Hex(element->payload));
    text += '\n';
  }
}

}  // namespace

std::vector<Column> ScanColumns() { return {std::begin(kColumns), std::end(kColumns)}; }

std::vector<std::string> ScanCells(const kes::Measurement& measurement) {
  const uint32_t frequency = measurement.values.frequencyMhz;
  const uint32_t channel = wifi::ChannelOfFrequency(frequency);
  return {MacText(measurement.bssid),
          SsidText(measurement.ssidValid, measurement.ssid),
          frequency == 0 ? "-" : std::to_string(frequency),
          channel == 0 ? "-" : std::to_string(channel),
          std::string(wifi::WidthName(wifi::ChannelWidthOf(measurement.elements, frequency))),
          SignalText(measurement.values.signalMbm),
          SecurityWords(measurement),
          std::string(wifi::PhyName(wifi::PhyOf(measurement.elements, frequency))),
          AgeWords(measurement.ageMs) + (measurement.incomplete ? " !" : "")};
}

std::string ScanTable(const kes::DiscoveryResult& result, const TableStyle& style) {
  std::vector<const kes::Measurement*> sorted;
  for (const kes::Measurement& measurement : result.measurements) sorted.push_back(&measurement);
  std::stable_sort(sorted.begin(), sorted.end(), [](const kes::Measurement* a, const kes::Measurement* b) {
    return a->values.signalMbm > b->values.signalMbm;  // an unknown signal is the smallest number
  });

  Table table(kColumns, style.colour);
  std::size_t incomplete = 0;
  for (const kes::Measurement* measurement : sorted) {
    table.Add(ScanCells(*measurement));
    if (measurement->incomplete) ++incomplete;
  }
  std::string text = StatusLine(result.status, WordsFor(result.status).name);
  if (!sorted.empty()) text += table.Header();
  for (std::size_t i = 0; i < sorted.size(); ++i) {
    text += table.Line(i, SignalColour(sorted[i]->values.signalMbm), kSignalColumn);
    if (style.elements) AppendElements(text, sorted[i]->elements);
  }
  return text += CountLine(sorted.size(), "access point", incomplete);
}

}  // namespace kesctl
