// What kesctl watch shows on a terminal, apart from the terminal.
#ifndef KESD_CLIENT_WATCH_SCREEN_H_
#define KESD_CLIENT_WATCH_SCREEN_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "client/signal_history.h"

namespace kesctl {

struct ScreenSize {
  std::size_t rows = 24;
  std::size_t columns = 80;
};

// What stands above the table.
struct WatchState {
  uint64_t scans = 0;  // that brought a result
  std::chrono::milliseconds interval{};
  std::string trouble;  // why there is no result, or a bad one; any text
};

struct WatchStyle {
  bool utf8 = false;    // signals are bars, else digits
  bool colour = false;  // and the table has a bold header
};

// No more lines than fit, none wider than fits: first what is going on, in one line, then the table; the last line
// tells how many access points found no room.
std::vector<std::string> WatchLines(const SignalHistory& history, const WatchState& state, const ScreenSize& size,
                                    std::chrono::steady_clock::time_point now, const WatchStyle& style);

// What makes a screen show `lines` and nothing else, whatever it showed before. Never moves what is shown.
std::string DrawingOf(const std::vector<std::string>& lines, const ScreenSize& size);

}  // namespace kesctl

#endif  // KESD_CLIENT_WATCH_SCREEN_H_
