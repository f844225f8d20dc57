#include "client/kesctl_range.h"

#include "client/range_table.h"
#include "client/result_json.h"
#include "client/session.h"

namespace kesctl {

int RunRange(const RangeOptions& options) {
  if (options.request.periodic) {
    Complain("a periodic request delivers one result, that of its first round; use --repeat N for more.");
  }
  Session session(options.socketPath, "Ranging,", options.request.timeoutMs);
  for (uint32_t i = 0; i < options.repeat; ++i) {
    const auto result = session.Ask(&kes::Client::StartRanging, options.request);
    if (!result) break;
    const std::string text = options.json ? RangeJson(*result) : RangeTable(*result, WantsColour());
    if (!session.Show(text, result->status, RangingWordsFor(result->status))) break;
  }
  return session.ExitCode();
}

}  // namespace kesctl
