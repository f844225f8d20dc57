// Cap'n Proto: a message in a first segment that is kept, and long enough.
#include <capnp/message.h>

#include "bench/marshal.h"
#include "marshal.capnp.h"

namespace {

using bench::Measurements;

void Fill(const zv_loc_fw::MeasurementInfoObject& from, bench::capn::Info::Builder to) {
  to.setValue00(from.value00);
  to.setValue04(from.value04);
  to.setValue08(from.value08);
  to.setValue10(from.value10);
  to.setValue18(from.value18);
  to.setValue20(from.value20);
  to.setValue22(from.value22);
  to.setValue24(from.value24);
  to.setValue28(from.value28);
  to.setValue2c(from.value2C);
  to.setValue30(from.value30);
  to.setValue34(from.value34);
  to.setValue35(from.value35);
  to.setValue36(from.value36);
  to.setValue37(from.value37);
  to.setValue38(from.value38);
  to.setValue3c(from.value3C);
  to.setValue3d(from.value3D);
  to.setValue3e(from.value3E);
  to.setValue3f(from.value3F);
}

void Fill(const bench::Measurement& from, bench::capn::Measurement::Builder to) {
  to.setBssidLo24(static_cast<uint32_t>(from.bssid.getLo24()));
  to.setBssidHi24(static_cast<uint32_t>(from.bssid.getHi24()));
  to.setValue10(from.value10);
  to.setValue40(from.value40);
  to.setValue41(from.value41);
  to.setValue44(from.value44);
  to.setValue48(from.value48);
  to.setValue78(from.value78);
  to.setValue79(from.value79);
  to.setValue98(from.value98);
  to.setValue9c(from.value9C);
  to.setValue9d(from.value9D);
  to.setValuea0(from.valueA0);
  to.setValuea4(from.valueA4);
  to.setValuea6(from.valueA6);
  to.setValuea8(from.valueA8);
  to.setValuec8(from.valueC8);
  to.setValueca(from.valueCA);
  to.setValuecc(from.valueCC);
  to.setValuecd(from.valueCD);
  to.setValuece(from.valueCE);
  to.setValuee8(from.valueE8);
  to.setValueec(from.valueEC);
  to.setValuef0(from.valueF0);
  to.setValuef4(from.valueF4);
  to.setValuef8(from.valueF8);
  unsigned char ssid[32];
  int length = 0;
  if (from.ssid.getSSID(ssid, &length) == 0) to.setSsid(kj::arrayPtr(ssid, static_cast<std::size_t>(length)));
}

class CapnProto {
 public:
  // 1 KiB holds a measurement.
  explicit CapnProto(std::size_t count) : segment(kj::heapArray<capnp::word>(count * 128)) {
    memset(segment.begin(), 0, segment.size() * sizeof(capnp::word));
  }

  std::size_t Marshal(Measurements measurements) {
    capnp::MallocMessageBuilder message(segment);  // when it ends, it clears what it used
    auto list = message.initRoot<bench::capn::Response>().initMeasurements(static_cast<unsigned>(measurements.size()));
    for (unsigned m = 0; m < list.size(); ++m) {
      const bench::Measurement& measurement = *measurements[m];
      bench::capn::Measurement::Builder to = list[m];
      Fill(measurement, to);
      auto infos = to.initInfos(measurement.infoList.count);
      for (unsigned i = 0; i < infos.size(); ++i) Fill(*measurement.infoList[i], infos[i]);
      auto elements = to.initElements(measurement.beaconElements.count);
      for (unsigned i = 0; i < elements.size(); ++i) {
        const zv_loc_fw::ElementObject& from = *measurement.beaconElements[i];
        bench::capn::Element::Builder element = elements[i];
        element.setId(from.id);
        element.setPayload(kj::arrayPtr(from.payload, from.length));
      }
    }
    return message.sizeInWords() * sizeof(capnp::word);
  }

 private:
  kj::Array<capnp::word> segment;
};

const bool entered = bench::Enter<CapnProto>("Cap'n Proto");

}  // namespace
