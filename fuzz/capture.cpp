// Capture files: any octets as a file, and files of packets that begin as they should.
#include <sys/mman.h>
#include <unistd.h>

#include <set>

#include "fuzz/input.h"
#include "host/vexo_client/capture/capture_writer.h"
#include "host/vexo_client/capture_reader.h"
#include "host/wifi/information_elements.h"

// wiretap 4.0.17, Debian's, itself loses about 2 KiB in a reading of some damaged pcapng files: what is allocated from
// inside it does not count. Telling by whom it was allocated takes whole stacks, through code without frame pointers.
extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() { return "leak:libwiretap.so\n"; }
extern "C" const char* __asan_default_options();
extern "C" const char* __asan_default_options() { return "fast_unwind_on_malloc=0:malloc_context_size=8"; }

namespace {

using fuzz::Input;
using fuzz::Require;
using namespace vexo_host::test;

Bytes TakePacket(Input& input, uint16_t linkType) {
  const bool whole = input.Below(4) != 0;
  Bytes rest = input.Bytes(input.Take<uint16_t>() % 300);
  if (!whole) return rest;
  Bytes frame = Beacon(static_cast<uint8_t>(input.Below(3)), rest);
  if (linkType != kRadiotap) return frame;
  const uint8_t flags = input.Take<uint8_t>();
  return Radiotap(flags, input.Take<uint16_t>(), -50) + frame;
}

Bytes TakeFile(Input& input) {
  const unsigned kind = input.Below(4);
  if (kind < 2) return input.Rest();
  constexpr uint16_t kLinkTypes[] = {kRadiotap, kBare, kPrism, kAvs, kEthernet};
  const uint16_t linkTypes[] = {kLinkTypes[input.Below(5)], kLinkTypes[input.Below(5)]};
  Bytes file =
      kind == 2 ? PcapHeader(linkTypes[0]) : SectionHeader() + Interface(linkTypes[0]) + Interface(linkTypes[1], 200);
  for (unsigned n = 0; n < 16 && !input.AtEnd(); ++n) {
    const unsigned interface = kind == 3 ? input.Below(2) : 0;
    CapturedPacket packet{.bytes = TakePacket(input, linkTypes[interface]),
                          .seconds = input.Take<uint8_t>(),
                          .leftOut = input.Below(8),
                          .interface = static_cast<uint16_t>(interface)};
    if (kind == 3 && input.Below(2) != 0) packet.flags = input.Take<uint32_t>();
    file = file + (kind == 2 ? Record(packet) : EnhancedPacket(packet));
  }
  return file;
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  static const int file = memfd_create("capture", MFD_CLOEXEC);
  static const std::string path = "/proc/self/fd/" + std::to_string(file);
  Input input(data, size);
  const Bytes bytes = TakeFile(input);
  const bool written =
      ftruncate(file, 0) == 0 && pwrite(file, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size());
  Require(written, "the file is written");

  vexo_host::CaptureContents contents;
  contents.frames = ~uint64_t{0};
  std::string error;
  if (!vexo_host::ReadCapture(path, contents, error)) {
    Require(!error.empty() && contents.frames == ~uint64_t{0}, "a reason, and nothing else");
    return 0;
  }
  Require(contents.badFcs + contents.tooShort <= contents.frames + 1, "what was left out was there");  // 1: the last
  Require(contents.found.size() <= contents.frames, "found in a frame");
  std::set<std::pair<uint64_t, std::optional<Bytes>>> pairs;
  for (const vexo_host::Bss& bss : contents.found) {
    Require(bss.bssid >> 48 == 0 && (!bss.ssid || bss.ssid->size() <= 32), "names that can be");
    Require(pairs.emplace(bss.bssid, bss.ssid).second, "each pair of BSSID and SSID once");
    wifi::ElementReader reader(bss.elements);
    while (reader.Next()) {
    }
    Require(reader.Rest().empty(), "whole elements");
  }
  return 0;
}
