#include "host/vexo_client/capture_reader.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "host/vexo_client/capture/capture_writer.h"

namespace vexo_host {
namespace {

using namespace test;
using namespace std::string_literals;

struct Reading {
  bool ok;
  CaptureContents contents;
  std::string error;
};

Reading Read(const std::string& path) {
  Reading reading;
  reading.ok = ReadCapture(path, reading.contents, reading.error);
  return reading;
}

Reading ReadBytes(const Bytes& file) {
  const TemporaryDirectory directory;
  return Read(directory.Write("capture", file));
}

// What a capture holds, in one line: the last octet of each BSSID with its SSID, then what was left out.
std::string Summary(const Reading& reading) {
  if (!reading.ok) return reading.error;
  const CaptureContents& contents = reading.contents;
  std::string text;
  for (const Bss& bss : contents.found) {
    const std::string ssid = bss.ssid ? "'" + std::string(bss.ssid->begin(), bss.ssid->end()) + "'" : "none";
    text += std::to_string(bss.bssid & 0xFF) + "=" + ssid + " ";
  }
  return text + std::to_string(contents.badFcs) + "/" + std::to_string(contents.tooShort) + "/" +
         std::to_string(contents.overrunElements) + " of " + std::to_string(contents.frames);
}

const Bytes kFcs = {0xDE, 0xAD, 0xBE, 0xEF};
const Bytes kGood = Beacon(1, Ssid("good"));

Bytes Tapped(uint8_t flags, const Bytes& frame) { return Radiotap(flags, 2437, -50) + frame; }

TEST(CaptureFrames, AreKeptOrDroppedOneByOne) {
  const struct {
    const char* name;
    uint16_t linkType;
    std::vector<CapturedPacket> packets;
    std::string summary;  // of a file of these and, at its end, one good frame that must not suffer
  } cases[] = {
      {"flagged FCS", kRadiotap, {{Tapped(0x50, Beacon(9, Ssid("a")) + kFcs)}}, "1='good' 1/0/0 of 2"},
      {"FCS is no element", kRadiotap, {{Tapped(0x10, Beacon(2, Ssid("a")) + kFcs)}}, "2='a' 1='good' 0/0/0 of 2"},
      {"FCS partly left out",
       kRadiotap,
       {{.bytes = Tapped(0x10, Beacon(2, Ssid("a")) + Bytes{0xDE}), .leftOut = 3}},
       "2='a' 1='good' 0/0/0 of 2"},
      {"data pad", kRadiotap, {{Tapped(0x20, Beacon(2, Ssid("a")))}}, "2='a' 1='good' 0/0/0 of 2"},
      {"header alone, FCS flagged", kRadiotap, {{Tapped(0x10, {1, 2})}}, "1='good' 0/1/0 of 2"},
      {"radiotap longer than its packet", kRadiotap, {{{0, 0, 99, 0, 0, 0, 0, 0}}}, "1='good' 0/1/0 of 2"},
      {"empty packet", kBare, {{{}}}, "1='good' 0/1/0 of 2"},
      {"probe response", kBare, {{Beacon(2, Ssid("a"), {0x50, 0})}}, "2='a' 1='good' 0/0/0 of 2"},
      {"probe request", kBare, {{Beacon(2, Ssid("a"), {0x40, 0})}}, "1='good' 0/0/0 of 2"},
      {"data and acknowledgement",
       kBare,
       {{Beacon(2, Ssid("a"), {0x08, 0})}, {{0xD4, 0, 0, 0, 1, 2, 3, 4, 5, 6}}},
       "1='good' 0/0/0 of 3"},
      {"another protocol version", kBare, {{Beacon(2, Ssid("a"), {0x81, 0})}}, "1='good' 0/0/0 of 2"},
      {"HT Control", kBare, {{Beacon(2, Ssid("a"), {0x80, 0x80}, {1, 2, 3, 4})}}, "2='a' 1='good' 0/0/0 of 2"},
      {"fixed fields only", kBare, {{Beacon(2, {})}}, "2=none 1='good' 0/0/0 of 2"},
      {"one octet less", kBare, {{Bytes(kGood.begin(), kGood.begin() + 35)}}, "1='good' 0/1/0 of 2"},
      {"SSID overruns", kBare, {{Beacon(2, {0, 5, 'a'})}}, "2=none 1='good' 0/0/1 of 2"},
      {"stray octet", kBare, {{Beacon(2, Ssid("a") + Bytes{7})}}, "2='a' 1='good' 0/0/1 of 2"},
      {"snapshot length cuts an element",
       kBare,
       {{.bytes = Beacon(2, Ssid("a") + Bytes{221, 8, 1}), .leftOut = 7}},
       "2='a' 1='good' 0/0/1 of 2"},
      {"SSIDs of one BSSID",
       kBare,
       {{Beacon(2, Ssid(""))},
        {Beacon(2, {})},
        {Beacon(2, Ssid("\xB2\xE2"))},
        {Beacon(2, Ssid({"\0", 1}))},
        {Beacon(2, Ssid(""))}},
       "2='' 2=none 2='\xB2\xE2' 2='\0' 1='good' 0/0/0 of 6"s},
      {"SSID of 33 octets", kBare, {{Beacon(2, Ssid(std::string(33, 'x')))}}, "2=none 1='good' 0/0/0 of 2"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    std::vector<CapturedPacket> packets = c.packets;
    packets.push_back({c.linkType == kRadiotap ? Tapped(0, kGood) : kGood});
    EXPECT_EQ(Summary(ReadBytes(Pcap(c.linkType, packets))), c.summary);
  }
}

TEST(CaptureFrames, TakeTheChannelFromTheirElementsBeforeTheRadio) {
  const Bytes heOperation = Bytes{36} + Little(1u << 17 | 1u << 15 | 1u << 14, 3) + Bytes{0, 0, 0};
  const Bytes he6 = Element(255, heOperation + Bytes(4, 0) + Bytes{37, 0, 0, 0, 0});
  const struct {
    const char* name;
    uint16_t radioMhz;
    Bytes elements;
    uint32_t frequencyMhz;
  } cases[] = {
      {"radio alone", 2412, {}, 2412},
      {"DS parameter", 2412, Element(61, {1}) + Element(3, {3}), 2422},
      {"DS parameter of the 5 GHz band", 5200, Element(3, {36}), 5180},
      {"no such channel", 2412, Element(3, {200}) + Element(61, {4}), 2427},
      {"empty elements", 2412, Element(3, {}) + Element(61, {}), 2412},
      {"HT operation", 0, Element(61, {149}), 5745},
      {"6 GHz: HE operation", 6115, Element(3, {1}) + Element(61, {36}) + he6, 6135},
      {"6 GHz: the radio", 6115, Element(61, {36}), 6115},
      {"HE operation that ends too early", 5955, Element(255, heOperation), 5955},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const Reading reading = ReadBytes(Pcap(kRadiotap, {{Radiotap(0, c.radioMhz, -1) + Beacon(1, c.elements)}}));
    ASSERT_EQ(reading.contents.found.size(), 1u) << reading.error;
    EXPECT_EQ(reading.contents.found[0].frequencyMhz, c.frequencyMhz);
  }
}

TEST(CaptureFrames, LaterByTimeStampWinsAndByPlaceWithoutOne) {
  const auto at = [](uint32_t seconds, uint32_t microseconds, uint8_t mark) {
    return CapturedPacket{Beacon(1, Ssid("n") + Element(200, {mark})), seconds, microseconds};
  };
  const struct {
    const char* name;
    std::vector<CapturedPacket> packets;
    uint8_t mark;
  } cases[] = {
      {"out of order", {at(5, 1, 1), at(7, 0, 2), at(6, 9, 3)}, 2},
      {"at the same time", {at(5, 1, 1), at(5, 1, 2)}, 2},
      {"impossible time last", {at(9, 0, 1), at(5, 2'000'000, 2)}, 2},
      {"impossible time first", {at(9, 2'000'000, 1), at(5, 0, 2)}, 2},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const Reading reading = ReadBytes(Pcap(kBare, c.packets));
    ASSERT_EQ(reading.contents.found.size(), 1u) << reading.error;
    EXPECT_EQ(reading.contents.found[0].elements.back(), c.mark);
  }
}

TEST(CaptureFiles, MayMixLinkTypesSnapshotLengthsAndSections) {
  const Bytes prism = Le32(0x44) + Le32(24) + Bytes(16, 'w');
  const Bytes avs = Big(0x80211001, 4) + Big(64, 4) + Bytes(56, 0);
  const Bytes cut = Tapped(0, Beacon(3, Ssid("cut") + Bytes{221, 50}));
  Bytes file = SectionHeader() + Interface(kRadiotap) + EnhancedPacket({.bytes = Tapped(0, Beacon(2, Ssid("tap")))}) +
               Interface(kBare) + Interface(kRadiotap, 68) + Interface(kEthernet) +
               EnhancedPacket({.bytes = cut, .leftOut = 50, .interface = 2}) +
               EnhancedPacket({.bytes = Beacon(4, Ssid("bare")), .interface = 1});
  // The flags word of a packet: a wrong FCS, and an FCS of four octets at the end.
  file = file + EnhancedPacket({.bytes = Beacon(9, {}), .interface = 1, .flags = 1u << 24}) +
         EnhancedPacket({.bytes = Beacon(5, Ssid("fcs")) + kFcs, .interface = 1, .flags = 4u << 5});
  // A statistics block is no packet; a second section numbers its interfaces anew.
  file = file + Block(5, Bytes(12, 0)) + SectionHeader() + Interface(kPrism) +
         EnhancedPacket({.bytes = prism + Beacon(6, Ssid("prism"))}) +
         EnhancedPacket({.bytes = avs + Beacon(7, Ssid("avs"))});
  EXPECT_EQ(Summary(ReadBytes(file)), "2='tap' 3='cut' 4='bare' 5='fcs' 6='prism' 7='avs' 1/0/1 of 7");
}

TEST(CaptureFiles, CutShortAnywhereKeepWhatIsWhole) {
  const Bytes one = Pcap(kBare, {{kGood}});
  const Bytes two = Pcap(kBare, {{kGood}, {Beacon(2, Ssid("cut"))}});
  for (size_t length = one.size(); length < two.size(); ++length) {
    const char* expected = length == one.size() ? "1='good' 0/0/0 of 1" : "1='good' 0/1/0 of 1";
    EXPECT_EQ(Summary(ReadBytes(Bytes(two.begin(), two.begin() + static_cast<long>(length)))), expected) << length;
  }
  const Bytes head = SectionHeader() + Interface(kBare);
  const Bytes block = EnhancedPacket({.bytes = kGood});
  for (size_t length = 1; length < block.size(); ++length) {
    const Bytes cut(block.begin(), block.begin() + static_cast<long>(length));
    EXPECT_EQ(Summary(ReadBytes(head + block + cut)), "1='good' 0/1/0 of 1") << length;
  }
}

TEST(CaptureFiles, DamagedInTheMiddleKeepWhatCameBeforeAndSaySo) {
  const Bytes lyingRecord = Le32(1) + Le32(0) + Le32(0x7FFFFFFF) + Le32(0x7FFFFFFF);
  const Reading kept = ReadBytes(Pcap(kBare, {{kGood}}) + lyingRecord + Record({kGood}));
  EXPECT_EQ(Summary(kept), "1='good' 0/0/0 of 1");
  EXPECT_NE(kept.error.find("not read beyond packet 1: "), std::string::npos) << kept.error;
  EXPECT_FALSE(ReadBytes(PcapHeader(kBare) + lyingRecord).ok);
  EXPECT_FALSE(ReadBytes(SectionHeader() + EnhancedPacket({.bytes = kGood})).ok) << "a packet of no interface";
}

TEST(CaptureFiles, ThatCannotBeReadAreRefusedInOneLineWithTheReason) {
  const TemporaryDirectory directory;
  const std::string fifo = directory.Path() + "/fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const Bytes mixed = SectionHeader() + Interface(kBare) + EnhancedPacket({.bytes = kGood}) + Interface(kEthernet) +
                      EnhancedPacket({.bytes = Bytes(60, 1), .interface = 1});
  const Bytes png = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n', 0, 0, 0, 13, 'I', 'H', 'D', 'R'};
  const std::pair<std::string, const char*> cases[] = {
      {directory.Path() + "/none", "No such file"},
      {directory.Path(), "Is a directory"},
      {fifo, "not a regular file"},
      {directory.Write("empty", {}), "empty"},
      {directory.Write("text", Text("GET / HTTP/1.1\r\n\r\n")), "unknown file format"},
      {directory.Write("png", png), "unknown file format"},
      {directory.Write("header", Bytes{0xD4, 0xC3, 0xB2, 0xA1, 2, 0}), "header"},
      {directory.Write("ethernet", Pcap(kEthernet, {})), "\"Ethernet\""},
      {directory.Write("avs", Pcap(kAvs, {{kGood}})), "AVS"},
      {directory.Write("unknown", Pcap(999, {{kGood}})), "999"},
      {directory.Write("mixed", mixed), "\"Ethernet\""},
  };
  for (const auto& [path, reason] : cases) {
    SCOPED_TRACE(path);
    CaptureContents contents;
    contents.frames = 77;
    std::string error;
    EXPECT_FALSE(ReadCapture(path, contents, error));
    EXPECT_NE(error.find(reason), std::string::npos) << error;
    EXPECT_EQ(error.find('\n'), std::string::npos) << error;
    EXPECT_EQ(contents.frames, 77u) << "contents of a refused file";
  }
}

}  // namespace
}  // namespace vexo_host
