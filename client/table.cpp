#include "client/table.h"

#include <algorithm>

#include "client/text.h"

namespace kesctl {
namespace {

constexpr std::string_view kBold = "\033[1m";
constexpr std::string_view kPlain = "\033[0m";

}  // namespace

Table::Table(std::span<const Column> all, bool withColour) : columns(all), colours(withColour) {
  for (const Column& column : columns) widths.push_back(column.title.size());
}

void Table::Add(std::vector<std::string> row) {
  for (std::size_t i = 0; i < columns.size(); ++i) widths[i] = std::max(widths[i], DisplayCells(row[i]));
  rows.push_back(std::move(row));
}

std::string Table::Header() const {
  std::vector<std::string> titles;
  for (const Column& column : columns) titles.emplace_back(column.title);
  std::string line = Line(titles, "", 0);
  if (!colours) return line;
  return std::string(kBold).append(line, 0, line.size() - 1).append(kPlain).append("\n");
}

std::string Table::Line(std::size_t row, std::string_view colour, std::size_t coloured) const {
  return Line(rows[row], colours ? colour : std::string_view(), coloured);
}

std::string Table::Line(std::span<const std::string> row, std::string_view colour, std::size_t coloured) const {
  std::string text;
  for (std::size_t i = 0; i < row.size(); ++i) {
    const bool isColoured = !colour.empty() && coloured == i;
    const std::string padding(widths[i] - DisplayCells(row[i]), ' ');
    if (i != 0) text += "  ";
    if (columns[i].isNumber) text += padding;
    if (isColoured) text += colour;
    text += row[i];
    if (isColoured) text += kPlain;
    if (!columns[i].isNumber && i + 1 != row.size()) text += padding;
  }
  return text += '\n';
}

std::string SignalText(int32_t mbm) {
  if (mbm == wifi::kSignalUnknown) return "-";
  const int64_t rounding = mbm < 0 ? -50 : 50;
  return std::to_string((int64_t{mbm} + rounding) / 100);
}

std::string_view SignalColour(int32_t mbm) {
  if (mbm == wifi::kSignalUnknown) return "\033[2m";  // faint
  if (mbm >= -6000) return "\033[32m";                // green
  if (mbm >= -7500) return "\033[33m";                // yellow
  return "\033[31m";                                  // red
}

std::string StatusLine(wifi::ScanStatus status, std::string_view name) {
  if (status == wifi::ScanStatus::kOk) return {};
  return "scan status " + std::to_string(static_cast<uint32_t>(status)) + ": " + std::string(name) + '\n';
}

std::string CountLine(std::size_t count, std::string_view noun, std::size_t incomplete) {
  std::string text = std::to_string(count) + ' ' + std::string(noun);
  if (count != 1) text += 's';
  if (incomplete != 0) text += ", " + std::to_string(incomplete) + " of them delivered in part (!)";
  return text += '\n';
}

}  // namespace kesctl
