// Basic service sets that the cache and any number of responses share.
#ifndef KESD_HOST_VEXO_CLIENT_SHARED_BSS_H_
#define KESD_HOST_VEXO_CLIENT_SHARED_BSS_H_

#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "host/vexo_client/bss.h"
#include "host/wifi/information_elements.h"
#include "platform/vexo_measurement.h"

namespace vexo_host {

// A BSS with its elements as the library's objects: made once, however often it is reported.
struct SharedBss : Bss {
  explicit SharedBss(Bss&& heard) : Bss(std::move(heard)) {
    wifi::ElementReader counter(elements), reader(elements);
    std::size_t count = 0;
    while (counter.Next()) ++count;
    elementObjects.reserve(count);  // their addresses stay
    elementPointers.reserve(count);
    while (const std::optional<wifi::Element> element = reader.Next()) {
      elementObjects.push_back({element->id, static_cast<uint8_t>(element->payload.size()), element->payload.data()});
      elementPointers.push_back(&elementObjects.back());
    }
  }
  SharedBss(const SharedBss&) = delete;

  std::vector<zv_loc_fw::ElementObject> elementObjects;
  std::vector<zv_loc_fw::ElementObject*> elementPointers;
};

using BssPointer = std::shared_ptr<const SharedBss>;

// What one scan heard. Null is an empty list, too.
using BssList = std::shared_ptr<const std::vector<BssPointer>>;

// Throws std::bad_alloc.
inline BssList MakeBssList(std::vector<Bss> heard) {
  const auto list = std::make_shared<std::vector<BssPointer>>();
  list->reserve(heard.size());
  for (Bss& bss : heard) list->push_back(std::make_shared<const SharedBss>(std::move(bss)));
  return list;
}

}  // namespace vexo_host

#endif  // KESD_HOST_VEXO_CLIENT_SHARED_BSS_H_
