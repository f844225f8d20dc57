#include "client/scan_table.h"

#include <algorithm>
#include <array>

#include "client/element_names.h"
#include "client/phy.h"
#include "client/text.h"
#include "client/words.h"
#include "host/wifi/channels.h"

namespace kesctl {
namespace {

enum Column : std::size_t { kBssid, kSsid, kFrequency, kChannel, kWidth, kSignal, kSecurity, kPhy, kAge, kColumns };

using Row = std::array<std::string, kColumns>;

constexpr bool IsNumber(std::size_t column) { return column >= kFrequency && column <= kSignal; }

const Row& Header() {
  static const Row header{"BSSID", "SSID", "MHz", "CHAN", "WIDTH", "dBm", "SECURITY", "PHY", "AGE"};
  return header;
}

// In whole dBm, rounded to the nearest.
std::string SignalText(int32_t mbm) {
  if (mbm == wifi::kSignalUnknown) return "-";
  const int64_t rounding = mbm < 0 ? -50 : 50;
  return std::to_string((int64_t{mbm} + rounding) / 100);
}

Row RowOf(const kes::Measurement& measurement) {
  const uint32_t frequency = measurement.values.frequencyMhz;
  const uint32_t channel = wifi::ChannelOfFrequency(frequency);
  Row row;
  row[kBssid] = MacText(measurement.bssid);
  row[kSsid] = SsidText(measurement.ssidValid, measurement.ssid);
  row[kFrequency] = frequency == 0 ? "-" : std::to_string(frequency);
  row[kChannel] = channel == 0 ? "-" : std::to_string(channel);
  row[kWidth] = kes::WidthName(kes::ChannelWidthOf(measurement.elements, frequency));
  row[kSignal] = SignalText(measurement.values.signalMbm);
  row[kSecurity] = SecurityWords(measurement);
  row[kPhy] = kes::PhyName(kes::PhyOf(measurement.elements, frequency));
  row[kAge] = AgeWords(measurement.values.ageMs);
  if (measurement.incomplete) row[kAge] += " !";
  return row;
}

std::string_view SignalColour(int32_t mbm) {
  if (mbm == wifi::kSignalUnknown) return "\033[2m";  // faint
  if (mbm >= -6000) return "\033[32m";                // green
  if (mbm >= -7500) return "\033[33m";                // yellow
  return "\033[31m";                                  // red
}

constexpr std::string_view kBold = "\033[1m";
constexpr std::string_view kPlain = "\033[0m";

// `colour` goes around the cell at `coloured`, or around the whole line for kColumns; empty for none.
void AppendLine(std::string& text, const Row& row, const std::array<std::size_t, kColumns>& widths,
                std::string_view colour, std::size_t coloured) {
  if (!colour.empty() && coloured == kColumns) text += colour;
  for (std::size_t i = 0; i < kColumns; ++i) {
    if (i != 0) text += "  ";
    const std::string padding(widths[i] - DisplayCells(row[i]), ' ');
    if (IsNumber(i)) text += padding;
    if (!colour.empty() && coloured == i) text += colour;
    text += row[i];
    if (!colour.empty() && coloured == i) text += kPlain;
    if (!IsNumber(i) && i + 1 != kColumns) text += padding;
  }
  if (!colour.empty() && coloured == kColumns) text += kPlain;
  text += '\n';
}

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

std::string ScanTable(const kes::DiscoveryResult& result, const TableStyle& style) {
  std::vector<const kes::Measurement*> sorted;
  for (const kes::Measurement& measurement : result.measurements) sorted.push_back(&measurement);
  std::stable_sort(sorted.begin(), sorted.end(), [](const kes::Measurement* a, const kes::Measurement* b) {
    return a->values.signalMbm > b->values.signalMbm;  // an unknown signal is the smallest number
  });

  std::vector<Row> rows;
  for (const kes::Measurement* measurement : sorted) rows.push_back(RowOf(*measurement));
  std::array<std::size_t, kColumns> widths{};
  for (std::size_t i = 0; i < kColumns; ++i) {
    widths[i] = Header()[i].size();
    for (const Row& row : rows) widths[i] = std::max(widths[i], DisplayCells(row[i]));
  }

  std::string text;
  if (result.status != wifi::ScanStatus::kOk) {
    text += "scan status " + std::to_string(static_cast<uint32_t>(result.status)) + ": ";
    text.append(WordsFor(result.status).name).append("\n");
  }
  std::size_t incomplete = 0;
  if (!rows.empty()) AppendLine(text, Header(), widths, style.colour ? kBold : std::string_view(), kColumns);
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const kes::Measurement& measurement = *sorted[i];
    AppendLine(text, rows[i], widths, style.colour ? SignalColour(measurement.values.signalMbm) : std::string_view(),
               kSignal);
    if (style.elements) AppendElements(text, measurement.elements);
    if (measurement.incomplete) ++incomplete;
  }
  text += std::to_string(rows.size()) + (rows.size() == 1 ? " access point" : " access points");
  if (incomplete != 0) text += ", " + std::to_string(incomplete) + " of them delivered in part (!)";
  text += '\n';
  return text;
}

}  // namespace kesctl
