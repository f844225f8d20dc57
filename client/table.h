// Tables for people, and what the tables of every kind of result have in common.
#ifndef KESD_CLIENT_TABLE_H_
#define KESD_CLIENT_TABLE_H_

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/wifi/measurement_values.h"

namespace kesctl {

struct Column {
  std::string_view title;
  bool isNumber = false;  // set flush right
};

// Columns as wide as their widest cell.
class Table {
 public:
  // Borrows `all`. `withColour`: with the escape sequences of a terminal.
  Table(std::span<const Column> all, bool withColour);

  // A cell for each column, as Escape gives text.
  void Add(std::vector<std::string> row);

  // Lines, with their ends. All rows must have been added.
  std::string Header() const;
  // `colour`, an escape sequence, goes around the cell at `coloured`.
  std::string Line(std::size_t row, std::string_view colour, std::size_t coloured) const;

 private:
  std::string Line(std::span<const std::string> row, std::string_view colour, std::size_t coloured) const;

  const std::span<const Column> columns;
  const bool colours;
  std::vector<std::size_t> widths;
  std::vector<std::vector<std::string>> rows;
};

// In whole dBm, rounded to the nearest; "-" when unknown.
std::string SignalText(int32_t mbm);
std::string_view SignalColour(int32_t mbm);

// "scan status 2: timed out" with its end, or nothing when the status is ok.
std::string StatusLine(wifi::ScanStatus status, std::string_view name);

// "4 peers, 1 of them delivered in part (!)" with its end. `noun` is the singular.
std::string CountLine(std::size_t count, std::string_view noun, std::size_t incomplete);

}  // namespace kesctl

#endif  // KESD_CLIENT_TABLE_H_
