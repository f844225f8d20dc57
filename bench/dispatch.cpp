// What the daemon itself does for a request: its own code from the invocation to the release of the handle, on one
// thread, between a location client library that does next to nothing and a client in the same process.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "bench/marshal.h"
#include "dispatcher/vexo_dispatcher.h"
#include "ipc/services.h"
#include "marshal/records.h"
#include "platform/log.h"
#include "platform/vexo_client.h"
#include "platform/vexo_request.h"
#include "platform/vexo_response.h"
#include "service/root_object.h"
#include "tests/failing_memory.h"

namespace {

zv_loc_fw::VEXOClientListener* listener = nullptr;

struct LibraryClient : zv_loc_fw::VEXOClient {};

struct LibraryRequest : zv_loc_fw::VEXODiscoveryScanRequest {
  explicit LibraryRequest(unsigned int id) : VEXODiscoveryScanRequest(id) {}
};

// The library's memory is not the daemon's.
zv_loc_fw::VEXODiscoveryScanRequest* MakeRequest(unsigned int id) {
  const scripted::FailingMemory::Exempt exempt;
  return new LibraryRequest(id);
}

}  // namespace

namespace zv_loc_fw {

using Channels = vector<VEXOChannelInfo>;
using Request = VEXODiscoveryScanRequest;

VEXOClient* VEXOClient::createInstance(VEXOClientListener* reportTo, bool, eLogLevel) {
  listener = reportTo;
  return new LibraryClient;
}
int32_t VEXOClient::sendRequest(VEXORequest*) { return 0; }

Request* Request::createFreshScanRequest(unsigned id, eBand, eScanType, unsigned, long, eRequestMode, bool) {
  return MakeRequest(id);
}
Request* Request::createFreshScanRequest(unsigned id, Channels&, eScanType, unsigned, long, eRequestMode, bool) {
  return MakeRequest(id);
}
Request* Request::createCacheOnlyRequest(unsigned id, eBand, unsigned, long, bool) { return MakeRequest(id); }
Request* Request::createCacheOnlyRequest(unsigned id, Channels&, unsigned, long, bool) { return MakeRequest(id); }
Request* Request::createCacheFallbackRequest(unsigned id, eBand, eScanType, unsigned, unsigned, long, bool, bool) {
  return MakeRequest(id);
}
Request* Request::createCacheFallbackRequest(unsigned id, Channels&, eScanType, unsigned, unsigned, long, bool, bool) {
  return MakeRequest(id);
}

}  // namespace zv_loc_fw

namespace {

using Bytes = std::vector<uint8_t>;

constexpr std::size_t kBatch = 256;  // requests between two looks at the clock
constexpr Object kNone = {nullptr, nullptr};

// A client's end: requests of one kind, whose results it takes and forgets.
class Client {
 public:
  Client(uint32_t serviceId, uint32_t operationCode, ArgCounts slotCounts, std::vector<Bytes> inputs)
      : service(Open(serviceId)), operation(operationCode), counts(slotCounts), buffers(std::move(inputs)) {
    for (Bytes& buffer : buffers) args.push_back({.buffer = {buffer.data(), buffer.size()}});
    args.push_back({.object = {Take, this}});
    args.push_back({.object = kNone});
  }

  static Object Open(uint32_t serviceId) {
    ObjectArg open[2] = {{.buffer = {&serviceId, sizeof(serviceId)}}, {.object = kNone}};
    const Object root = RootObject();
    root.invoke(root.context, ROOT_OP_OPEN, open, kRootOpenCounts);
    return open[1].object;
  }

  // The request's handle.
  Object Start() {
    if (service.invoke(service.context, operation, args.data(), counts) != OBJECT_OK) {
      throw std::runtime_error("a request was refused");
    }
    return args.back().object;
  }

  bool HoldsNothing() const { return references == 0; }
  uint64_t Deliveries() const { return deliveries; }

 private:
  static int32_t Take(void* context, uint32_t op, ObjectArg*, ArgCounts) {
    Client& self = *static_cast<Client*>(context);
    switch (op) {
      case OBJECT_OP_RETAIN:
        ++self.references;
        break;
      case OBJECT_OP_RELEASE:
        --self.references;
        break;
      default:
        ++self.deliveries;
    }
    return OBJECT_OK;
  }

  const Object service;
  const uint32_t operation;
  const ArgCounts counts;
  std::vector<Bytes> buffers;
  std::vector<ObjectArg> args;
  int64_t references = 0;
  uint64_t deliveries = 0;
};

Bytes ListOf(std::size_t count, std::size_t size) { return Bytes(count * size); }

Client DiscoveryOf(std::size_t channels, std::size_t ssids, std::size_t addresses) {
  return {SERVICE_ID_DISCOVERY_SCAN,
          kStartDiscoveryScan,
          kStartDiscoveryScanCounts,
          {Bytes(sizeof(DiscoveryScanParams)), ListOf(channels, sizeof(DiscoveryChannelEntry)),
           ListOf(ssids, sizeof(DiscoverySsidEntry)), ListOf(addresses, sizeof(DiscoveryMacEntry))}};
}
Client Discovery() { return DiscoveryOf(0, 0, 0); }
Client DiscoveryWithLists() { return DiscoveryOf(20, 4, 4); }

Client RangingOf4() {
  return {SERVICE_ID_RANGING_SCAN,
          kStartRangingScan,
          kStartRangingScanCounts,
          {ListOf(4, sizeof(RangingNodeRecord)), Bytes(sizeof(RangingScanParams))}};
}

constexpr uint32_t kId = 1;  // of every request that is answered

zv_loc_fw::VEXOResponse& EmptyResponse() {
  static zv_loc_fw::VEXODiscoveryScanResponse response(kId);
  return response;
}

zv_loc_fw::VEXOResponse& ResponseOf20() {
  static zv_loc_fw::VEXODiscoveryScanResponse response(kId);
  if (response.measurements.count == 0) {
    for (const bench::Measurement* measurement : bench::MadeBefore(20)) {
      response.measurements.push_back(const_cast<bench::Measurement*>(measurement));
    }
  }
  return response;
}

zv_loc_fw::VEXOResponse& DistancesOf4() {
  static zv_loc_fw::VEXORangingScanResponse response(kId);
  static std::array<zv_loc_fw::VEXORangingScanMeasurement, 4> measurements;
  static zv_loc_fw::MeasurementInfoObject info{};
  if (response.measurements.count == 0) {
    for (auto& measurement : measurements) {
      measurement.infoList.push_back(&info);
      measurement.macList.push_back({});
      response.measurements.push_back(&measurement);
    }
  }
  return response;
}

// What is measured: each call is one request. It returns what is released outside the measurement, or kNone.

struct OpenAService {
  Object operator()() const {
    benchmark::DoNotOptimize(Client::Open(SERVICE_ID_DISCOVERY_SCAN));
    return kNone;
  }
};

struct MakeTheLibrarysRequest {
  Object operator()() const {
    const std::unique_ptr<zv_loc_fw::VEXODiscoveryScanRequest> request(MakeRequest(kId));
    benchmark::DoNotOptimize(request.get());
    return kNone;
  }
};

template <Client (*kMakeClient)()>
struct Start {
  Object operator()() { return client.Start(); }
  Client client = kMakeClient();
};

template <Client (*kMakeClient)()>
struct StartAndAbort {
  Object operator()() {
    ObjectRelease(client.Start());
    return kNone;
  }
  Client client = kMakeClient();
};

template <Client (*kMakeClient)(), zv_loc_fw::VEXOResponse& (*kGetResponse)()>
struct StartAndAnswer {
  Object operator()() {
    VexoDispatcher::Get().requestIdCounter.store(kId - 1, std::memory_order_relaxed);
    const Object handle = client.Start();
    listener->responseReceived(&response);
    ObjectRelease(handle);
    if (client.Deliveries() != ++answers) throw std::runtime_error("a result was not delivered");
    return kNone;
  }
  Client client = kMakeClient();
  zv_loc_fw::VEXOResponse& response = kGetResponse();
  uint64_t answers = 0;
};

double CpuSeconds() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

template <typename Road>
void Measure(benchmark::State& state) {
  Road road;
  std::array<Object, kBatch> handles;
  const auto runBatch = [&] {
    for (Object& handle : handles) handle = road();
  };
  const auto cleanUp = [&] {
    for (const Object& handle : handles) {
      if (handle.invoke != nullptr) ObjectRelease(handle);
    }
  };
  runBatch(), cleanUp();  // the dispatcher's table gets the size that it keeps
  {
    const scripted::FailingMemory memory(0, 0);  // only counts
    runBatch();
    state.counters["allocations"] = static_cast<double>(memory.Allocations()) / kBatch;
  }
  cleanUp();
  while (state.KeepRunningBatch(kBatch)) {
    const double begin = CpuSeconds();
    runBatch();
    state.SetIterationTime(CpuSeconds() - begin);
    cleanUp();
  }
  if constexpr (requires { road.client; }) {
    if (!road.client.HoldsNothing()) throw std::runtime_error("a callback was not given back");
  }
}

BENCHMARK_TEMPLATE(Measure, OpenAService)->Name("open a service")->UseManualTime();
BENCHMARK_TEMPLATE(Measure, MakeTheLibrarysRequest)
    ->Name("the library's request alone, part of each discovery request")
    ->UseManualTime();
BENCHMARK_TEMPLATE(Measure, Start<Discovery>)->Name("discovery: request")->UseManualTime();
BENCHMARK_TEMPLATE(Measure, Start<DiscoveryWithLists>)
    ->Name("discovery: request with 20 channels, 4 SSIDs, 4 addresses")
    ->UseManualTime();
BENCHMARK_TEMPLATE(Measure, StartAndAbort<Discovery>)->Name("discovery: request, abort")->UseManualTime();
BENCHMARK_TEMPLATE(Measure, StartAndAnswer<Discovery, EmptyResponse>)
    ->Name("discovery: request, result of 0, release")
    ->UseManualTime();
BENCHMARK_TEMPLATE(Measure, StartAndAnswer<Discovery, ResponseOf20>)
    ->Name("discovery: request, result of 20, release")
    ->UseManualTime();
BENCHMARK_TEMPLATE(Measure, Start<RangingOf4>)->Name("ranging 4 nodes: request")->UseManualTime();
BENCHMARK_TEMPLATE(Measure, StartAndAbort<RangingOf4>)->Name("ranging 4 nodes: request, abort")->UseManualTime();
BENCHMARK_TEMPLATE(Measure, StartAndAnswer<RangingOf4, DistancesOf4>)
    ->Name("ranging 4 nodes: request, result of 4, release")
    ->UseManualTime();

// Prints one line a road, in the order in which they were entered, when everything has run: medians, which neighbours
// on the machine move little.
class Table : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context& context) override {
    PrintBasicContext(&GetErrorStream(), context);
    return true;
  }

  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.run_type != Run::RT_Iteration) continue;
      Line& line = lines[run.family_index];
      line.name = run.run_name.function_name;
      line.nanoseconds.push_back(run.GetAdjustedRealTime());
      line.allocations = run.counters.at("allocations");
    }
  }

  void Finalize() override {
    std::printf("| | ns | allocations |\n|---|---|---|\n");
    for (auto& [index, line] : lines) {
      const auto middle = line.nanoseconds.begin() + static_cast<std::ptrdiff_t>(line.nanoseconds.size() / 2);
      std::nth_element(line.nanoseconds.begin(), middle, line.nanoseconds.end());
      std::printf("| %s | %.0f | %g |\n", line.name.c_str(), *middle, line.allocations);
    }
  }

 private:
  struct Line {
    std::string name;
    std::vector<double> nanoseconds;
    double allocations = 0;
  };
  std::map<int64_t, Line> lines;
};

}  // namespace

int main(int argc, char** argv) try {
  bool quick = false;
  std::vector<char*> arguments;
  for (int i = 0; i < argc; ++i) {
    if (std::strcmp(argv[i], "--quick") == 0) {
      quick = true;
    } else {
      arguments.push_back(argv[i]);
    }
  }
  // The roads take turns in random order, so that whatever else the machine does meets all of them alike.
  std::string defaults[] = {"--benchmark_enable_random_interleaving=true",
                            quick ? "--benchmark_repetitions=5" : "--benchmark_repetitions=31",
                            quick ? "--benchmark_min_time=0.005" : "--benchmark_min_time=0.03"};
  for (std::string& argument : defaults) arguments.insert(arguments.begin() + 1, argument.data());
  int count = static_cast<int>(arguments.size());
  benchmark::Initialize(&count, arguments.data());
  if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) return 2;

  zv_loc_fw::log_set_local_level_for_tag("kesd", static_cast<zv_loc_fw::ERROR_LEVEL>(1));  // as the daemon does
  Table table;
  benchmark::RunSpecifiedBenchmarks(&table);
  return 0;
} catch (const std::exception& e) {
  std::fprintf(stderr, "dispatch: %s\n", e.what());
  return 1;
}
