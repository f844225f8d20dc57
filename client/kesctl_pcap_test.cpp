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
  const auto expectWritten = [&](const TestResult& result, const std::string& path, std::size_t size, unsigned mode) {
    StandInDaemon daemon(Answer::kResult, result);
    EXPECT_EQ(scanTo(path, daemon.SocketPath()).exitCode, 0);
    EXPECT_EQ(std::filesystem::file_size(path), size);
    EXPECT_EQ(std::filesystem::status(path).permissions(), std::filesystem::perms{mode});
  };
  const mode_t mask = umask(027);
  for (const auto& [result, size] : cases) expectWritten(result, directory.path / "new.pcap", size, 0640);
  umask(mask);

  // It takes an old one's place, wherever that is, and lets nobody read it who could not; unless it heard nothing.
  std::filesystem::permissions(file, std::filesystem::perms{0604});
  const std::filesystem::path link = directory.path / "link.pcap", loose = directory.path / "loose.pcap";
  create_symlink(file, link);
  create_symlink(directory.path / "nothing", loose);
  expectWritten(cases[0].result, link, cases[0].size, 0604);
  EXPECT_TRUE(is_symlink(link));
  EXPECT_EQ(std::filesystem::file_size(file), cases[0].size);
  TestResult failed;
  failed.header.scanStatus = 4;
  StandInDaemon daemon(Answer::kResult, failed);
  EXPECT_TRUE(Has(scanTo(file, daemon.SocketPath()).err, "is not written: there is nothing to keep"));
  EXPECT_EQ(std::filesystem::file_size(file), cases[0].size);
  EXPECT_TRUE(Has(scanTo(loose, daemon.SocketPath()).err, "a link to nothing is there"));
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory.path), {}), 4);
}

}  // namespace
}  // namespace kes
