#include "client/client.h"

#include <gtest/gtest.h>

#include <fstream>

#include "client/result_receiver.h"
#include "client/stand_in_daemon.h"
#include "ipc/services.h"
#include "tests/process.h"

namespace kes {
namespace {

const MacAddress kBssid{0x02, 0x00, 0x5E, 0x10, 0x00, 0x01};

TestResult OneAccessPoint() {
  TestResult result;
  result.Add(kBssid, "Cafe", 2437, -4550, {0, 4, 'C', 'a', 'f', 'e'});
  return result;
}

TEST(Client, TellsWhyThereIsNoConnection) {
  const testing_process::TemporaryDirectory temporary;
  const std::string directory = temporary.path;
  const fenk::UniqueFd silent = fenk::test::BindTo(directory + "/silent");
  const fenk::UniqueFd datagrams = fenk::test::BindTo(directory + "/datagrams", SOCK_DGRAM);
  std::ofstream(directory + "/file") << "text";
  const std::pair<std::string, ErrorKind> cases[] = {
      {directory + "/nothing", ErrorKind::kNoSocket},       {directory + "/file/below", ErrorKind::kNoSocket},
      {directory + "/file", ErrorKind::kNotASocket},        {directory, ErrorKind::kNotASocket},
      {directory + "/silent", ErrorKind::kRefused},         {directory + "/datagrams", ErrorKind::kProtocol},
      {std::string(108, 'p'), ErrorKind::kInvalidArgument}, {"", ErrorKind::kInvalidArgument},
  };
  for (const auto& [path, kind] : cases) {
    const Result<Client> client = Client::Connect(path);
    ASSERT_FALSE(client) << path;
    EXPECT_EQ(client.GetError().kind, kind) << path;
  }
}

TEST(Client, SendsTheFourBuffersOfARequest) {
  StandInDaemon daemon(Answer::kResult, OneAccessPoint());
  Result<Client> client = Client::Connect(daemon.SocketPath());
  ASSERT_TRUE(client);
  DiscoveryRequest request;  // beside what kesctl's options ask for
  request.mode = wifi::RequestMode::kCacheFallback;
  request.band = wifi::Band::k5GHz;
  request.ssids = {{'C', 'a', 'f', 'e'}, std::vector<uint8_t>(32, 0xFF)};
  request.maxAgeMs = 0x01020304;
  request.fallbackBelow = 3;
  request.timeoutMs = 0x0102030405;
  Result<DiscoveryScan> scan = client->StartDiscovery(request);
  ASSERT_TRUE(scan);
  ASSERT_TRUE(daemon.AwaitRequest());

  using Bytes = std::vector<uint8_t>;
  const std::vector<Bytes> sent = daemon.RequestBuffers();
  EXPECT_EQ(sent[0], Bytes({5, 4, 3, 2, 1, 0, 0, 0, 0, 0, 0, 0, 3, 0, 0, 0, 4, 3, 2, 1, 3, 0, 0, 0, 1, 0, 0, 0, 0, 0}));
  Bytes ssids(72, 0);
  std::memcpy(ssids.data(), "\0\0\4\0Cafe", 8);
  ssids[38] = 32;
  std::fill(ssids.begin() + 40, ssids.end(), uint8_t{0xFF});
  EXPECT_EQ(sent[2], ssids);

  request.ssids = {std::vector<uint8_t>(33)};
  const Result<DiscoveryScan> refused = client->StartDiscovery(request);
  ASSERT_FALSE(refused);
  EXPECT_EQ(refused.GetError().kind, ErrorKind::kInvalidArgument);
}

TEST(Client, GivesTheHandleBackWhenItAbortsAndWhenTheScanEnds) {
  for (const bool abort : {true, false}) {
    StandInDaemon daemon(Answer::kNothing);
    Result<Client> client = Client::Connect(daemon.SocketPath());
    ASSERT_TRUE(client);
    {
      Result<DiscoveryScan> scan = client->StartDiscovery({});
      ASSERT_TRUE(scan);
      if (abort) {
        scan->Abort();
        ASSERT_TRUE(daemon.AwaitHandleReleased());
      }
    }
    EXPECT_TRUE(daemon.AwaitHandleReleased());  // while the client is still connected
  }
}

TEST(Client, SendsTheNodesOfARangingRequestAsRecords) {
  // In the order of the parameters, and of the record's members.
  const wifi::RangingParameters parameters{5180,
                                           5210,
                                           7,
                                           wifi::RangingBandwidth::k80MHz,
                                           2,
                                           wifi::RangingPreamble::kHe,
                                           wifi::RangingProtocol::kNonTriggerBased,
                                           -2,
                                           8,
                                           9};
  RangingRequest request{.nodes = {{kBssid, MacAddress{0x02, 0x00, 0x5E, 0x10, 0x00, 0x0A}, parameters},
                                   {.mac = {0xFF, 0xFE, 0xFD, 0xFC, 0xFB, 0xFA}}},
                         .timeoutMs = 0x0102030405};
  const RangingNodeRecord first{0x100001, 0x02005E, 5180, 5210, 7, 3, 0x10000A, 0x02005E, 2, 4, 3, -2, 8, 9, {}};
  const RangingNodeRecord second{0xFCFBFA, 0xFFFEFD, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, {}};
  const std::vector<PeriodicRangingNodeRecord> periodic{{first, 250, 1000, 0, {}}, {second, 250, 1000, 0, {}}};

  StandInDaemon daemon(Answer::kNothing);
  Result<Client> client = Client::Connect(daemon.SocketPath());
  ASSERT_TRUE(client);
  ASSERT_TRUE(client->StartRanging(request));
  request.periodic = PeriodicRanging{.intervalMs = 250, .rounds = 1000};
  ASSERT_TRUE(client->StartRanging(request));
  ASSERT_TRUE(daemon.AwaitRequest(2));
  const std::vector<StandInDaemon::Request> sent = daemon.Requests();
  const Images expected[] = {{ImageOf(std::vector{first, second}), {5, 4, 3, 2, 1, 0, 0, 0}},
                             {ImageOf(periodic), {5, 4, 3, 2, 1, 0, 0, 0}}};
  for (uint32_t operation = 0; operation < 2; ++operation) {
    EXPECT_EQ(sent[operation].service, SERVICE_ID_RANGING_SCAN);
    EXPECT_EQ(sent[operation].operation, operation);
    EXPECT_EQ(sent[operation].buffers, expected[operation]);
  }

  request.nodes.resize(kMaxRangingNodes);  // the most that there may be do arrive
  EXPECT_TRUE(client->StartRanging(request));
  request.nodes.emplace_back();
  const Result<RangingScan> refused = client->StartRanging(request);
  ASSERT_FALSE(refused);
  EXPECT_EQ(refused.GetError().kind, ErrorKind::kInvalidArgument);
}

TEST(ResultReceiver, TakesOneResultOfItsKindAndRefusesEverythingElse) {
  for (const uint32_t counts : {kDeliverDiscoveryResultCounts, kDeliverRangingResultCounts}) {
    std::vector<std::vector<uint8_t>> sent = {{1}, {2, 3}, {}, {4}, {5, 6, 7}};
    const std::vector<std::vector<uint8_t>> kept(sent.begin(), sent.begin() + counts);
    const ObjectRef receiver = ResultReceiver::Create(counts);
    ASSERT_TRUE(receiver);
    ObjectArg args[6] = {};
    for (std::size_t i = 0; i < sent.size(); ++i) args[i].buffer = {sent[i].data(), sent[i].size()};
    const auto invoke = [&](uint32_t op, uint32_t sentCounts) {
      return receiver.Get().invoke(receiver.Get().context, op, args, sentCounts);
    };
    for (const uint32_t others :
         {0u, counts - 1, counts + 1, counts | 0x10, counts | 0x100, counts | 0x1000, counts | 0x10000, counts ^ 1}) {
      EXPECT_EQ(invoke(kDeliverResult, others), OBJECT_ERROR_INVALID);
    }
    EXPECT_EQ(invoke(1, counts), OBJECT_ERROR_INVALID);
    EXPECT_FALSE(ResultReceiver::Of(receiver).IsDelivered());
    EXPECT_EQ(invoke(0x10000 | kDeliverResult, counts), OBJECT_OK);
    EXPECT_EQ(invoke(kDeliverResult, counts), OBJECT_ERROR_INVALID);
    sent = {};  // the buffers were valid during the invocation only
    const Result<const ResultReceiver::Buffers*> buffers = ResultReceiver::Of(receiver).Delivered();
    ASSERT_TRUE(buffers);
    for (std::size_t i = 0; i < kept.size(); ++i) EXPECT_EQ((**buffers)[i], kept[i]);
  }
}

}  // namespace
}  // namespace kes
