// Capture files into basic service sets. This is the interface of libvexo_capture.so, which the location client
// library loads when its source is a capture, so that nobody else pays for the library that reads the files.
#ifndef KESD_HOST_VEXO_CLIENT_CAPTURE_READER_H_
#define KESD_HOST_VEXO_CLIENT_CAPTURE_READER_H_

#include <cstdint>
#include <string>
#include <vector>

#include "host/vexo_client/bss.h"

namespace vexo_host {

// What a capture file holds, and what of it was left out.
struct CaptureContents {
  // One for each distinct pair of BSSID and SSID octets, from its latest beacon or probe response, in the order
  // in which the pairs first appear. `takenAt` is left for the caller to set.
  std::vector<Bss> found;

  uint64_t frames = 0;           // whole packets in the file
  uint64_t badFcs = 0;           // dropped: the capture flags a wrong frame check sequence
  uint64_t tooShort = 0;         // dropped: ends before its fixed fields do, or is cut short by the file's end
  uint64_t overrunElements = 0;  // kept, but its element list was ended by an element that overruns the frame
};

// Reads the pcap or pcapng file at `path`. False when it cannot be opened, is no capture, or has a link type other
// than radiotap, Prism or bare 802.11; then `error` says so in one line, naming the link type, and `contents` is
// unchanged. A damaged frame, or a file that ends in the middle of one, is not an error. Where the file itself is
// damaged behind its first packet, `contents` holds what came before, and `error` says so although the result is true;
// `error` is empty when the whole file was read. Not thread-safe: one call at a time in a process. Throws
// std::bad_alloc.
bool ReadCapture(const std::string& path, CaptureContents& contents, std::string& error);

// ReadCapture under the name by which the module's user looks it up. Throws nothing: out of memory is an error too.
extern "C" bool vexo_read_capture(const char* path, CaptureContents* contents, std::string* error);

}  // namespace vexo_host

#endif  // KESD_HOST_VEXO_CLIENT_CAPTURE_READER_H_
