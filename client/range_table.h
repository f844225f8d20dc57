// A ranging result as a table for people.
#ifndef KESD_CLIENT_RANGE_TABLE_H_
#define KESD_CLIENT_RANGE_TABLE_H_

#include <string>

#include "client/ranging_result.h"

namespace kesctl {

// In the order of delivery. A line above tells a scan status other than ok, one below how many peers there are.
// `colour`: with the escape sequences of a terminal.
std::string RangeTable(const kes::RangingResult& result, bool colour);

}  // namespace kesctl

#endif  // KESD_CLIENT_RANGE_TABLE_H_
