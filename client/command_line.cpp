#include "client/command_line.h"

#include <CLI/CLI.hpp>

#include "client/client.h"
#include "client/console.h"
#include "client/option_values.h"

namespace kesctl {
namespace {

constexpr char kExitCodes[] =
    "Exit codes:\n"
    "  0    the result was delivered; with --repeat and watch, each\n"
    "  1    the request was refused, the scan status is not ok (a part may be shown), or the output failed\n"
    "  2    the command line is wrong\n"
    "  3    no daemon: cannot connect, or the connection was lost\n"
    "  4    timed out: no answer in time, or the request itself ran out of time (a part may be shown)\n"
    "  130  interrupted by Ctrl-C; 143 by SIGTERM. The request is aborted.\n";

constexpr char kScanExamples[] =
    "  kesctl scan --band 5 --timeout 3000\n"
    "      Scan the 5 GHz band for at most three seconds.\n"
    "  kesctl scan --mode fallback --max-age 30000 --ssid Cafe --json\n"
    "      Print as JSON what is known of \"Cafe\" for up to 30 s; scan if that is nothing.\n";

constexpr char kWatchNotes[] =
    "On a terminal, a table that stays where it is: the strongest first, HISTORY the signal of the latest scans from "
    "-90\n"
    "to -46 dBm, a gap where a scan did not hear it. \"new\" for 5 scans, \"gone\" for 5 scans, then dropped. It ends "
    "with\n"
    "q or Ctrl-C, leaves the terminal as it was, and the last table on it. Ctrl-Z suspends it.\n"
    "Into a pipe or a file, or with --json, one JSON object a scan, in a line of its own. With TERM=dumb, a plain "
    "table\n"
    "a scan; with NO_COLOR, the table that stays has no colours.\n"
    "A daemon that does not answer the first scan ends it; one that goes away later is waited for, at the same "
    "interval.\n";

constexpr char kWatchExamples[] =
    "  kesctl watch --band 5 --interval 5000\n"
    "      Scan the 5 GHz band every five seconds, until q is pressed.\n"
    "  kesctl watch --count 10 --json > scans.jsonl\n"
    "      Scan ten times, two seconds apart, and write a JSON object a line.\n";

constexpr char kRangeExamples[] =
    "  kesctl range 02:00:5e:10:00:01@5180 02:00:5e:10:00:02\n"
    "      Measure the distance to two peers, to the first one on channel 36.\n"
    "  kesctl range --repeat 10 --json 02:00:5e:10:00:01\n"
    "      Measure ten times and print a JSON object a line.\n";

constexpr char kDoctorExample[] =
    "  kesctl doctor\n"
    "      Find out why a scan fails, and what to do; the exit code is that of the first check that fails.\n";

std::string Footer(const std::string& examples) { return std::string(kExitCodes) + "\nExamples:\n" + examples; }

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

void AddTimeout(CLI::App& app, int64_t& timeoutMs, int64_t daemonsDefault) {
  AddValue(
      app, "--timeout", "MS", ReadTimeout, [&](uint32_t value) { timeoutMs = value; },
      "Milliseconds until the daemon answers with what it has (default " + std::to_string(daemonsDefault) +
          "); kesctl itself waits 5 s longer, or 60 s without this option");
}

// Which access points to look for, and for how long.
void AddSelection(CLI::App& app, kes::DiscoveryRequest& request) {
  AddValue(
      app, "--band", "2.4|5|all", ReadBand, [&](wifi::Band value) { request.band = value; },
      "The band to scan; all of them by default. Channels take its place");
  MayRepeat(AddValue(
      app, "--channel", "N", ReadChannel, [&](uint32_t value) { request.channels.push_back(value); },
      "A channel number (1-14, 32-177) or a centre frequency in MHz; may be repeated"));
  MayRepeat(AddValue(
      app, "--ssid", "S", ReadSsid, [&](std::vector<uint8_t> value) { request.ssids.push_back(std::move(value)); },
      "Only this network, probing for it by name; may be repeated"));
  MayRepeat(AddValue(
      app, "--bssid", "MAC", ReadBssid, [&](kes::MacAddress value) { request.bssids.push_back(value); },
      "Only this access point; may be repeated"));
  app.add_flag_callback(
      "--passive", [&] { request.scanType = wifi::ScanType::kPassive; }, "Listen only, send nothing");
  AddTimeout(app, request.timeoutMs, wifi::kDefaultTimeoutMs);
}

void AddScan(CLI::App& app, ScanOptions& options) {
  kes::DiscoveryRequest& request = options.request;
  CLI::App* scan = app.add_subcommand("scan", "Show which access points are around");
  scan->fallthrough();
  AddValue(
      *scan, "--mode", "fresh|cache|fallback", ReadMode, [&](wifi::RequestMode mode) { request.mode = mode; },
      "Scan now (default), take what the daemon remembers, or scan only when it remembers nothing");
  AddSelection(*scan, request);
  AddValue(
      *scan, "--max-age", "MS", ReadMaxAge, [&](uint32_t value) { request.maxAgeMs = value; },
      "The oldest remembered measurement to show, in milliseconds; every age by default");
  scan->add_flag("--json", options.json, "Print one JSON object instead of a table");
  scan->add_flag("--elements", options.elements, "List the information elements below each access point");
  AddValue(
      *scan, "--pcap", "FILE", ReadCapturePath, [&](std::string value) { options.pcapPath = std::move(value); },
      "Also write what was received into this file, as a capture (pcap, radiotap)");
  scan->footer(Footer(kScanExamples));
}

void AddWatch(CLI::App& app, WatchOptions& options) {
  CLI::App* watch = app.add_subcommand("watch", "Show how the access points around change");
  watch->fallthrough();
  AddSelection(*watch, options.request);
  AddValue(
      *watch, "--interval", "MS", ReadScanInterval, [&](uint32_t value) { options.intervalMs = value; },
      "Milliseconds from the start of a scan to that of the next one, at least " + std::to_string(kMinScanIntervalMs) +
          " (default " + std::to_string(options.intervalMs) + "); a scan that takes longer is waited for");
  AddValue(
      *watch, "--count", "N", ReadScanCount, [&](uint32_t value) { options.count = value; }, "End after N scans");
  watch->add_flag("--json", options.json, "Print one JSON object a scan instead of a table");
  watch->footer(std::string(kWatchNotes) + "\n" + Footer(kWatchExamples));
}

void AddRange(CLI::App& app, RangeOptions& options) {
  kes::RangingRequest& request = options.request;
  // Options are read in any order: whichever comes first makes it.
  const auto rounds = [&request]() -> kes::PeriodicRanging& {
    return request.periodic ? *request.periodic : request.periodic.emplace();
  };
  CLI::App* range = app.add_subcommand("range", "Measure the distance to peers");
  range->fallthrough();
  CLI::Option* peers = AddValue(
      *range, "PEER", "MAC[@FREQ]", ReadPeer, [&](const kes::RangingNode& node) { request.nodes.push_back(node); },
      "The peer's MAC address and, if it is known, the centre of its primary channel in MHz");
  MayRepeat(peers);
  peers->allow_extra_args()->required();
  CLI::Option* periodic = range->add_flag_callback(
      "--periodic", [=] { rounds(); },
      "Send a periodic request. It delivers one result, that of its first round; --repeat asks for more");
  AddValue(
      *range, "--interval", "MS", ReadInterval,
      [=](uint32_t value) { rounds().intervalMs = static_cast<int32_t>(value); },
      "Milliseconds from round to round (default " + std::to_string(kes::PeriodicRanging{}.intervalMs) + ")")
      ->needs(periodic);
  AddValue(
      *range, "--count", "N", ReadRounds, [=](uint32_t value) { rounds().rounds = static_cast<int32_t>(value); },
      "How many rounds the daemon's library does (default " + std::to_string(kes::PeriodicRanging{}.rounds) + ")")
      ->needs(periodic);
  AddTimeout(*range, request.timeoutMs, wifi::kDefaultRangingTimeoutMs);
  AddValue(
      *range, "--repeat", "N", ReadRepeat, [&](uint32_t value) { options.repeat = value; },
      "Ask N times, one after the other, and show each result as it comes");
  range->add_flag("--json", options.json, "Print one JSON object a result instead of a table");
  range->footer(Footer(kRangeExamples));
}

void AddDoctor(CLI::App& app, DoctorOptions& options) {
  CLI::App* doctor = app.add_subcommand("doctor", "Check the way to the daemon and what it can do, and say what to do");
  doctor->fallthrough();
  doctor->add_flag("--json", options.json, "Print one JSON object instead of a line a check");
  doctor->footer(Footer(kDoctorExample));
}

}  // namespace

Command ParseCommandLine(int argc, const char* const* argv) {
  ScanOptions scan;
  WatchOptions watch;
  RangeOptions range;
  DoctorOptions doctor;
  CLI::App app("Uses kesd, the Wi-Fi location daemon.", "kesctl");
  app.require_subcommand(0, 1);  // without one, below: this way a wrong name is named
  app.set_version_flag("--version", "kesctl " KESD_VERSION, "Print the version and exit");
  std::string socketPath = kes::kDefaultSocketPath;
  AddValue(
      app, "--socket", "PATH", ReadSocketPath, [&](std::string value) { socketPath = std::move(value); },
      "The daemon's socket; " + socketPath + " by default");
  app.footer(Footer(std::string(kScanExamples) + kWatchExamples + kRangeExamples + kDoctorExample));
  AddScan(app, scan);
  AddWatch(app, watch);
  AddRange(app, range);
  AddDoctor(app, doctor);

  try {
    app.parse(argc, argv);
    if (app.get_subcommands().empty()) throw CLI::RequiredError("A subcommand");
  } catch (const CLI::CallForHelp&) {
    return PrintResult(app.help()) ? kExitDelivered : kExitRefused;
  } catch (const CLI::CallForVersion& version) {
    return PrintResult(std::string(version.what()) + "\n") ? kExitDelivered : kExitRefused;
  } catch (const CLI::ParseError& error) {
    Complain(std::string(error.what()) + "\nTry 'kesctl --help', or 'kesctl SUBCOMMAND --help'.");
    return kExitUsage;
  }
  scan.socketPath = watch.socketPath = range.socketPath = doctor.socketPath = std::move(socketPath);
  if (app.got_subcommand("watch")) return watch;
  if (app.got_subcommand("doctor")) return doctor;
  if (app.got_subcommand("range")) return range;
  return scan;
}

}  // namespace kesctl
