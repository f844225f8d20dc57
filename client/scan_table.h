// A discovery result as a table for people.
#ifndef KESD_CLIENT_SCAN_TABLE_H_
#define KESD_CLIENT_SCAN_TABLE_H_

#include <cstddef>
#include <string>
#include <vector>

#include "client/discovery_result.h"
#include "client/table.h"

namespace kesctl {

struct TableStyle {
  bool colour = false;    // with the escape sequences of a terminal
  bool elements = false;  // with every information element below its access point
};

// The strongest first, unknown signals last. A line above tells a status other than ok, one below how many there are.
std::string ScanTable(const kes::DiscoveryResult& result, const TableStyle& style);

// The columns of that table, and an access point's cells.
std::vector<Column> ScanColumns();
std::vector<std::string> ScanCells(const kes::Measurement& measurement);
inline constexpr std::size_t kSignalColumn = 5;

}  // namespace kesctl

#endif  // KESD_CLIENT_SCAN_TABLE_H_
