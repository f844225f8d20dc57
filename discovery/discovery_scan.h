// The discovery scan service: which access points are around.
#ifndef KESD_DISCOVERY_DISCOVERY_SCAN_H_
#define KESD_DISCOVERY_DISCOVERY_SCAN_H_

#include "ipc/object.h"

// The service object: a constant without state that is not counted. Its one operation starts a scan; slots and records
// are in ipc/services.h and marshal/records.h. It answers OBJECT_OK with a request handle, OBJECT_ERROR when the mode
// is unknown or the request could not be made or sent, or OBJECT_ERROR_INVALID when the invocation is malformed.
Object CreateVexoDiscoveryScan();

#endif  // KESD_DISCOVERY_DISCOVERY_SCAN_H_
