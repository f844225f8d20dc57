#include "client/watch_screen.h"

#include <algorithm>
#include <sstream>
#include <string_view>

#include "client/scan_table.h"
#include "client/table.h"
#include "client/text.h"

namespace kesctl {
namespace {

using State = HeardAccessPoint::State;

constexpr std::string_view kFaint = "\033[2m";
constexpr std::string_view kBars[] = {"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
constexpr std::string_view kDigits[] = {"1", "2", "3", "4", "5", "6", "7", "8"};
constexpr int32_t kWeakestMbm = -9000;  // the lowest bar, and below
constexpr int32_t kStepMbm = 625;       // from bar to bar, so that the highest begins at -46.25 dBm

// The signals of the latest scans, the last one at the right end.
std::string Bars(const HeardAccessPoint& heard, std::size_t width, bool utf8) {
  const std::vector<std::optional<int32_t>>& signals = heard.signals;
  const std::size_t shown = std::min(width, signals.size());
  std::string text(width - shown, ' ');
  for (auto signal = signals.end() - static_cast<std::ptrdiff_t>(shown); signal != signals.end(); ++signal) {
    if (!*signal) {
      text += ' ';
    } else if (**signal == wifi::kSignalUnknown) {
      text += '?';
    } else {
      const int32_t step = std::clamp((**signal - kWeakestMbm) / kStepMbm, 0, 7);
      text += (utf8 ? kBars : kDigits)[step];
    }
  }
  return text;
}

// Of a scan's table, with what changes in front, where a narrow screen does not cut it.
template <typename Cell>
std::vector<Cell> Arrange(std::vector<Cell> cells, Cell history, Cell state) {
  const auto signal = cells.begin() + static_cast<std::ptrdiff_t>(kSignalColumn);
  std::rotate(cells.begin(), signal, signal + 1);
  cells.insert(cells.begin() + 1, {std::move(history), std::move(state)});
  return cells;
}

std::vector<std::string> RowOf(const HeardAccessPoint& heard, std::chrono::milliseconds since, std::string bars) {
  kes::Measurement measurement = heard.latest;
  measurement.ageMs += static_cast<uint32_t>(since.count());
  const State state = heard.GetState();
  const char* word = state == State::kNew ? "new" : state == State::kGone ? "gone" : "";
  return Arrange<std::string>(ScanCells(measurement), std::move(bars), word);
}

std::string Seconds(std::chrono::milliseconds duration) {
  std::ostringstream text;
  text << std::chrono::duration<double>(duration).count() << " s";
  return text.str();
}

std::string Title(const std::vector<const HeardAccessPoint*>& heard, const WatchState& state) {
  const auto count = [&](State wanted) {
    return static_cast<std::size_t>(
        std::count_if(heard.begin(), heard.end(), [=](const auto* ap) { return ap->GetState() == wanted; }));
  };
  const std::size_t gone = count(State::kGone);
  std::string text = (state.scans == 0 ? "Scanning" : "Scan " + std::to_string(state.scans)) + ", every " +
                     Seconds(state.interval) + ": " + CountLine(heard.size() - gone, "access point", 0);
  text.pop_back();  // the line's end
  if (const std::size_t added = count(State::kNew)) text += ", " + std::to_string(added) + " new";
  if (gone != 0) text += ", " + std::to_string(gone) + " gone";
  return text += "; q or Ctrl-C ends";
}

// What fits into `room` cells. Escape sequences take none, and stay.
std::string Fit(std::string_view line, std::size_t room) {
  std::string fitted;
  while (!line.empty()) {
    if (line.front() == '\033') {
      const std::size_t end = line.find('m') + 1;
      fitted += line.substr(0, end);
      line.remove_prefix(end);
      continue;
    }
    const std::string_view text = line.substr(0, line.find('\033'));
    const std::string_view shown = FirstCells(text, room);
    fitted += shown;
    room = shown.size() == text.size() ? room - DisplayCells(shown) : 0;
    line.remove_prefix(text.size());
  }
  return fitted;
}

}  // namespace

std::vector<std::string> WatchLines(const SignalHistory& history, const WatchState& state, const ScreenSize& size,
                                    std::chrono::steady_clock::time_point now, const WatchStyle& style) {
  const std::vector<const HeardAccessPoint*> heard = history.Sorted();
  std::vector<std::string> lines{Title(heard, state)};
  if (!state.trouble.empty()) {
    lines.push_back(Escape({reinterpret_cast<const uint8_t*>(state.trouble.data()), state.trouble.size()}));
  }
  const std::size_t room = size.rows - std::min(size.rows, lines.size() + 1);
  const std::size_t shown = heard.size() <= room ? heard.size() : room - std::min<std::size_t>(room, 1);
  if (!heard.empty()) {
    const std::size_t barsWidth = std::clamp<std::size_t>(size.columns / 5, 8, SignalHistory::kMaxSignals);
    const std::vector<Column> columns = Arrange<Column>(ScanColumns(), {"HISTORY"}, {"    "});  // "gone" has room
    Table table(columns, style.colour);
    for (std::size_t i = 0; i < shown; ++i) {
      const auto since = std::chrono::duration_cast<std::chrono::milliseconds>(now - heard[i]->heardAt);
      table.Add(RowOf(*heard[i], since, Bars(*heard[i], barsWidth, style.utf8)));
    }
    lines.push_back(table.Header());
    for (std::size_t i = 0; i < shown; ++i) {
      const bool isGone = heard[i]->GetState() == State::kGone;
      lines.push_back(table.Line(i, isGone ? kFaint : SignalColour(heard[i]->latest.values.signalMbm), 0));
    }
    if (shown != heard.size()) lines.push_back(std::to_string(heard.size() - shown) + " more that do not fit");
  }
  if (lines.size() > size.rows) lines.resize(size.rows);
  for (std::string& line : lines) {
    if (line.ends_with('\n')) line.pop_back();
    // The last column stays free: what clears the rest of a line would clear a character there.
    line = Fit(line, size.columns - std::min<std::size_t>(size.columns, 1));
  }
  return lines;
}

std::string DrawingOf(const std::vector<std::string>& lines, const ScreenSize& size) {
  std::string drawing;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    drawing.append("\033[").append(std::to_string(i + 1)).append("H").append(lines[i]).append("\033[K");
  }
  if (lines.size() < size.rows) drawing.append("\033[").append(std::to_string(lines.size() + 1)).append("H\033[J");
  return drawing;
}

}  // namespace kesctl
