// pcap files, by libpcap.
#include <pcap/pcap.h>

#include <cerrno>
#include <cstdio>
#include <system_error>

#include "host/vexo_client/capture/capture_file.h"

namespace vexo_host {
namespace {

std::optional<LinkType> LinkTypeOf(int dlt) {
  switch (dlt) {
    case DLT_IEEE802_11_RADIO:
      return LinkType::kRadiotap;
    case DLT_PRISM_HEADER:
      return LinkType::kPrism;
    case DLT_IEEE802_11:
      return LinkType::kIeee80211;
    default:
      return std::nullopt;
  }
}

class PcapFile : public CaptureFile {
 public:
  // Owns `openFile`.
  PcapFile(pcap_t* openFile, LinkType itsLinkType) : file(openFile), linkType(itsLinkType) {}
  ~PcapFile() override { pcap_close(file); }
  PcapFile(const PcapFile&) = delete;
  PcapFile& operator=(const PcapFile&) = delete;

  Step Read(Packet& packet, std::string& error) override {
    pcap_pkthdr* header = nullptr;
    const u_char* bytes = nullptr;
    const int result = pcap_next_ex(file, &header, &bytes);
    if (result == PCAP_ERROR_BREAK) return Step::kEnd;
    if (result != 1) {
      std::FILE* stream = pcap_file(file);
      if (std::feof(stream) != 0 && std::ferror(stream) == 0) return Step::kCutShort;
      error = pcap_geterr(file);
      return Step::kDamaged;
    }
    packet = Packet{.linkType = linkType,
                    .bytes = {bytes, header->caplen},
                    .leftOut = header->len > header->caplen ? header->len - header->caplen : 0,
                    .time = TimeOf(header->ts),
                    .badFcs = false,
                    .fcsOctets = 0};
    return Step::kPacket;
  }

 private:
  static std::optional<CaptureTime> TimeOf(const timeval& time) {
    if (time.tv_usec < 0 || time.tv_usec >= 1'000'000) return std::nullopt;
    return CaptureTime{time.tv_sec, static_cast<int32_t>(time.tv_usec * 1000)};
  }

  pcap_t* file;
  LinkType linkType;
};

}  // namespace

std::unique_ptr<CaptureFile> OpenPcap(const std::string& path, std::string& error) {
  std::FILE* stream = std::fopen(path.c_str(), "rbe");
  if (stream == nullptr) {
    error = std::system_category().message(errno);
    return nullptr;
  }
  // Microseconds also of a file of nanoseconds: the other way round, libpcap's product overflows on nonsense.
  char reason[PCAP_ERRBUF_SIZE] = "";
  pcap_t* file = pcap_fopen_offline(stream, reason);
  if (file == nullptr) {
    std::fclose(stream);
    error = std::string("neither a pcapng nor a readable pcap file: ") + reason;
    return nullptr;
  }
  const int dlt = pcap_datalink(file);
  const std::optional<LinkType> linkType = LinkTypeOf(dlt);
  if (!linkType) {
    error = RefusalOf(pcap_datalink_val_to_description_or_dlt(dlt));
    pcap_close(file);
    return nullptr;
  }
  return std::make_unique<PcapFile>(file, *linkType);
}

}  // namespace vexo_host
