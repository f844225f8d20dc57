// A pcap or pcapng file, read packet by packet.
#ifndef KESD_HOST_VEXO_CLIENT_CAPTURE_CAPTURE_FILE_H_
#define KESD_HOST_VEXO_CLIENT_CAPTURE_CAPTURE_FILE_H_

#include <compare>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

namespace vexo_host {

enum class LinkType { kRadiotap, kPrism, kIeee80211 };

struct CaptureTime {
  int64_t seconds;
  int32_t nanoseconds;  // 0 to 999,999,999
  auto operator<=>(const CaptureTime&) const = default;
};

struct Packet {
  LinkType linkType;
  std::span<const uint8_t> bytes;   // as captured; valid until the next packet is read
  size_t leftOut;                   // octets at its end that the interface's snapshot length cut off
  std::optional<CaptureTime> time;  // nothing when the file has none, or an impossible one
  bool badFcs;                      // flagged in the file's own packet record; radio headers have a flag as well
  size_t fcsOctets;                 // at the end of the packet as it was on the air; 0 if the record does not say
};

// One open file at a time in a process: the libraries underneath keep state of their own.
class CaptureFile {
 public:
  virtual ~CaptureFile() = default;

  enum class Step {
    kPacket,
    kEnd,
    kCutShort,  // the file ends inside a packet's record
    kDamaged,   // the file goes on, but where its next packet is cannot be told; `error` says why
    kRefused,   // the next packet has a link type that LinkType does not name; `error` names it
  };
  // Every step but kPacket is the last.
  virtual Step Read(Packet& packet, std::string& error) = 0;
};

// Null, with one line in `error`, when `path` is not a readable regular file, is neither pcap nor pcapng, or has a
// link type that LinkType does not name. Otherwise `error` is empty.
std::unique_ptr<CaptureFile> OpenCapture(const std::string& path, std::string& error);

// The formats one by one, for OpenCapture.
std::unique_ptr<CaptureFile> OpenPcap(const std::string& path, std::string& error);
std::unique_ptr<CaptureFile> OpenPcapng(const std::string& path, std::string& error);

// What to say of a link type that LinkType does not name.
std::string RefusalOf(const std::string& linkTypeName);

}  // namespace vexo_host

#endif  // KESD_HOST_VEXO_CLIENT_CAPTURE_CAPTURE_FILE_H_
