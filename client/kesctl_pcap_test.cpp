#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "client/kesctl_process.h"
#include "client/stand_in_daemon.h"

namespace kes {
namespace {

using testing_process::Outcome;

TEST(KesctlScan, WritesACaptureWholeOrNotAtAll) {
  const testing_process::TemporaryDirectory directory;
  const auto scanTo = [](const std::string& path, const std::string& socket) {
    return RunKesctl({"--socket", socket, "scan", "--pcap", path});
  };
  const std::string file = directory.path / "scan.pcap";
  std::ofstream(file) << "before";
  // Nobody scans for a capture that cannot be written; without a scan everything stays as it was.
  for (const std::string path :
       {directory.path / "none" / "scan.pcap", directory.path, std::filesystem::path("/dev/null")}) {
    const Outcome outcome = scanTo(path, "/nonexistent/socket");
    EXPECT_EQ(outcome.exitCode, 1) << path;
    EXPECT_TRUE(Has(outcome.err, "cannot write the capture " + path + ": ")) << outcome.err;
  }
  EXPECT_EQ(scanTo(file, "/nonexistent/socket").exitCode, 3);
  EXPECT_EQ(std::filesystem::file_size(file), 6u);

  // A measurement that is longer than a packet may be is cut; no measurement is a capture, too.
  TestResult endless;
  endless.Add({0x02, 0, 0x5E, 0x10, 0, 1}, "whole", 2412, -8849, {0, 5, 'w', 'h', 'o', 'l', 'e'});
  endless.Add({0x02, 0, 0x5E, 0x10, 0, 2}, "", 5955, wifi::kSignalUnknown, {0, 0});
  std::vector<uint8_t> elements;
  for (int i = 0; i < 1100; ++i) elements.insert(elements.end(), {221, 253}), elements.resize(elements.size() + 253);
  endless.Add({0x02, 0, 0x5E, 0x10, 0, 5}, "", 5180, -4000, elements);
  const struct {
    TestResult result;
    std::size_t size;
  } cases[] = {{endless, 24 + 2 * (16 + 36) + 13 + 7 + 12 + 2 + 16 + 262'144}, {TestResult{}, 24}};
  const mode_t mask = umask(027);
  for (const auto& [result, size] : cases) {
    StandInDaemon daemon(Answer::kResult, result);
    EXPECT_EQ(scanTo(file, daemon.SocketPath()).exitCode, 0);
    EXPECT_EQ(std::filesystem::file_size(file), size);
    EXPECT_EQ(std::filesystem::status(file).permissions(), std::filesystem::perms{0640});
  }
  umask(mask);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory.path), {}), 1);
}

}  // namespace
}  // namespace kes
