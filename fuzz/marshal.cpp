// Responses of the location client library, also with holes in them, through both services' delivery to the client's
// decoding: what comes out lies in its bounds, and where nothing was missing it is what went in.
#include <cstring>

#include "client/discovery_result.h"
#include "client/ranging_result.h"
#include "discovery/discovery_result.h"
#include "fuzz/input.h"
#include "ipc/services.h"
#include "marshal/records.h"
#include "platform/vexo_response.h"
#include "ranging/ranging_result.h"
#include "tests/scripted_platform.h"
#include "tests/test_measurements.h"

namespace {

using fuzz::Input;
using fuzz::Require;
using Octets = std::vector<uint8_t>;

// What becomes of a measurement.
struct Expected {
  kes::MacAddress bssid;
  Octets ssid;
  Octets elements;
  std::size_t macs = 0;
};

template <typename Base>
struct Measurement : scripted::Measurement<Base> {
  int32_t type = Base::getMeasurementType();
  int32_t getMeasurementType() const override { return type; }
};

struct Maker {
  Input& input;
  bool missing = false;         // a list announces more than it has
  std::size_t infos = 0;        // of all measurements
  std::size_t infoRecords = 0;  // as many as a record can count
  std::vector<std::unique_ptr<zv_loc_fw::VEXOScanMeasurement>> made = {};
  std::vector<Expected> expected = {};  // of those that the service takes

  // A list without its block, as where memory ran out: it still says how many there should be.
  template <typename List>
  bool LeaveOut(List& list) {
    if (input.Below(16) != 15) return false;
    list.count = input.Below(200);
    missing |= list.count != 0;
    return true;
  }

  zv_loc_fw::ElementObject* TakeElement(auto& measurement) {
    const uint8_t id = input.Take<uint8_t>() % 2 == 0 ? 221 : input.Take<uint8_t>();
    const uint8_t length = input.Take<uint8_t>();
    zv_loc_fw::ElementObject* element =
        measurement.Element(id, length, input.Below(2) == 0 ? Octets{2, 0x4B, 0x9E} : Octets{2, 0x4B, 0x9D});
    if (length == 0) element->payload = nullptr;
    return element;
  }

  template <typename Base>
  Measurement<Base>& Make(bool taken) {
    auto owned = std::make_unique<Measurement<Base>>();
    Measurement<Base>& m = *owned;
    made.push_back(std::move(owned));
    Expected e;
    const uint32_t high = input.Take<uint32_t>() & 0xFFFFFF;
    const uint32_t low = input.Take<uint32_t>() & 0xFFFFFF;
    m.bssid.setMac(static_cast<int>(high), static_cast<int>(low));
    e.bssid = kes::MacAddressOf(low, high);
    e.ssid = input.Bytes(input.Below(40));
    m.ssid.setSSID(e.ssid.data(), static_cast<int>(e.ssid.size()));
    if (e.ssid.size() > 32) e.ssid.resize(32);
    m.valueF0 = m.valueF4 = m.valueE8 = input.Take<uint32_t>();

    const unsigned infoCount = input.Below(12);
    if (!LeaveOut(m.infoList)) {
      m.AddInfos(infoCount, 7);
      if (infoCount == 11) m.infoList.push_back(nullptr);
      // More than a record can count.
      zv_loc_fw::MeasurementInfoObject* const any = m.infoList[0];
      if (infoCount == 10 && infos == 0) {
        while (m.infoList.count < 66'000) m.infoList.push_back(any);
      }
    }
    if (taken) {
      infos += m.infoList.count;
      infoRecords += m.infoList.count % 65'536;
    }
    if (!LeaveOut(m.byteList))
      for (const uint8_t octet : input.Bytes(input.Take<uint8_t>()))
        m.byteList.push_back(static_cast<signed char>(octet));
    if (input.Below(3) == 0) m.element1 = TakeElement(m);
    if (input.Below(3) == 0) m.element2 = TakeElement(m);
    if (taken) expected.push_back(e);
    return m;
  }

  void MakeFullBeacon(bool taken) {
    auto& m = Make<zv_loc_fw::VEXOFullBeaconScanMeasurement>(taken);
    m.vendorExtraByte = input.Take<uint8_t>();
    Octets elements;
    if (!LeaveOut(m.beaconElements)) {
      for (unsigned n = input.Below(20); n != 0; --n) {
        zv_loc_fw::ElementObject* element = input.Below(8) == 7 ? nullptr : TakeElement(m);
        m.beaconElements.push_back(element);
        if (element == nullptr) continue;
        const bool extended = element->id == 221 && element->length >= 25 && element->length <= 254 &&
                              std::memcmp(element->payload, "\x02\x4B\x9E", 3) == 0;
        elements.insert(elements.end(), {element->id, static_cast<uint8_t>(element->length + (extended ? 1 : 0))});
        elements.insert(elements.end(), element->payload, element->payload + element->length);
        if (extended) elements.push_back(m.vendorExtraByte);
      }
    }
    if (taken) expected.back().elements = std::move(elements);
  }

  void MakeRanging(bool taken) {
    auto& m = Make<zv_loc_fw::VEXORangingScanMeasurement>(taken);
    if (!LeaveOut(m.macList))
      for (unsigned n = input.Below(20); n != 0; --n) m.macList.push_back(m.bssid);
    if (taken) expected.back().macs = m.macList.count;
  }

  // What the response is to hold next; null now and then.
  zv_loc_fw::VEXOScanMeasurement* Next(bool ranging) {
    switch (input.Below(6)) {
      case 0:
        return nullptr;
      case 1:
        MakeFullBeacon(!ranging);
        break;
      case 2:
        MakeRanging(ranging);
        break;
      case 3:
        Make<zv_loc_fw::VEXOScanMeasurement>(ranging);
        break;
      case 4: {
        auto& m = Make<zv_loc_fw::VEXOScanMeasurement>(false);
        m.type = input.Take<int32_t>() | 4;
        break;
      }
      default:
        if (ranging)
          MakeRanging(true);
        else
          MakeFullBeacon(true);
    }
    return made.back().get();
  }
};

template <typename Result>
void Check(const Result& result, const Maker& maker) {
  Require(result.measurements.size() == maker.expected.size(), "a record for each measurement");
  for (std::size_t i = 0; i < maker.expected.size(); ++i) {
    const auto& m = result.measurements[i];
    const Expected& e = maker.expected[i];
    Require(m.bssid == e.bssid, "its address");
    if constexpr (requires { m.elements; }) {
      Require(m.ssid == e.ssid, "its SSID");
      Require(m.elements == e.elements, "its elements");
      Require(maker.missing || maker.infos > 65'535 || !m.incomplete, "nothing is missing");
    } else {
      Require(maker.missing ? m.peers.size() == e.macs : m.peers == std::vector(e.macs, e.bssid), "its addresses");
    }
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  Input input(data, size);
  const bool ranging = input.Below(2) != 0;
  Maker maker{.input = input};
  zv_loc_fw::VEXODiscoveryScanResponse scan(1);
  zv_loc_fw::VEXORangingScanResponse distances(1);
  const unsigned kind = input.Below(16);  // 15: null; 14: of the other service
  scan.scanStatus = distances.scanStatus = 0;
  scan.opaque64 = input.Take<uint64_t>();
  scan.opaque32 = input.Take<uint32_t>();
  auto& list = ranging ? distances.measurements : scan.measurements;
  if (input.Below(32) == 31) {
    list.count = input.Below(200);  // without its block: all null
  } else {
    for (int n = 0; n < 12 && !input.AtEnd(); ++n) list.push_back(maker.Next(ranging));
  }

  scripted::Callback callback;
  const bool bad = kind >= 14;
  zv_loc_fw::VEXOResponse* response = nullptr;
  if (kind != 15) response = ranging != (kind == 14) ? static_cast<zv_loc_fw::VEXOResponse*>(&distances) : &scan;
  (ranging ? ranging::ResponseReceived : discovery::ResponseReceived)(response, callback.AsObject());
  (void)scripted::TakeLog();
  Require(callback.deliveries == 1 && callback.retains == 0 && callback.releases == 0, "one delivery");
  Require(callback.counts == (ranging ? kDeliverRangingResultCounts : kDeliverDiscoveryResultCounts), "its counts");
  const auto& b = callback.buffers;
  for (std::size_t i = 0; i < b.size(); ++i) Require(callback.isNull[i] == b[i].empty(), "null when empty");
  if (bad) maker.expected.clear();
  Require(b[2].size() == (bad ? 0 : 64 * maker.infoRecords), "info records");
  if (ranging) {
    const auto result = kes::DecodeRangingResult({b[0], b[1], b[2], b[3], b[4]});
    Require(bool{result} && (result->status == wifi::ScanStatus::kBadResponse) == bad, "a result");
    Check(*result, maker);
  } else {
    const auto result = kes::DecodeDiscoveryResult({b[0], b[1], b[2], b[3]});
    Require(bool{result} && (result->status == wifi::ScanStatus::kBadResponse) == bad, "a result");
    Check(*result, maker);
  }
  return 0;
}
