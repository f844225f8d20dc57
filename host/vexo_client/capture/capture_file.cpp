#include "host/vexo_client/capture/capture_file.h"

#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <fstream>
#include <system_error>

namespace vexo_host {
namespace {

std::string Message(int code) { return std::system_category().message(code); }

// Opening a FIFO would wait for its writer.
std::string WhyNotRegularFile(const std::string& path) {
  struct stat status;
  if (stat(path.c_str(), &status) != 0) return Message(errno);
  if (S_ISDIR(status.st_mode)) return Message(EISDIR);
  if (!S_ISREG(status.st_mode)) return "not a regular file";
  if (status.st_size == 0) return "the file is empty";
  return {};
}

bool IsPcapng(const std::string& path) {
  // The type of its first block, the same in both byte orders.
  constexpr std::array<char, 4> kSectionHeader = {0x0A, 0x0D, 0x0D, 0x0A};
  std::array<char, 4> octets{};
  std::ifstream stream(path, std::ios::binary);
  return stream.read(octets.data(), octets.size()) && octets == kSectionHeader;
}

}  // namespace

std::unique_ptr<CaptureFile> OpenCapture(const std::string& path, std::string& error) {
  error = WhyNotRegularFile(path);
  if (!error.empty()) return nullptr;
  return IsPcapng(path) ? OpenPcapng(path, error) : OpenPcap(path, error);
}

std::string RefusalOf(const std::string& linkTypeName) {
  return "link type \"" + linkTypeName + "\" is not supported (radiotap, Prism and bare 802.11 are)";
}

}  // namespace vexo_host
