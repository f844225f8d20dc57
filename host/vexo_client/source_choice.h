// Which source a client measures with, as text says it.
#ifndef KESD_HOST_VEXO_CLIENT_SOURCE_CHOICE_H_
#define KESD_HOST_VEXO_CLIENT_SOURCE_CHOICE_H_

#include <memory>
#include <string_view>

#include "host/vexo_client/scheduler.h"
#include "host/vexo_client/source.h"

namespace vexo_host {

// `choice` is `scene`, `scene:key=value,...`, `capture:FILE` or `nl80211:INTERFACE`; empty stands for `scene`. Anything
// else is logged as an error and gives a source that answers every request with kUnavailable: the clients then learn
// it, and the log keeps the reason, where a process that ends would be started again and again. `scheduler` must
// outlive the source's tasks. Throws std::bad_alloc.
std::unique_ptr<MeasurementSource> MakeSource(std::string_view choice, Scheduler& scheduler);

}  // namespace vexo_host

#endif  // KESD_HOST_VEXO_CLIENT_SOURCE_CHOICE_H_
