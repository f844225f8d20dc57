// kesd: serves Wi-Fi discovery and ranging scans on the socket that init made for it.

#include <dlfcn.h>
#include <unistd.h>

#include "platform/control_socket.h"
#include "platform/fenk_ipc.h"
#include "platform/log.h"
#include "service/root_object.h"

namespace {

constexpr char kTag[] = "kesd";
constexpr auto kLogLevel = static_cast<zv_loc_fw::ERROR_LEVEL>(1);
constexpr unsigned kOneDaySeconds = 86400;

// Where every failure to start ends: to exit would make init start the service over and over.
[[noreturn]] void Idle(const char* reason, void* library) {
  zv_loc_fw::log_error(kTag, "%s", reason);
  if (library != nullptr) dlclose(library);
  for (;;) sleep(kOneDaySeconds);
}

template <typename EntryPoint>
EntryPoint* LookUp(void* library, const char* name) {
  return reinterpret_cast<EntryPoint*>(dlsym(library, name));
}

}  // namespace

int main() {
  zv_loc_fw::log_set_local_level_for_tag(kTag, kLogLevel);

  void* const library = dlopen("libfenksocket.so", RTLD_NOW);
  if (library == nullptr) Idle("Failed to load libfenksocket", nullptr);
  const auto startServiceOnSocket =
      LookUp<decltype(FenkIPC_startServiceOnSocket)>(library, "FenkIPC_startServiceOnSocket");
  const auto join = LookUp<decltype(FenkIPC_join)>(library, "FenkIPC_join");
  if (startServiceOnSocket == nullptr || join == nullptr) Idle("Shared library symbol not found", library);

  const int controlSocket = android_get_control_socket(kTag);
  if (controlSocket < 0) Idle("No service socket provided", library);
  void* const service = startServiceOnSocket(controlSocket, RootObject());
  if (service == nullptr) Idle("Failed to create service", library);

  zv_loc_fw::log_info(kTag, "Serving KESD interface");
  join(service);
  dlclose(library);
  return 0;
}
