#include "client/kesctl_scan.h"

#include "client/result_json.h"
#include "client/scan_table.h"
#include "client/session.h"

namespace kesctl {

int RunScan(const ScanOptions& options) {
  Session session(options.socketPath, "Scanning,", options.request.timeoutMs);
  if (const auto result = session.Ask(&kes::Client::StartDiscovery, options.request)) {
    const TableStyle style{WantsColour(), options.elements};
    session.Show(options.json ? ScanJson(*result) : ScanTable(*result, style), result->status,
                 WordsFor(result->status));
  }
  return session.ExitCode();
}

}  // namespace kesctl
