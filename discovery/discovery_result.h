// Delivery of a discovery scan's result.
#ifndef KESD_DISCOVERY_DISCOVERY_RESULT_H_
#define KESD_DISCOVERY_DISCOVERY_RESULT_H_

#include "ipc/object.h"
#include "platform/vexo_response.h"

namespace discovery {

// The response handler of every discovery request: invokes `callback` exactly once, with the response's records or,
// when the response is null or no discovery response, with SCAN_STATUS_BAD_RESPONSE and none. Borrows both.
void ResponseReceived(zv_loc_fw::VEXOResponse* response, Object callback);

}  // namespace discovery

#endif  // KESD_DISCOVERY_DISCOVERY_RESULT_H_
