// kesd: serves Wi-Fi discovery and ranging scans on the socket that init made for it.

#include <dlfcn.h>
#include <unistd.h>

#include "platform/control_socket.h"
#include "platform/fenk_ipc.h"
#include "platform/log.h"
#include "service/root_object.h"

using zv_loc_fw::log_error;

namespace {

constexpr char kTag[] = "kesd";
constexpr char kControlSocket[] = "kesd";
constexpr auto kLogLevel = static_cast<zv_loc_fw::ERROR_LEVEL>(1);
constexpr unsigned kOneDaySeconds = 86400;

// Where every failure to start ends: to exit would make init start the service over and over.
[[noreturn]] void Idle() {
  for (;;) sleep(kOneDaySeconds);
}

[[noreturn]] void CloseAndIdle(void* library) {
  dlclose(library);
  Idle();
}

template <typename EntryPoint>
EntryPoint* LookUp(void* library, const char* name) {
  return reinterpret_cast<EntryPoint*>(dlsym(library, name));
}

}  // namespace

int main() {
  zv_loc_fw::log_set_local_level_for_tag(kTag, kLogLevel);

  void* const library = dlopen("libfenksocket.so", RTLD_NOW);
  if (library == nullptr) {
    log_error(kTag, "Failed to load libfenksocket");
    Idle();
  }
  const auto startServiceOnSocket =
      LookUp<decltype(FenkIPC_startServiceOnSocket)>(library, "FenkIPC_startServiceOnSocket");
  const auto join = LookUp<decltype(FenkIPC_join)>(library, "FenkIPC_join");
  if (startServiceOnSocket == nullptr || join == nullptr) {
    log_error(kTag, "Shared library symbol not found");
    CloseAndIdle(library);
  }

  const int controlSocket = android_get_control_socket(kControlSocket);
  if (controlSocket < 0) {
    log_error(kTag, "No service socket provided");
    CloseAndIdle(library);
  }
  void* const service = startServiceOnSocket(controlSocket, RootObject());
  if (service == nullptr) {
    log_error(kTag, "Failed to create service");
    CloseAndIdle(library);
  }

  zv_loc_fw::log_info(kTag, "Serving KESD interface");
  join(service);
  dlclose(library);
  return 0;
}
