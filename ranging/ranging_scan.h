// The ranging scan service: how far peers are, once or periodically.
#ifndef KESD_RANGING_RANGING_SCAN_H_
#define KESD_RANGING_RANGING_SCAN_H_

#include "ipc/object.h"

// The service object: a constant without state that is not counted. Its two operations start a one-shot or a periodic
// scan; slots and records are in ipc/services.h and marshal/records.h. It answers OBJECT_OK with a request handle,
// OBJECT_ERROR when the request could not be made or sent, or OBJECT_ERROR_INVALID when the invocation is malformed.
Object CreateVexoRangingScan();

#endif  // KESD_RANGING_RANGING_SCAN_H_
