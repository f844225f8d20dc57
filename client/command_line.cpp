#include "client/command_line.h"

#include <CLI/CLI.hpp>

#include "client/client.h"
#include "client/console.h"
#include "client/option_values.h"

namespace kesctl {
namespace {

constexpr char kExitCodes[] =
    "Exit codes:\n"
    "  0    the result was delivered\n"
    "  1    the request was refused, the scan status is not ok (a part may be shown), or the output failed\n"
    "  2    the command line is wrong\n"
    "  3    no daemon: cannot connect, or the connection was lost\n"
    "  4    timed out: no answer in time, or the scan itself ran out of time (a part may be shown)\n"
    "  130  interrupted by Ctrl-C; 143 by SIGTERM. The request is aborted.\n";

constexpr char kExamples[] =
    "Examples:\n"
    "  kesctl scan --band 5 --timeout 3000\n"
    "      Scan the 5 GHz band for at most three seconds.\n"
    "  kesctl scan --mode fallback --max-age 30000 --ssid Cafe --json\n"
    "      Print as JSON what is known of \"Cafe\" for up to 30 s; scan if that is nothing.\n";

// Adds an option that reads its value with `read` and hands it to `store`; a bad value becomes a usage error that names
// the option.
template <typename T, typename Store>
CLI::Option* AddValue(CLI::App& app, const std::string& name, const std::string& placeholder,
                      Value<T> (*read)(const std::string&), Store store, const std::string& description) {
  const auto convert = [read, store, name](const CLI::results_t& texts) {
    for (const std::string& text : texts) {
      const Value<T> value = read(text);
      if (const auto* bad = std::get_if<BadValue>(&value)) throw CLI::ValidationError(name, bad->why);
      store(std::get<T>(value));
    }
    return true;
  };
  return app.add_option(name, convert, description)->type_name(placeholder);
}

// Lets an option be given several times, with one value each.
void MayRepeat(CLI::Option* option) {
  option->type_size(1)->expected(1, CLI::detail::expected_max_vector_size)->allow_extra_args(false);
  option->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
}

void AddScan(CLI::App& app, ScanOptions& options) {
  kes::DiscoveryRequest& request = options.request;
  CLI::App* scan = app.add_subcommand("scan", "Show which access points are around");
  scan->fallthrough();
  AddValue(
      *scan, "--mode", "fresh|cache|fallback", ReadMode, [&](wifi::RequestMode mode) { request.mode = mode; },
      "Scan now (default), take what the daemon remembers, or scan only when it remembers nothing");
  CLI::Option* band = AddValue(
      *scan, "--band", "2.4|5|all", ReadBand, [&](wifi::Band value) { request.band = value; },
      "The band to scan; all of them by default");
  CLI::Option* channel = AddValue(
      *scan, "--channel", "N", ReadChannel, [&](uint32_t value) { request.channels.push_back(value); },
      "A channel number (1-14, 32-177) or a centre frequency in MHz; may be repeated");
  channel->excludes(band);
  MayRepeat(channel);
  MayRepeat(AddValue(
      *scan, "--ssid", "S", ReadSsid, [&](std::vector<uint8_t> value) { request.ssids.push_back(std::move(value)); },
      "Only this network, probing for it by name; may be repeated"));
  MayRepeat(AddValue(
      *scan, "--bssid", "MAC", ReadBssid, [&](kes::MacAddress value) { request.bssids.push_back(value); },
      "Only this access point; may be repeated"));
  scan->add_flag_callback(
      "--passive", [&] { request.scanType = wifi::ScanType::kPassive; }, "Listen only, send nothing");
  AddValue(
      *scan, "--max-age", "MS", ReadMaxAge, [&](uint32_t value) { request.maxAgeMs = value; },
      "The oldest remembered measurement to show, in milliseconds; every age by default");
  AddValue(
      *scan, "--timeout", "MS", ReadTimeout, [&](uint32_t value) { request.timeoutMs = value; },
      "Milliseconds until the daemon answers with what it has (default " + std::to_string(wifi::kDefaultTimeoutMs) +
          "); kesctl itself waits 5 s longer, or 60 s without this option");
  scan->add_flag("--json", options.json, "Print one JSON object instead of a table");
  scan->add_flag("--elements", options.elements, "List the information elements below each access point");
  scan->footer(std::string(kExitCodes) + "\n" + kExamples);
}

}  // namespace

Command ParseCommandLine(int argc, const char* const* argv) {
  ScanOptions scan;
  CLI::App app("Uses kesd, the Wi-Fi location daemon.", "kesctl");
  app.require_subcommand(0, 1);  // without one, below: this way a wrong name is named
  app.set_version_flag("--version", "kesctl " KESD_VERSION, "Print the version and exit");
  std::string socketPath = kes::kDefaultSocketPath;
  AddValue(
      app, "--socket", "PATH", ReadSocketPath, [&](std::string value) { socketPath = std::move(value); },
      "The daemon's socket; " + socketPath + " by default");
  app.footer(std::string(kExitCodes) + "\n" + kExamples);
  AddScan(app, scan);

  try {
    app.parse(argc, argv);
    if (app.get_subcommands().empty()) throw CLI::RequiredError("A subcommand");
  } catch (const CLI::CallForHelp&) {
    return PrintResult(app.help()) ? kExitDelivered : kExitRefused;
  } catch (const CLI::CallForVersion& version) {
    return PrintResult(std::string(version.what()) + "\n") ? kExitDelivered : kExitRefused;
  } catch (const CLI::ParseError& error) {
    Complain(std::string(error.what()) + "\nTry 'kesctl --help', or 'kesctl scan --help'.");
    return kExitUsage;
  }
  scan.socketPath = std::move(socketPath);
  return scan;
}

}  // namespace kesctl
