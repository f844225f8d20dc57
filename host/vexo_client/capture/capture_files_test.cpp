// Captures from the air, each with a list of what is in it, where a machine has them: in the folder that KESD_CAPTURES
// names, else beside the source tree.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>

#include "host/vexo_client/capture_reader.h"

namespace vexo_host {
namespace {

using Row = std::pair<std::string, std::string>;  // BSSID, and the SSID's octets in hex or what is in their place

std::set<Row> ReadList(const std::filesystem::path& path) {
  std::set<Row> rows;
  std::ifstream stream(path);
  std::string line;
  std::getline(stream, line);  // column names
  while (std::getline(stream, line)) {
    const size_t bssidEnd = line.find('\t');
    const size_t ssidEnd = line.find('\t', bssidEnd + 1);
    rows.emplace(line.substr(0, bssidEnd), line.substr(bssidEnd + 1, ssidEnd - bssidEnd - 1));
  }
  return rows;
}

std::string Hex(uint64_t value, int octets, const char* separator) {
  std::string text;
  for (int i = octets - 1; i >= 0; --i) {
    char digits[3];
    std::snprintf(digits, sizeof digits, "%02x", static_cast<unsigned>(value >> 8 * i & 0xFF));
    text += digits;
    if (i > 0) text += separator;
  }
  return text;
}

std::string SsidWord(const Bss& bss) {
  if (!bss.ssid) return "absent";
  if (bss.ssid->empty()) return "empty";
  std::string text;
  for (const uint8_t octet : *bss.ssid) text += Hex(octet, 1, "");
  return text;
}

TEST(CapturesFromTheAir, HoldTheirListedAccessPointsAndNoOthers) {
  const char* named = std::getenv("KESD_CAPTURES");
  const std::filesystem::path folder = named != nullptr ? named : KESD_SOURCE_DIR "/../shared/captures";
  if (!std::filesystem::is_directory(folder)) {
    GTEST_SKIP() << "no captures in " << folder << "; KESD_CAPTURES names another folder";
  }
  size_t files = 0;
  for (const std::filesystem::directory_entry& entry : std::filesystem::directory_iterator(folder)) {
    if (entry.path().extension() != ".tsv") continue;
    ++files;
    const std::string capture = std::filesystem::path(entry.path()).replace_extension();
    SCOPED_TRACE(capture);
    CaptureContents contents;
    std::string error;
    EXPECT_TRUE(ReadCapture(capture, contents, error));
    EXPECT_EQ(error, "");
    EXPECT_EQ(contents.badFcs, 0u) << "the lists count frames of a wrong FCS as well";
    std::set<Row> found;
    for (const Bss& bss : contents.found) found.emplace(Hex(bss.bssid, 6, ":"), SsidWord(bss));
    EXPECT_EQ(found, ReadList(entry.path()));
    EXPECT_EQ(found.size(), contents.found.size()) << "a pair was reported twice";
  }
  EXPECT_GT(files, 0u);
}

}  // namespace
}  // namespace vexo_host
