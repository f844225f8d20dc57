// The object that the daemon serves on its control socket.
#ifndef KESD_SERVICE_ROOT_OBJECT_H_
#define KESD_SERVICE_ROOT_OBJECT_H_

#include "ipc/object.h"

// Opens the scan services by ID. A constant without state that is not counted; retain and release answer OBJECT_OK. An
// unknown ID answers OBJECT_ERROR_INVALID and leaves the output slot cleared; a malformed invocation answers the same
// and leaves it untouched. Any thread may invoke it.
Object RootObject();

#endif  // KESD_SERVICE_ROOT_OBJECT_H_
