// A libfenksocket.so that serves nobody, whole or with one of several faults.
#include "ipc/services.h"
#include "platform/fenk_ipc.h"
#include "tests/startup/say.h"

namespace {

int served = 0;

__attribute__((constructor)) void Loaded() { Say("loaded"); }
__attribute__((destructor)) void Unloaded() { Say("unloaded"); }

[[maybe_unused]] int32_t Open(Object root, uint32_t id) {
  ObjectArg args[2] = {};
  args[0].buffer = {&id, sizeof id};
  return root.invoke(root.context, ROOT_OP_OPEN, args, kRootOpenCounts);
}

}  // namespace

extern "C" {

#ifndef WITHOUT_START
void* FenkIPC_startServiceOnSocket(int32_t fd, Object root) {
  Say("start %d", fd);
  Say("root: context %d, retain %d, open %d %d %d", root.context != nullptr,
      root.invoke(root.context, OBJECT_OP_RETAIN, nullptr, 0), Open(root, 0), Open(root, SERVICE_ID_DISCOVERY_SCAN),
      Open(root, SERVICE_ID_RANGING_SCAN));
#ifdef START_FAILS
  return nullptr;
#else
  return &served;
#endif
}
#endif

#ifdef UNRESOLVED
int NobodyDefinesThis();
#endif

#ifndef WITHOUT_JOIN
// Until standard input ends.
int32_t FenkIPC_join(void* service) {
  Say("join %s", service == &served ? "the service" : "something else");
#ifdef UNRESOLVED
  NobodyDefinesThis();
#endif
  char byte = 0;
  while (read(STDIN_FILENO, &byte, 1) == 1) {
  }
  return -1;
}
#endif

}  // extern "C"
