// Protocol Buffers: a message on an arena that keeps its first block, serialised into memory that is there already.
#include <string>
#include <vector>

#include "bench/marshal.h"
#include "marshal.pb.h"

namespace {

using bench::Measurements;

void Fill(const zv_loc_fw::MeasurementInfoObject& from, bench::protobuf::Info& to) {
  to.set_value00(from.value00);
  to.set_value04(from.value04);
  to.set_value08(from.value08);
  to.set_value10(from.value10);
  to.set_value18(from.value18);
  to.set_value20(from.value20);
  to.set_value22(from.value22);
  to.set_value24(from.value24);
  to.set_value28(from.value28);
  to.set_value2c(from.value2C);
  to.set_value30(from.value30);
  to.set_value34(from.value34);
  to.set_value35(from.value35);
  to.set_value36(from.value36);
  to.set_value37(from.value37);
  to.set_value38(from.value38);
  to.set_value3c(from.value3C);
  to.set_value3d(from.value3D);
  to.set_value3e(from.value3E);
  to.set_value3f(from.value3F);
}

void Fill(const bench::Measurement& from, bench::protobuf::Measurement& to) {
  to.set_bssid_lo24(static_cast<uint32_t>(from.bssid.getLo24()));
  to.set_bssid_hi24(static_cast<uint32_t>(from.bssid.getHi24()));
  to.set_value10(from.value10);
  to.set_value40(from.value40);
  to.set_value41(from.value41);
  to.set_value44(from.value44);
  to.set_value48(from.value48);
  to.set_value78(from.value78);
  to.set_value79(from.value79);
  to.set_value98(from.value98);
  to.set_value9c(from.value9C);
  to.set_value9d(from.value9D);
  to.set_valuea0(from.valueA0);
  to.set_valuea4(from.valueA4);
  to.set_valuea6(from.valueA6);
  to.set_valuea8(from.valueA8);
  to.set_valuec8(from.valueC8);
  to.set_valueca(from.valueCA);
  to.set_valuecc(from.valueCC);
  to.set_valuecd(from.valueCD);
  to.set_valuece(from.valueCE);
  to.set_valuee8(from.valueE8);
  to.set_valueec(from.valueEC);
  to.set_valuef0(from.valueF0);
  to.set_valuef4(from.valueF4);
  to.set_valuef8(from.valueF8);
  unsigned char ssid[32];
  int length = 0;
  if (from.ssid.getSSID(ssid, &length) == 0) to.set_ssid(ssid, static_cast<std::size_t>(length));
}

class ProtocolBuffers {
 public:
  // 2 KiB hold a measurement; the arena then never asks for more.
  explicit ProtocolBuffers(std::size_t count) : block(count * 2048), arena(block.data(), block.size()) {}

  std::size_t Marshal(Measurements measurements) {
    arena.Reset();
    auto* response = google::protobuf::Arena::CreateMessage<bench::protobuf::Response>(&arena);
    response->mutable_measurements()->Reserve(static_cast<int>(measurements.size()));
    for (const bench::Measurement* measurement : measurements) {
      bench::protobuf::Measurement& message = *response->add_measurements();
      Fill(*measurement, message);
      for (uint32_t i = 0; i < measurement->infoList.count; ++i) Fill(*measurement->infoList[i], *message.add_infos());
      message.mutable_elements()->Reserve(static_cast<int>(measurement->beaconElements.count));
      for (uint32_t i = 0; i < measurement->beaconElements.count; ++i) {
        const zv_loc_fw::ElementObject& element = *measurement->beaconElements[i];
        bench::protobuf::Element& to = *message.add_elements();
        to.set_id(element.id);
        to.set_payload(element.payload, element.length);
      }
    }
    response->SerializeToString(&serialised);  // a string keeps its memory
    return serialised.size();
  }

 private:
  std::vector<char> block;
  google::protobuf::Arena arena;
  std::string serialised;
};

const bool entered = bench::Enter<ProtocolBuffers>("Protocol Buffers");

}  // namespace
