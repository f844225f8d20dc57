#include "host/vexo_client/source_choice.h"

#include <gtest/gtest.h>

#include <future>
#include <string>
#include <tuple>

#include "host/vexo_client/test_support.h"

namespace vexo_host {
namespace {

using wifi::ScanStatus;
using wifi::SourceKind;

// What the source is that `choice` names, how it answers a scan, and how much it found.
std::tuple<SourceKind, ScanStatus, size_t> ScanWith(const std::string& choice) {
  Scheduler scheduler;
  EXPECT_TRUE(scheduler.Start());
  const std::unique_ptr<MeasurementSource> source = MakeSource(choice, scheduler);
  std::promise<std::tuple<SourceKind, ScanStatus, size_t>> answer;
  EXPECT_TRUE(source->StartScan(std::make_shared<DiscoveryQuery>(), [&](ScanStatus status, const BssList& found) {
    answer.set_value({source->Kind(), status, found == nullptr ? 0 : found->size()});
  }));
  auto future = answer.get_future();
  EXPECT_EQ(future.wait_for(kPatienceOfTests), std::future_status::ready);
  scheduler.Stop();
  return future.get();
}

TEST(SourceChoice, NamesAScene) {
  const struct {
    const char* choice;
    size_t accessPoints;
  } cases[] = {
      {"", 13},
      {"scene", 13},
      {"scene:aps=0", 0},
      {"scene:aps=40,delay=0,seed=18446744073709551615", 40},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.choice);
    TakeLog();
    EXPECT_EQ(ScanWith(c.choice), std::tuple(SourceKind::kScene, ScanStatus::kOk, c.accessPoints));
    for (const std::string& line : TakeLog()) EXPECT_TRUE(line.starts_with("I: ")) << line;
  }
}

TEST(SourceChoice, SaysWhatIsWrongAndAnswersAsUnavailable) {
  const struct {
    const char* choice;
    const char* complaint;
  } cases[] = {
      {"sceneX", "there is no such source"},
      {"nl80211:", "no interface is named"},
      {"capture:", "no file is named"},
      {"scene:aps=1,", "\"\" is not of the form KEY=VALUE"},
      {"scene:aps=20001", "aps must be a number from 0 to 20000, not \"20001\""},
      {"scene:aps=1 ", "aps must be a number from 0 to 20000, not \"1 \""},
      {"scene:seed=18446744073709551616", "seed must be a number from 0 to 18446744073709551615"},
      {"scene:delay=600001", "delay must be a number from 0 to 600000"},
      {"scene:aps=1,aps=2", "aps is given twice"},
      {"scene:APS=1", "there is no key \"APS\""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.choice);
    TakeLog();
    EXPECT_EQ(ScanWith(c.choice), std::tuple(SourceKind::kUnknown, ScanStatus::kUnavailable, size_t{0}));
    const std::vector<std::string> log = TakeLog();
    ASSERT_EQ(log.size(), 1u);
    EXPECT_TRUE(log[0].starts_with("E: VEXO_SOURCE=\"" + std::string(c.choice) + "\": " + c.complaint)) << log[0];
    EXPECT_NE(log[0].find("capture:FILE"), std::string::npos) << "names what is admitted";
  }
}

TEST(SourceChoice, LoadsWhatTheSourceNeedsAndSaysWhatItCannotRead) {
  const auto [kind, status, found] = ScanWith("nl80211:no-such-radio");
  EXPECT_EQ(kind, SourceKind::kRadio);
  // A kernel without nl80211 cannot tell more.
  EXPECT_TRUE(status == ScanStatus::kInterfaceGone || status == ScanStatus::kUnavailable);
  TakeLog();
  EXPECT_EQ(ScanWith("capture:/nonexistent/file.pcap"),
            std::tuple(SourceKind::kCapture, ScanStatus::kUnavailable, size_t{0}));
  const std::vector<std::string> log = TakeLog();
  ASSERT_EQ(log.size(), 2u);
  EXPECT_TRUE(log[1].starts_with("E: cannot read the capture /nonexistent/file.pcap: ")) << log[1];
}

}  // namespace
}  // namespace vexo_host
