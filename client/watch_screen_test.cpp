#include "client/watch_screen.h"

#include <gtest/gtest.h>

#include <regex>

#include "client/text.h"

namespace kesctl {
namespace {

using std::chrono::steady_clock;
const steady_clock::time_point kNow;

kes::Measurement Heard(uint8_t number, std::string_view ssid, int32_t signalMbm) {
  kes::Measurement measurement;
  measurement.bssid[5] = number;
  measurement.ssidValid = true;
  measurement.ssid.assign(ssid.begin(), ssid.end());
  measurement.values.signalMbm = signalMbm;
  return measurement;
}

const struct {
  const char* name;
  std::string scans;  // of one access point: a step of its signal, '?' unknown, ' ' not heard, 'x' a scan that failed
  std::string bars;   // empty when it is not in the table
  std::string state;
} kHistories[] = {
    {"new", " 5", "5", "new "},
    {"new no more", " 555555", "555555", "    "},
    {"gone", "44     ", "44     ", "gone"},
    {"forgotten", "44      ", "", ""},
    {"back, and new again", "44      4", "4", "new "},
    {"scans that failed say nothing", "44xxxxxxxx4", "444", "    "},
    {"unknown signals", "4?4", "4?4", "    "},
    {"more scans than are kept", "8" + std::string(60, '3'), std::string(60, '3'), "    "},
};

TEST(WatchScreen, ShowsWhatEachScanHeard) {
  for (const auto& c : kHistories) {
    SCOPED_TRACE(c.name);
    SignalHistory history;
    for (const char step : c.scans) {
      kes::DiscoveryResult result;
      if (step == 'x') result.status = wifi::ScanStatus::kFailed;
      if (step != 'x') result.measurements.push_back(Heard(1, "other", -5000));
      if (step == '?') result.measurements.push_back(Heard(2, "this", wifi::kSignalUnknown));
      for (int32_t i = 1; i >= 0 && step >= '1' && step <= '8'; --i) {  // twice in a result: the stronger one counts
        result.measurements.push_back(Heard(2, "this", -9600 + (step - '0') * 625 - i * 2000));
      }
      history.Add(std::move(result), kNow);
    }
    std::string row;
    for (const std::string& line : WatchLines(history, {}, {24, 400}, kNow, {.colour = true})) {
      if (line.find("00:02") != std::string::npos) row = line;
    }
    const std::string expected = "m  " + std::string(60 - c.bars.size(), ' ') + c.bars + "  " + c.state + "  00:00";
    EXPECT_TRUE(c.bars.empty() ? row.empty() : row.find(expected) != std::string::npos) << row;
  }
}

// As many lines and cells as a screen has, whatever its size; and all access points are shown or counted.
TEST(WatchScreen, FitsEverySize) {
  SignalHistory history;
  kes::DiscoveryResult result;
  for (uint8_t i = 0; i < 20; ++i)
    result.measurements.push_back(Heard(i, "\xec\x99\x80\xec\x9d\xb4 e\xcc\x81\x1b[2J", -5000 - i));
  history.Add(std::move(result), kNow);
  const WatchState state{.scans = 7, .interval = std::chrono::milliseconds(2500), .trouble = "lost \x1b[1m"};
  for (const std::size_t rows : {1u, 2u, 3u, 4u, 10u, 22u, 23u, 24u, 60u}) {
    for (std::size_t columns = 1; columns < 130; ++columns) {
      const std::vector<std::string> lines =
          WatchLines(history, state, {rows, columns}, kNow, {.utf8 = true, .colour = true});
      ASSERT_LE(lines.size(), rows);
      std::size_t shown = 0;
      for (const std::string& line : lines) {
        const std::string text = std::regex_replace(line, std::regex("\033\\[[0-9]*m"), "");
        ASSERT_LT(DisplayCells(text), columns) << line;
        ASSERT_EQ(text.find('\033'), std::string::npos);
        shown += text.starts_with("-5") ? 1u : 0u;
      }
      const std::size_t room = rows - std::min<std::size_t>(rows, 3);
      if (columns > 30) {
        EXPECT_EQ(shown, room >= 20 ? 20 : room - std::min<std::size_t>(room, 1));
        EXPECT_TRUE(shown == 20 || room == 0 || lines.back() == std::to_string(20 - shown) + " more that do not fit");
      }
    }
  }
  EXPECT_EQ(WatchLines(history, state, {9, 99}, kNow, {}).at(0),
            "Scan 7, every 2.5 s: 20 access points; q or Ctrl-C ends");
  EXPECT_EQ(DrawingOf({"a", "b"}, {2, 9}), "\033[1Ha\033[K\033[2Hb\033[K");
  EXPECT_EQ(DrawingOf({"a"}, {2, 9}), "\033[1Ha\033[K\033[2H\033[J");
}

}  // namespace
}  // namespace kesctl
