// Measurements for tests: each owns what its lists point to.
#ifndef KESD_TESTS_TEST_MEASUREMENTS_H_
#define KESD_TESTS_TEST_MEASUREMENTS_H_

#include <cstdint>
#include <deque>
#include <vector>

#include "platform/vexo_measurement.h"

namespace scripted {

// `Base` is one of the library's measurement classes.
template <typename Base>
class Measurement : public Base {
 public:
  // `length` payload octets that open with `opening` and go on counting from 1.
  zv_loc_fw::ElementObject* Element(uint8_t id, uint8_t length, std::vector<uint8_t> opening = {}) {
    std::vector<uint8_t>& payload = payloads.emplace_back(std::move(opening));
    while (payload.size() < length) payload.push_back(static_cast<uint8_t>(payload.size() + 1));
    return &elements.emplace_back(zv_loc_fw::ElementObject{id, length, payload.data()});
  }

  // Appends `count` info objects whose first value counts from `firstValue`.
  void AddInfos(uint32_t count, uint32_t firstValue) {
    for (uint32_t i = 0; i < count; ++i) {
      zv_loc_fw::MeasurementInfoObject& info = infos.emplace_back();
      info.value00 = firstValue + i;
      this->infoList.push_back(&info);
    }
  }

 private:
  std::deque<std::vector<uint8_t>> payloads;
  std::deque<zv_loc_fw::ElementObject> elements;
  std::deque<zv_loc_fw::MeasurementInfoObject> infos;
};

}  // namespace scripted

#endif  // KESD_TESTS_TEST_MEASUREMENTS_H_
