// The ranging scan service: how far peers are.
#ifndef KESD_RANGING_RANGING_SCAN_H_
#define KESD_RANGING_RANGING_SCAN_H_

#include "ipc/object.h"

// The service object: a constant without state that is not counted.
Object CreateVexoRangingScan();

#endif  // KESD_RANGING_RANGING_SCAN_H_
