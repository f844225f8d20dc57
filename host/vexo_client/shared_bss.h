// Basic service sets that the cache and any number of responses share.
#ifndef KESD_HOST_VEXO_CLIENT_SHARED_BSS_H_
#define KESD_HOST_VEXO_CLIENT_SHARED_BSS_H_

#include <memory>
#include <vector>

#include "host/vexo_client/bss.h"
#include "platform/vexo_measurement.h"

namespace vexo_host {

// A BSS with its measurement as the library's object, made once however often it is reported.
struct SharedBss : Bss {
  // Throws std::bad_alloc.
  explicit SharedBss(Bss&& heard);
  SharedBss(const SharedBss&) = delete;
  ~SharedBss();

  // Whoever is given it only reads it, but for the platform's interfaces it is not const.
  mutable zv_loc_fw::VEXOFullBeaconScanMeasurement measurement;

 private:
  // What `measurement` refers to, and whose payloads lie in `elements`.
  std::vector<zv_loc_fw::ElementObject> elementObjects;
  std::vector<zv_loc_fw::ElementObject*> elementPointers;
};

using BssPointer = std::shared_ptr<const SharedBss>;

// What one scan heard. Null is an empty list, too.
using BssList = std::shared_ptr<const std::vector<BssPointer>>;

// Throws std::bad_alloc.
BssList MakeBssList(std::vector<Bss> heard);

}  // namespace vexo_host

#endif  // KESD_HOST_VEXO_CLIENT_SHARED_BSS_H_
