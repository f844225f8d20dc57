#include "client/watch_display.h"

#include <langinfo.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <clocale>
#include <string_view>

#include "client/console.h"
#include "client/result_json.h"
#include "client/scan_table.h"

namespace kesctl {
namespace {

bool IsLocaleUtf8() {
  const locale_t locale = newlocale(LC_CTYPE_MASK, "", nullptr);
  if (locale == nullptr) return false;
  const bool isUtf8 = std::string_view(nl_langinfo_l(CODESET, locale)) == "UTF-8";
  freelocale(locale);
  return isUtf8;
}

}  // namespace

bool LineDisplay::Show(const kes::DiscoveryResult* result, const std::string& trouble) {
  if (!trouble.empty() && trouble != said) Complain(trouble);
  said = trouble;
  return result == nullptr || PrintResult(json ? ScanJson(*result) : ScanTable(*result, {}) + '\n');
}

LiveDisplay::LiveDisplay(std::chrono::milliseconds interval) : style{IsLocaleUtf8(), WantsColour()} {
  state.interval = interval;
  (void)Draw();
}

bool LiveDisplay::Show(const kes::DiscoveryResult* result, const std::string& trouble) {
  if (result != nullptr) {
    history.Add(*result, std::chrono::steady_clock::now());
    ++state.scans;
  }
  state.trouble = trouble;
  return Draw();
}

bool LiveDisplay::Serve(Interrupts& interrupts) {
  const Interrupts::SignalSet noticed = interrupts.TakeNoticed();
  if (noticed[SIGTSTP]) {
    terminal.Suspend();
    (void)interrupts.TakeNoticed();  // that it goes on, it knows
  } else if (noticed[SIGCONT]) {
    terminal.Take();
  }
  if (noticed.any() && !Draw()) return false;
  return ServeKeys();
}

bool LiveDisplay::ServeKeys() const {
  pollfd keyboard{KeyDescriptor(), POLLIN, 0};
  if (poll(&keyboard, 1, 0) != 1) return true;
  char keys[64];
  const ssize_t size = read(keyboard.fd, keys, sizeof keys);
  if (size <= 0) return false;  // no terminal any more
  return std::none_of(keys, keys + size, [](char key) { return key == 'q' || key == 'Q'; });
}

void LiveDisplay::End() {
  if (!isShown) return;
  const std::vector<std::string> lines = Lines();
  Terminal::GiveBack();
  std::string table;
  for (std::size_t i = 1; i < lines.size(); ++i) table += lines[i] + '\n';  // the title is of no use any more
  (void)PrintResult(table);
}

std::vector<std::string> LiveDisplay::Lines() const {
  return WatchLines(history, state, terminal.Size(), std::chrono::steady_clock::now(), style);
}

bool LiveDisplay::Draw() {
  isShown = terminal.IsTaken() && PrintResult(DrawingOf(Lines(), terminal.Size()));
  return isShown;
}

}  // namespace kesctl
