#include "client/kesctl_scan.h"

#include "client/replace_file.h"
#include "client/result_json.h"
#include "client/scan_capture.h"
#include "client/scan_table.h"
#include "client/session.h"

namespace kesctl {
namespace {

// False, once said, when there is a reason why the capture cannot be written.
bool IsWritable(const std::string& path, const std::optional<std::string>& whyNot) {
  if (whyNot) {
    Complain("cannot write the capture " + path + ": " + *whyNot +
             ".\nName a file in a folder that is there, that you may write, and that has room.");
  }
  return !whyNot;
}

// A scan that failed and heard nothing must not take the place of what an earlier one heard.
bool Keep(const kes::DiscoveryResult& result, const std::string& path) {
  if (result.status == wifi::ScanStatus::kOk || !result.measurements.empty()) {
    return IsWritable(path, ReplaceFile(path, ScanCapture(result)));
  }
  Complain("the capture " + path + " is not written: there is nothing to keep.");
  return true;
}

}  // namespace

int RunScan(const ScanOptions& options) {
  const std::optional<std::string>& pcap = options.pcapPath;
  if (pcap && !IsWritable(*pcap, WhyNotReplaceable(*pcap))) return kExitRefused;
  Session session(options.socketPath, "Scanning,", options.request.timeoutMs);
  const auto result = session.Ask(&kes::Client::StartDiscovery, options.request);
  if (!result) return session.ExitCode();
  const bool isKept = !pcap || Keep(*result, *pcap);
  const TableStyle style{WantsColour(), options.elements};
  session.Show(options.json ? ScanJson(*result) : ScanTable(*result, style), result->status, WordsFor(result->status));
  return isKept ? session.ExitCode() : kExitRefused;
}

}  // namespace kesctl
