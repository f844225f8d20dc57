// The IPC framework's socket library (libfenksocket.so), which is loaded at run time: these declarations give
// its entry points their types.
#ifndef KESD_PLATFORM_FENK_IPC_H_
#define KESD_PLATFORM_FENK_IPC_H_

#include <cstdint>

#include "ipc/object.h"

extern "C" {

// Serves `root` on the socket `fd`, on threads of the library's own. Returns the service, or null when it
// could not be started.
void* FenkIPC_startServiceOnSocket(int32_t fd, Object root);

// Blocks until the service ends. No object is invoked for a client after it has returned.
int32_t FenkIPC_join(void* service);

}  // extern "C"

#endif  // KESD_PLATFORM_FENK_IPC_H_
