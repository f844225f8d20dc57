#include "client/range_table.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "client/table.h"
#include "client/text.h"
#include "client/words.h"

namespace kesctl {
namespace {

constexpr Column kColumns[] = {{"PEER"},         {"STATUS"},   {"DISTANCE m", true}, {"DEVIATION m", true},
                               {"RTT ns", true}, {"dBm", true}};
constexpr std::size_t kSignal = 5;

// A number of thousandths as a number of units with two decimals.
std::string Units(int64_t thousandths) {
  const double hundredths = std::round(static_cast<double>(thousandths) / 10);
  char text[32];
  std::snprintf(text, sizeof text, "%.2f", hundredths / 100 + 0.0);  // the sum makes -0 plain 0
  return text;
}

std::vector<std::string> RowOf(const kes::RangingMeasurement& measurement) {
  const wifi::RangingValues& ranging = measurement.ranging;
  const bool isMeasured = ranging.status == wifi::RangingStatus::kSuccess;
  std::string status = RangingStatusName(ranging.status);
  std::replace(status.begin(), status.end(), '-', ' ');
  return {MacText(measurement.bssid),
          status + (measurement.incomplete ? " !" : ""),
          isMeasured ? Units(ranging.distanceMm) : "-",
          isMeasured ? Units(ranging.distanceStdMm) : "-",
          isMeasured ? Units(ranging.rttPs) : "-",
          SignalText(ranging.signalMbm)};
}

}  // namespace

std::string RangeTable(const kes::RangingResult& result, bool colour) {
  Table table(kColumns, colour);
  std::size_t incomplete = 0;
  for (const kes::RangingMeasurement& measurement : result.measurements) {
    table.Add(RowOf(measurement));
    if (measurement.incomplete) ++incomplete;
  }
  std::string text = StatusLine(result.status, RangingWordsFor(result.status).name);
  if (!result.measurements.empty()) text += table.Header();
  for (std::size_t i = 0; i < result.measurements.size(); ++i) {
    text += table.Line(i, SignalColour(result.measurements[i].ranging.signalMbm), kSignal);
  }
  return text += CountLine(result.measurements.size(), "peer", incomplete);
}

}  // namespace kesctl
