// FlatBuffers: a builder that is cleared and keeps its memory.
#include <vector>

#include "bench/marshal.h"
#include "marshal_generated.h"

namespace {

using bench::Measurements;
using flatbuffers::Offset;

bench::flat::Info InfoOf(const zv_loc_fw::MeasurementInfoObject& i) {
  return {i.value10, i.value18, i.value00, i.value04, i.value08, i.value28, i.value2C, i.value30, i.value38, i.value20,
          i.value22, i.value24, i.value34, i.value35, i.value36, i.value37, i.value3C, i.value3D, i.value3E, i.value3F};
}

bench::flat::Values ValuesOf(const bench::Measurement& m) {
  return {m.valueF8,
          static_cast<uint32_t>(m.bssid.getLo24()),
          static_cast<uint32_t>(m.bssid.getHi24()),
          m.value10,
          m.value44,
          m.value48,
          m.value98,
          m.valueA0,
          m.valueA8,
          m.valueE8,
          m.valueEC,
          m.valueF0,
          m.valueF4,
          m.valueA4,
          m.valueA6,
          m.valueC8,
          m.valueCA,
          m.value40,
          m.value41,
          m.value78,
          m.value79,
          m.value9C,
          m.value9D,
          m.valueCC,
          m.valueCD,
          m.valueCE};
}

class FlatBuffers {
 public:
  // 1 KiB holds a measurement; the builder then never grows.
  explicit FlatBuffers(std::size_t count) : builder(count * 1024) {}

  std::size_t Marshal(Measurements measurements) {
    builder.Clear();
    finished.clear();
    for (const bench::Measurement* measurement : measurements) finished.push_back(Add(*measurement));
    builder.Finish(bench::flat::CreateResponse(builder, builder.CreateVector(finished)));
    return builder.GetSize();
  }

 private:
  Offset<bench::flat::Measurement> Add(const bench::Measurement& measurement) {
    elements.clear();
    for (uint32_t i = 0; i < measurement.beaconElements.count; ++i) {
      const zv_loc_fw::ElementObject& element = *measurement.beaconElements[i];
      const auto payload = builder.CreateVector(element.payload, element.length);
      elements.push_back(bench::flat::CreateElement(builder, element.id, payload));
    }
    infos.clear();
    for (uint32_t i = 0; i < measurement.infoList.count; ++i) infos.push_back(InfoOf(*measurement.infoList[i]));
    unsigned char octets[32];
    int length = 0;
    measurement.ssid.getSSID(octets, &length);
    const auto ssid = builder.CreateVector(octets, static_cast<std::size_t>(length));
    const bench::flat::Values values = ValuesOf(measurement);
    return bench::flat::CreateMeasurement(builder, &values, ssid, builder.CreateVectorOfStructs(infos),
                                          builder.CreateVector(elements));
  }

  flatbuffers::FlatBufferBuilder builder;
  std::vector<Offset<bench::flat::Measurement>> finished;
  std::vector<Offset<bench::flat::Element>> elements;
  std::vector<bench::flat::Info> infos;
};

const bool entered = bench::Enter<FlatBuffers>("FlatBuffers");

}  // namespace
