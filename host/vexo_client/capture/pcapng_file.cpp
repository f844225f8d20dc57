// pcapng files, by wiretap.
#include <wiretap/wtap.h>
#include <wsutil/wslog.h>

#include <system_error>

#include "host/vexo_client/capture/capture_file.h"

namespace vexo_host {
namespace {

std::optional<LinkType> LinkTypeOf(int encapsulation) {
  switch (encapsulation) {
    case WTAP_ENCAP_IEEE_802_11_RADIOTAP:
      return LinkType::kRadiotap;
    case WTAP_ENCAP_IEEE_802_11_PRISM:
      return LinkType::kPrism;
    case WTAP_ENCAP_IEEE_802_11:
      return LinkType::kIeee80211;
    default:
      return std::nullopt;
  }
}

std::string NameOf(int encapsulation) {
  const char* name = wtap_encap_description(encapsulation);
  return name != nullptr ? name : "unknown";
}

void Initialize() {
  // Not once per copy of this code but once per copy of wiretap, which ends the process when it is done again.
  if (open_routines != nullptr) return;
  ws_log_set_level(LOG_LEVEL_CRITICAL);  // never set, it writes every debug message to the standard error
  wtap_init(FALSE);                      // FALSE: no plug-ins
}

struct Free {
  void operator()(char* text) const { g_free(text); }
};

// What wiretap says about a failure. Takes `moreOfIt`, which may be null.
std::string Explain(int code, char* moreOfIt) {
  const std::unique_ptr<char, Free> details(moreOfIt);
  std::string text = code > 0 ? std::system_category().message(code) : wtap_strerror(code);
  if (code == WTAP_ERR_SHORT_READ) text = "the file ends inside its first blocks";
  if (details != nullptr) text = details.get();
  return text;
}

class PcapngFile : public CaptureFile {
 public:
  PcapngFile() {
    wtap_rec_init(&record);
    ws_buffer_init(&buffer, 2048);
  }
  ~PcapngFile() override {
    if (file != nullptr) wtap_close(file);
    ws_buffer_free(&buffer);
    wtap_rec_cleanup(&record);
  }
  PcapngFile(const PcapngFile&) = delete;
  PcapngFile& operator=(const PcapngFile&) = delete;

  bool Open(const std::string& path, std::string& error) {
    // The one reader that sees the file: wiretap has others for dozens of formats.
    const unsigned reader = open_info_name_to_type("Wireshark/... - pcapng");
    int code = 0;
    char* details = nullptr;
    if (reader == WTAP_TYPE_AUTO) {
      error = "this wiretap does not read pcapng";
      return false;
    }
    file = wtap_open_offline(path.c_str(), reader, &code, &details, FALSE);
    if (file == nullptr) {
      error = Explain(code, details);
      return false;
    }
    const int encapsulation = wtap_file_encap(file);
    // Negative or unknown: several link types, or none yet.
    if (encapsulation > WTAP_ENCAP_UNKNOWN && !LinkTypeOf(encapsulation)) {
      error = RefusalOf(NameOf(encapsulation));
      return false;
    }
    return true;
  }

  Step Read(Packet& packet, std::string& error) override {
    do {
      int code = 0;
      char* details = nullptr;
      gint64 offset = 0;
      wtap_rec_reset(&record);
      if (!wtap_read(file, &record, &buffer, &code, &details, &offset)) {
        if (code == 0) return Step::kEnd;
        const std::string reason = Explain(code, details);
        if (code == WTAP_ERR_SHORT_READ) return Step::kCutShort;
        error = reason;
        return Step::kDamaged;
      }
    } while (record.rec_type != REC_TYPE_PACKET);

    const wtap_packet_header& header = record.rec_header.packet_header;
    const std::optional<LinkType> linkType = LinkTypeOf(header.pkt_encap);
    if (!linkType) {
      error = RefusalOf(NameOf(header.pkt_encap));
      return Step::kRefused;
    }
    const uint32_t flags = Flags();
    packet = Packet{.linkType = *linkType,
                    .bytes = {ws_buffer_start_ptr(&buffer), header.caplen},
                    .leftOut = header.len > header.caplen ? header.len - header.caplen : 0,
                    .time = Time(),
                    .badFcs = (flags & PACK_FLAGS_CRC_ERROR) != 0,
                    .fcsOctets = PACK_FLAGS_FCS_LENGTH(flags)};
    return Step::kPacket;
  }

 private:
  // The flags word of the packet's block; 0 without one.
  uint32_t Flags() const {
    guint32 flags = 0;
    const bool given = record.block != nullptr &&
                       wtap_block_get_uint32_option_value(record.block, OPT_PKT_FLAGS, &flags) == WTAP_OPTTYPE_SUCCESS;
    return given ? flags : 0;
  }

  std::optional<CaptureTime> Time() const {
    if ((record.presence_flags & WTAP_HAS_TS) == 0) return std::nullopt;
    if (record.ts.nsecs < 0 || record.ts.nsecs >= 1'000'000'000) return std::nullopt;
    return CaptureTime{record.ts.secs, record.ts.nsecs};
  }

  wtap* file = nullptr;
  wtap_rec record;
  Buffer buffer;
};

}  // namespace

std::unique_ptr<CaptureFile> OpenPcapng(const std::string& path, std::string& error) {
  Initialize();
  auto file = std::make_unique<PcapngFile>();
  // "-" alone is the standard input to wiretap.
  if (!file->Open(path == "-" ? "./-" : path, error)) return nullptr;
  return file;
}

}  // namespace vexo_host
