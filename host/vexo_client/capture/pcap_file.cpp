// pcap files, by libpcap.
#include <pcap/pcap.h>

#include <cerrno>
#include <cstdio>
#include <system_error>
#include <utility>

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

struct Close {
  void operator()(pcap_t* file) const { pcap_close(file); }
};
using PcapPointer = std::unique_ptr<pcap_t, Close>;

class PcapFile : public CaptureFile {
 public:
  PcapFile(PcapPointer openFile, LinkType itsLinkType) : file(std::move(openFile)), linkType(itsLinkType) {}

  Step Read(Packet& packet, std::string& error) override {
    pcap_pkthdr* header = nullptr;
    const u_char* bytes = nullptr;
    const int result = pcap_next_ex(file.get(), &header, &bytes);
    if (result == PCAP_ERROR_BREAK) return Step::kEnd;
    if (result != 1) {
      std::FILE* stream = pcap_file(file.get());
      if (std::feof(stream) != 0 && std::ferror(stream) == 0) return Step::kCutShort;
      error = pcap_geterr(file.get());
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

  const PcapPointer file;
  const LinkType linkType;
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
  PcapPointer file(pcap_fopen_offline(stream, reason));
  if (file == nullptr) {
    std::fclose(stream);
    error = std::string("neither a pcapng nor a readable pcap file: ") + reason;
    return nullptr;
  }
  const int dlt = pcap_datalink(file.get());
  const std::optional<LinkType> linkType = LinkTypeOf(dlt);
  if (!linkType) {
    error = RefusalOf(pcap_datalink_val_to_description_or_dlt(dlt));
    return nullptr;
  }
  return std::make_unique<PcapFile>(std::move(file), *linkType);
}

}  // namespace vexo_host
