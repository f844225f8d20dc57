#include "host/vexo_client/capture_reader.h"

#include <algorithm>
#include <map>
#include <utility>

#include "host/vexo_client/capture/beacon_frame.h"
#include "host/vexo_client/capture/capture_file.h"
#include "host/vexo_client/capture/radio_header.h"

namespace vexo_host {
namespace {

constexpr size_t kFcsOctets = 4;

std::optional<RadioHeader> ReadRadioHeader(const Packet& packet) {
  switch (packet.linkType) {
    case LinkType::kRadiotap:
      return ReadRadiotap(packet.bytes);
    case LinkType::kPrism:
      return ReadPrism(packet.bytes);
    case LinkType::kIeee80211:
      return RadioHeader{};
  }
  return std::nullopt;
}

// Puts a file's packets together, one BSS for each pair of BSSID and SSID.
class Collector {
 public:
  void Add(const Packet& packet) {
    ++contents.frames;
    const std::optional<RadioHeader> radio = ReadRadioHeader(packet);
    if (packet.badFcs || (radio && radio->badFcs)) {
      ++contents.badFcs;
      return;
    }
    if (!radio) {
      ++contents.tooShort;
      return;
    }
    const size_t fcs = radio->fcsAtEnd ? kFcsOctets : packet.fcsOctets;
    std::span<const uint8_t> frame = packet.bytes.subspan(radio->length);
    frame = frame.first(frame.size() - std::min(frame.size(), fcs - std::min(fcs, packet.leftOut)));

    Bss bss;
    switch (ReadBeacon(frame, radio->frequencyMhz, bss)) {
      case FrameKind::kOther:
        return;
      case FrameKind::kTooShort:
        ++contents.tooShort;
        return;
      case FrameKind::kOverrunElements:
        ++contents.overrunElements;
        break;
      case FrameKind::kWhole:
        break;
    }
    bss.signalMbm = radio->signalMbm;
    Keep(std::move(bss), packet.time);
  }

  CaptureContents contents;

 private:
  void Keep(Bss bss, const std::optional<CaptureTime>& time) {
    const auto [entry, isNew] = kept.try_emplace({bss.bssid, bss.ssid}, contents.found.size(), time);
    if (isNew) {
      contents.found.push_back(std::move(bss));
      return;
    }
    auto& [index, keptTime] = entry->second;
    // Merged files are not always in order. A frame without a time counts where it stands.
    if (time && keptTime && *time < *keptTime) return;
    contents.found[index] = std::move(bss);
    keptTime = time;
  }

  using Pair = std::pair<uint64_t, std::optional<std::vector<uint8_t>>>;
  std::map<Pair, std::pair<size_t, std::optional<CaptureTime>>> kept;  // index in contents.found, time of that frame
};

}  // namespace

bool ReadCapture(const std::string& path, CaptureContents& contents, std::string& error) {
  const std::unique_ptr<CaptureFile> file = OpenCapture(path, error);
  if (file == nullptr) return false;
  Collector collector;
  Packet packet;
  std::string reason;
  for (;;) {
    switch (file->Read(packet, reason)) {
      case CaptureFile::Step::kPacket:
        collector.Add(packet);
        continue;
      case CaptureFile::Step::kRefused:
        error = reason;
        return false;
      case CaptureFile::Step::kDamaged:
        if (collector.contents.frames == 0) {
          error = reason;
          return false;
        }
        error = "not read beyond packet " + std::to_string(collector.contents.frames) + ": " + reason;
        break;
      case CaptureFile::Step::kCutShort:
        ++collector.contents.tooShort;
        break;
      case CaptureFile::Step::kEnd:
        break;
    }
    contents = std::move(collector.contents);
    return true;
  }
}

}  // namespace vexo_host
