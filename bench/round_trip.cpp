// Compares whole requests: the daemon beside the floors and the peers, all in one run.
#include <sched.h>
#include <sys/resource.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "bench/contender.h"
#include "bench/processes.h"
#include "bench/system_calls.h"

namespace {

using bench::ClientProcess;
using bench::Contender;
using bench::Measured;
using bench::Payload;
using bench::Server;
using std::chrono::milliseconds;

struct Effort {
  int rounds;
  milliseconds turn;         // of one contender in one round
  uint64_t longRun;          // requests, for memory
  uint64_t countedRequests;  // for system calls
};
constexpr Effort kFull{9, milliseconds(400), 1'000'000, 5'000};
constexpr Effort kQuick{5, milliseconds(100), 20'000, 1'000};

// The CPU that a client and its server share: the first that this process may use.
const int kSharedCpu = [] {
  cpu_set_t set;
  if (sched_getaffinity(0, sizeof(set), &set) != 0) return 0;
  int cpu = 0;
  while (cpu < CPU_SETSIZE - 1 && !CPU_ISSET(static_cast<unsigned>(cpu), &set)) ++cpu;
  return cpu;
}();

double Median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

double Micros(std::chrono::nanoseconds time) { return std::chrono::duration<double, std::micro>(time).count(); }

void ChooseSource(const std::string& source) { setenv("VEXO_SOURCE", source.c_str(), 1); }

std::string Scene(std::size_t accessPoints) { return "scene:delay=0,aps=" + std::to_string(accessPoints); }

Payload PayloadOf(const std::string& source) {
  ChooseSource(source);
  const Server server(bench::Kesd(), {}, bench::kAnyCpu);
  return bench::LearnPayload(server.Path());
}

std::vector<Contender> Everybody() {
  std::vector<Contender> all{bench::PlainFloor(), bench::HandOverFloor(), bench::EventFloor(), bench::IpcAlone(),
                             bench::Kesd()};
  const auto peers = bench::Peers();
  all.insert(all.end(), peers.begin(), peers.end());
  return all;
}

// One contender's server and clients, and what each round measured.
class Entrant {
 public:
  Entrant(const Contender& contender, const Payload& payload, int clientCount, std::optional<int> cpu)
      : name(contender.name), server(contender, payload, cpu) {
    for (int i = 0; i < clientCount; ++i) {
      clients.push_back(std::make_unique<ClientProcess>(contender, server.Path(), payload, cpu));
    }
  }

  void Run(milliseconds duration) {
    const bench::Usage before = server.Used();
    for (const auto& client : clients) client->Start(duration);
    std::vector<double> medians;
    uint64_t requests = 0;
    for (const auto& client : clients) {
      const Measured measured = client->Finish();
      medians.push_back(measured.medianUs);
      requests += measured.requests;
    }
    const bench::Usage after = server.Used();
    const double count = static_cast<double>(requests);
    medianUs.push_back(Median(medians));
    perSecond.push_back(count / std::chrono::duration<double>(duration).count());
    cpuUs.push_back(Micros(after.cpu - before.cpu) / count);
    faults.push_back(static_cast<double>(after.pageFaults - before.pageFaults) / count);
  }

  void Forget() {
    for (auto* list : {&medianUs, &perSecond, &cpuUs, &faults}) list->clear();
  }

  const std::string& Path() const { return server.Path(); }

  const std::string name;
  std::vector<double> medianUs, perSecond, cpuUs, faults;

 private:
  const Server server;
  std::vector<std::unique_ptr<ClientProcess>> clients;
};

using Values = std::vector<double> Entrant::*;

// The median of the rounds' ratios.
double Ratio(const Entrant& one, const Entrant& other, Values values) {
  std::vector<double> ratios;
  for (std::size_t round = 0; round < (one.*values).size(); ++round) {
    ratios.push_back((one.*values)[round] / (other.*values)[round]);
  }
  return Median(ratios);
}

std::vector<std::unique_ptr<Entrant>> Race(const std::vector<Contender>& contenders, const Payload& payload,
                                           int clients, std::optional<int> cpu, const Effort& effort) {
  std::vector<std::unique_ptr<Entrant>> entrants;
  for (const Contender& contender : contenders) {
    entrants.push_back(std::make_unique<Entrant>(contender, payload, clients, cpu));
    entrants.back()->Run(effort.turn);  // to get warm
    entrants.back()->Forget();
  }
  for (int round = 0; round < effort.rounds; ++round) {
    for (const auto& entrant : entrants) entrant->Run(effort.turn);
  }
  return entrants;
}

std::string Describe(std::size_t accessPoints, const Payload& payload) {
  const auto& sizes = payload.result;
  return std::to_string(accessPoints) + " access points (" + std::to_string(sizes[0] + sizes[1] + sizes[2] + sizes[3]) +
         " bytes of records)";
}

constexpr std::size_t kSizes[] = {0, 20, 1000};

void CompareLatency(const Effort& effort) {
  for (const std::size_t size : kSizes) {
    const Payload payload = PayloadOf(Scene(size));
    std::printf("\n### One client, one CPU: %s\n\n", Describe(size, payload).c_str());
    std::printf(
        "| | median us | x plain floor | x hand-over floor | server page faults a request |\n|---|---|---|---|---|\n");
    const auto entrants = Race(Everybody(), payload, 1, kSharedCpu, effort);
    for (const auto& entrant : entrants) {
      std::printf("| %s | %.1f | %.2f | %.2f | %.3f |\n", entrant->name.c_str(), Median(entrant->medianUs),
                  Ratio(*entrant, *entrants[0], &Entrant::medianUs), Ratio(*entrant, *entrants[1], &Entrant::medianUs),
                  Median(entrant->faults));
    }
  }
}

void CompareThroughput(const Effort& effort) {
  for (const std::size_t size : kSizes) {
    const Payload payload = PayloadOf(Scene(size));
    std::printf("\n### Eight clients: %s\n\n", Describe(size, payload).c_str());
    std::printf("| | requests/s | x plain floor | server CPU us a request | x plain floor | page faults a request |\n");
    std::printf("|---|---|---|---|---|---|\n");
    const auto entrants = Race(Everybody(), payload, 8, bench::kAnyCpu, effort);
    for (const auto& entrant : entrants) {
      std::printf("| %s | %.0f | %.2f | %.1f | %.2f | %.3f |\n", entrant->name.c_str(), Median(entrant->perSecond),
                  Ratio(*entrant, *entrants[0], &Entrant::perSecond), Median(entrant->cpuUs),
                  Ratio(*entrant, *entrants[0], &Entrant::cpuUs), Median(entrant->faults));
    }
  }
}

void CompareSystemCalls(const Effort& effort) {
  std::printf("\n### System calls of the server, a request, one client\n\n");
  std::printf("| | 0 access points | 20 | 1,000 |\n|---|---|---|---|\n");
  std::array<Payload, std::size(kSizes)> payloads{};
  std::transform(std::begin(kSizes), std::end(kSizes), payloads.begin(),
                 [](std::size_t size) { return PayloadOf(Scene(size)); });
  for (const Contender& contender : Everybody()) {
    std::printf("| %s |", contender.name);
    for (std::size_t i = 0; i < std::size(kSizes); ++i) {
      ChooseSource(Scene(kSizes[i]));
      const Server server(contender, payloads[i], kSharedCpu);
      const ClientProcess client(contender, server.Path(), payloads[i], kSharedCpu);
      client.StartRequests(100);
      client.Finish();
      const bench::SystemCalls calls = bench::CountSystemCalls(server.Id(), [&] {
        client.StartRequests(effort.countedRequests);
        client.Finish();
      });
      const double count = static_cast<double>(effort.countedRequests);
      std::printf(" %.2f + %.2f futex |", static_cast<double>(calls.others) / count,
                  static_cast<double>(calls.futex) / count);
    }
    std::printf("\n");
  }
}

void PrintMemory(const char* when, const Server& server) {
  const bench::Memory memory = server.Holds();
  std::printf("| %s | %.2f | %.2f |\n", when, static_cast<double>(memory.residentKib) / 1024,
              static_cast<double>(memory.privateKib) / 1024);
}

void MeasureMemory(const Effort& effort) {
  std::printf("\n### Memory of the daemon, MiB, two seconds after the last request\n\n");
  std::printf("| | resident | of it private |\n|---|---|---|\n");
  for (const std::size_t size : kSizes) {
    ChooseSource(Scene(size));
    const Server server(bench::Kesd(), {}, bench::kAnyCpu);
    const std::string points = std::to_string(size) + " access points, ";
    bench::Rest();
    PrintMemory((points + "idle").c_str(), server);
    uint64_t done = 0;
    for (const uint64_t upTo : {uint64_t{10'000}, size == 0 ? effort.longRun : uint64_t{10'000}}) {
      if (done == upTo) continue;
      {
        std::array<std::unique_ptr<ClientProcess>, 8> clients;
        for (auto& client : clients) {
          client = std::make_unique<ClientProcess>(bench::Kesd(), server.Path(), Payload{}, bench::kAnyCpu);
        }
        for (const auto& client : clients) client->StartRequests((upTo - done) / clients.size());
        for (const auto& client : clients) client->Finish();
      }
      done = upTo;
      bench::Rest();
      PrintMemory((points + "after " + std::to_string(done) + " requests of eight clients").c_str(), server);
    }
  }
}

// What a request costs under load, as a ratio to what it costs without.
void CompareLoads(const Effort& effort) {
  std::printf("\n### A request under load, one client, one CPU\n\n| | median us | x unloaded |\n|---|---|---|\n");
  const struct {
    const char* name;
    std::string source;
    Contender contender;
    std::size_t connections, requestsEach;
  } kLoads[] = {{"1,000 idle connections", Scene(20), bench::Kesd(), 1000, 0},
                {"10,000 requests pending", "scene:delay=60000", bench::KesdFromCache(), 10, 1000}};
  for (const auto& load : kLoads) {
    ChooseSource(load.source);
    Entrant unloaded(load.contender, {}, 1, kSharedCpu), loaded(load.contender, {}, 1, kSharedCpu);
    const auto put = bench::PutLoad(loaded.Path(), load.connections, load.requestsEach);
    unloaded.Run(effort.turn), loaded.Run(effort.turn);
    unloaded.Forget(), loaded.Forget();
    for (int round = 0; round < effort.rounds; ++round) unloaded.Run(effort.turn), loaded.Run(effort.turn);
    std::printf("| %s | %.1f | %.2f |\n", load.name, Median(loaded.medianUs),
                Ratio(loaded, unloaded, &Entrant::medianUs));
  }

  std::printf("\n| access points | median us | us each |\n|---|---|---|\n");
  for (const std::size_t size : {std::size_t{100}, std::size_t{1'000}, std::size_t{10'000}}) {
    ChooseSource(Scene(size));
    Entrant entrant(bench::Kesd(), {}, 1, kSharedCpu);
    entrant.Run(effort.turn), entrant.Forget();
    for (int round = 0; round < effort.rounds; ++round) entrant.Run(effort.turn);
    std::printf("| %zu | %.1f | %.3f |\n", size, Median(entrant.medianUs),
                Median(entrant.medianUs) / static_cast<double>(size));
  }
}

void RaiseDescriptorLimit() {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace

int main(int argc, char** argv) try {
  const std::map<std::string, void (*)(const Effort&)> sections{{"latency", CompareLatency},
                                                                {"throughput", CompareThroughput},
                                                                {"calls", CompareSystemCalls},
                                                                {"memory", MeasureMemory},
                                                                {"load", CompareLoads}};
  const Effort* effort = &kFull;
  std::vector<std::string> chosen;
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    if (argument == "--quick") {
      effort = &kQuick;
    } else if (sections.contains(argument)) {
      chosen.push_back(argument);
    } else {
      std::fprintf(stderr, "Usage: round_trip [--quick] [latency] [throughput] [calls] [memory] [load]\n");
      return 2;
    }
  }
  if (chosen.empty()) chosen = {"latency", "throughput", "calls", "memory", "load"};
  RaiseDescriptorLimit();
  std::printf("%d rounds of %d ms each, contenders in turn; medians over the rounds, also of the ratios.\n",
              effort->rounds, static_cast<int>(effort->turn.count()));
  for (const std::string& section : chosen) {
    sections.at(section)(*effort);
    std::fflush(stdout);
  }
  return 0;
} catch (const std::exception& e) {
  std::fprintf(stderr, "round_trip: %s\n", e.what());
  return 1;
}
