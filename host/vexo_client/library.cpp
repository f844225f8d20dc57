// The library's entry points.
#include <cstdlib>
#include <new>

#include "host/vexo_client/client.h"
#include "host/vexo_client/source_choice.h"

namespace zv_loc_fw {

// The flag and the log level make no difference here: the logging library chooses what is logged.
VEXOClient* VEXOClient::createInstance(VEXOClientListener* listener, bool, eLogLevel) {
  if (listener == nullptr) return nullptr;
  const char* const choice = std::getenv("VEXO_SOURCE");
  const auto makeSource = [choice](vexo_host::Scheduler& scheduler) {
    return vexo_host::MakeSource(choice == nullptr ? "" : choice, scheduler);
  };
  try {
    return vexo_host::Client::Create(*listener, makeSource).release();
  } catch (const std::bad_alloc&) {  // from wrapping makeSource
    return nullptr;
  }
}

int32_t VEXOClient::sendRequest(VEXORequest* request) {
  if (request == nullptr) return vexo_host::Client::kUnknownKind;
  return static_cast<vexo_host::Client*>(this)->Send(*request);
}

}  // namespace zv_loc_fw
