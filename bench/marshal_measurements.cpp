#include <algorithm>
#include <functional>
#include <memory>
#include <random>
#include <vector>

#include "bench/marshal.h"

namespace bench {
namespace {

constexpr uint8_t kElements = 12;
constexpr uint8_t kPayloadLength = 24;

// The library's lists point to objects that others own.
struct Made {
  std::unique_ptr<Measurement> measurement = std::make_unique<Measurement>();
  std::unique_ptr<zv_loc_fw::MeasurementInfoObject> info = std::make_unique<zv_loc_fw::MeasurementInfoObject>();
  std::vector<std::unique_ptr<zv_loc_fw::ElementObject>> elements;
  std::vector<std::unique_ptr<uint8_t[]>> payloads;
};

template <typename... Values>
void Randomise(std::mt19937& random, Values&... values) {
  ((values = static_cast<Values>(random())), ...);
}

Made Make(std::mt19937& random) {
  Made made;
  Measurement& m = *made.measurement;
  m.bssid.setMac(static_cast<int>(random() & 0xFFFFFF), static_cast<int>(random() & 0xFFFFFF));
  m.ssid.setSSID(reinterpret_cast<const unsigned char*>("a network's name"), 16);
  Randomise(random, m.value10, m.value40, m.value41, m.value44, m.value48, m.value78, m.value79, m.value98, m.value9C,
            m.value9D, m.valueA0, m.valueA4, m.valueA6, m.valueA8, m.valueC8, m.valueCA, m.valueCC, m.valueCD,
            m.valueCE, m.valueE8, m.valueEC, m.valueF0, m.valueF4, m.valueF8);

  zv_loc_fw::MeasurementInfoObject& i = *made.info;
  Randomise(random, i.value00, i.value04, i.value08, i.value10, i.value18, i.value20, i.value22, i.value24, i.value28,
            i.value2C, i.value30, i.value34, i.value35, i.value36, i.value37, i.value38, i.value3C, i.value3D,
            i.value3E, i.value3F);
  m.infoList.push_back(&i);

  for (uint8_t id = 0; id < kElements; ++id) {
    const auto& payload = made.payloads.emplace_back(std::make_unique<uint8_t[]>(kPayloadLength));
    std::generate_n(payload.get(), kPayloadLength, std::ref(random));
    const auto& element = made.elements.emplace_back(
        std::make_unique<zv_loc_fw::ElementObject>(zv_loc_fw::ElementObject{id, kPayloadLength, payload.get()}));
    m.beaconElements.push_back(element.get());
  }
  return made;
}

}  // namespace

Measurements MadeBefore(std::size_t count) {
  static std::mt19937 random;
  static std::vector<Made> all;
  static std::vector<const Measurement*> pointers;
  while (all.size() < count) pointers.push_back(all.emplace_back(Make(random)).measurement.get());
  return Measurements(pointers).first(count);
}

}  // namespace bench
