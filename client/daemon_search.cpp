#include "client/daemon_search.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <optional>
#include <system_error>

#include "client/client.h"
#include "client/console.h"

namespace kesctl {
namespace {

namespace fs = std::filesystem;

// Of a process's files in /proc; empty when there is no such process.
std::string FirstLine(const fs::path& file) {
  std::string line;
  std::getline(std::ifstream(file), line);
  return line;
}

// One that has ended, and that nobody has waited for, has no command line left.
bool IsKesd(const fs::path& process) {
  return FirstLine(process / "comm") == "kesd" && !FirstLine(process / "cmdline").empty();
}

// The number of a process that is kesd.
std::optional<std::string> FindKesd() {
  std::error_code error;
  fs::directory_iterator processes("/proc", error);
  for (; !error && processes != fs::directory_iterator(); processes.increment(error)) {
    const std::string number = processes->path().filename();
    const bool isNumber = std::all_of(number.begin(), number.end(), [](char c) { return c >= '0' && c <= '9'; });
    if (isNumber && IsKesd(processes->path())) return number;
  }
  return std::nullopt;
}

bool HasSocketUnit() {
  std::error_code error;
  if (!fs::is_directory("/run/systemd/system", error)) return false;  // systemd is not what runs this machine
  const char* const folders[] = {"/etc/systemd/system", "/run/systemd/system", "/usr/local/lib/systemd/system",
                                 "/usr/lib/systemd/system", "/lib/systemd/system"};
  return std::any_of(std::begin(folders), std::end(folders),
                     [&](const char* folder) { return fs::exists(fs::path(folder) / "kesd.socket", error); });
}

}  // namespace

std::string ProcessWords(pid_t process) {
  const std::string number = std::to_string(process);
  const std::string name = FirstLine(fs::path("/proc") / number / "comm");
  return "process " + number + (name.empty() ? "" : " (" + name + ')');
}

std::string HowToStart(const std::string& path) {
  if (path == kes::kDefaultSocketPath && HasSocketUnit()) return "Start it: sudo systemctl start kesd.socket";
  if (const std::optional<std::string> kesd = FindKesd()) {
    return "kesd runs as process " + *kesd + ": name the socket that it serves with --socket PATH.";
  }
  return kStartAdvice;
}

}  // namespace kesctl
