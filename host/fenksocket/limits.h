// What each end admits by default, and why each number is what it is.
#ifndef KESD_HOST_FENKSOCKET_LIMITS_H_
#define KESD_HOST_FENKSOCKET_LIMITS_H_

#include <chrono>

#include "host/fenksocket/connection.h"

namespace fenk {

// The serving end trusts nobody: what one client can make it hold stays small.
inline constexpr Limits kServerLimits = {
    // The largest sensible request, thousands of list entries or ranging nodes, is a few hundred KiB.
    .maxFrameBytes = 1u << 20,
    // One for each request handle that a client forgot to give back; a handle costs about 200 bytes.
    .maxExportedObjects = 16384,
    // One for each callback of a request in flight, which is what bounds those.
    .maxImportedObjects = 1024,
    // A callback that asks again from within its own invocation is the deepest anybody needs; each level is stack.
    .maxNestedCalls = 4,
    // Taking a result is a copy for a client; one that needs longer is stopped or gone.
    .answerDeadline = std::chrono::seconds(5),
};

// The client's end trusts the daemon, and must take results of any sensible size.
inline constexpr Limits kClientLimits = {
    // Above a million measurements.
    .maxFrameBytes = 256u << 20,
    .maxExportedObjects = 16384,
    // As many as the server hands out.
    .maxImportedObjects = 16384,
    .maxNestedCalls = 4,
    // The daemon answers an invocation at once, before it scans.
    .answerDeadline = std::chrono::seconds(5),
};

// Connections of one service. Each has a thread and a descriptor.
inline constexpr unsigned kMaxConnections = 4096;

// A quarter of what there is in all, where there is such a number: connections, and requests that the location client
// library takes. Nobody needs as many; everybody else has three quarters left when somebody does.
inline constexpr UserLimits kUserLimits = {
    .connections = kMaxConnections / 4,
    // Handles that were forgotten on 4 connections.
    .exportedObjects = uint64_t{4} * kServerLimits.maxExportedObjects,
    .importedObjects = 16384,
    // Each holds one of the library's 256 reporting threads.
    .calls = 128,
    // 64 of the longest.
    .frameBytes = 64u << 20,
};

// How long peers may take to take their last replies when the service ends. init kills a service that lingers.
inline constexpr std::chrono::milliseconds kDrainTime{500};

}  // namespace fenk

#endif  // KESD_HOST_FENKSOCKET_LIMITS_H_
