// Delivery of a ranging scan's result.
#ifndef KESD_RANGING_RANGING_RESULT_H_
#define KESD_RANGING_RANGING_RESULT_H_

#include "ipc/object.h"
#include "platform/vexo_response.h"

namespace ranging {

// The response handler of every ranging request, one-shot and periodic: invokes `callback` exactly once, with the
// response's records or, when the response is null or no ranging response, with SCAN_STATUS_BAD_RESPONSE and none.
// Borrows both.
void ResponseReceived(zv_loc_fw::VEXOResponse* response, Object callback);

}  // namespace ranging

#endif  // KESD_RANGING_RANGING_RESULT_H_
