// The invocations that occur between the daemon and its clients: operations, exact counts, and slots. An object
// compares `counts` for equality with the one value that an operation expects.
#ifndef KESD_IPC_SERVICES_H_
#define KESD_IPC_SERVICES_H_

#include <cstdint>

#include "ipc/object.h"

// Root object. Slot 0: input buffer, the service ID as 4 bytes. Slot 1: output object, the service.
inline constexpr uint32_t ROOT_OP_OPEN = 0;
inline constexpr ArgCounts kRootOpenCounts = ObjectCounts(1, 0, 0, 1);

inline constexpr uint32_t SERVICE_ID_DISCOVERY_SCAN = 1;
inline constexpr uint32_t SERVICE_ID_RANGING_SCAN = 2;

// Discovery scan service. Slots 0 to 3: input buffers, DiscoveryScanParams and the channel, SSID and MAC address
// lists. Slot 4: input object, the callback. Slot 5: output object, the request handle.
inline constexpr uint32_t kStartDiscoveryScan = 0;
inline constexpr ArgCounts kStartDiscoveryScanCounts = ObjectCounts(4, 0, 1, 1);

// Ranging scan service. Slot 0: input buffer, the node records. Slot 1: input buffer, RangingScanParams. Slot 2: input
// object, the callback. Slot 3: output object, the request handle.
inline constexpr uint32_t kStartRangingScan = 0;
inline constexpr uint32_t kStartPeriodicRangingScan = 1;
inline constexpr ArgCounts kStartRangingScanCounts = ObjectCounts(2, 0, 1, 1);

// A client's callback object, invoked at most once a request. Discovery: DiscoveryResultHeader, then measurement, info
// and byte records. Ranging: RangingResultHeader, then those and MAC address records. All input buffers.
inline constexpr uint32_t kDeliverResult = 0;
inline constexpr ArgCounts kDeliverDiscoveryResultCounts = ObjectCounts(4, 0, 0, 0);
inline constexpr ArgCounts kDeliverRangingResultCounts = ObjectCounts(5, 0, 0, 0);

static_assert(kRootOpenCounts == 0x1001 && kStartDiscoveryScanCounts == 0x1104 && kStartRangingScanCounts == 0x1102);
static_assert(kDeliverDiscoveryResultCounts == 0x0004 && kDeliverRangingResultCounts == 0x0005);

#endif  // KESD_IPC_SERVICES_H_
