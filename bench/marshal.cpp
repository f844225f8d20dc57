// How long the daemon takes to marshal a measurement, beside what else could carry the same content.
#include "bench/marshal.h"

#include <malloc.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "marshal/measurement_marshal.h"

namespace {

using bench::Measurement;
using bench::Measurements;
using zv_loc_fw::ElementObject;

constexpr const char* kFloor = "a memmove a piece";
constexpr std::size_t kHeaderSize = 2;

class Kesd {
 public:
  explicit Kesd(std::size_t) {}

  std::size_t Marshal(Measurements measurements) {
    CommonResponseData data;
    for (const Measurement* measurement : measurements) MarshalFullBeacon(data, measurement);
    return data.scanMeasurements.count * sizeof(WifiScanMeasurement) +
           data.measurementInfos.count * sizeof(WifiMeasurementInfo) + data.byteData.count;
  }
};

// As many bytes as a record has lie there in one piece.
const void* ValuesOf(const Measurement& measurement) { return &measurement.bssid; }

// g++ knows that the length of an element is a byte and turns such a memcpy into `rep movsq`, whose start alone takes
// longer than a call of the C library's.
void InlineCopy(const ElementObject& element, uint8_t* to) { std::memcpy(to, element.payload, element.length); }
void LibraryCopy(const ElementObject& element, uint8_t* to) { std::copy_n(element.payload, element.length, to); }

// The least there is to do: each piece of the result is copied once, to where there is room for it.
template <void (*CopyPayload)(const ElementObject&, uint8_t*)>
class Gather {
 public:
  explicit Gather(std::size_t count) : records(count), infos(count) {
    for (const Measurement* measurement : bench::MadeBefore(count)) {
      for (uint32_t i = 0; i < measurement->beaconElements.count; ++i) {
        bytes.resize(bytes.size() + kHeaderSize + measurement->beaconElements[i]->length);
      }
    }
  }

  std::size_t Marshal(Measurements measurements) {
    WifiScanMeasurement* record = records.data();
    WifiMeasurementInfo* info = infos.data();
    uint8_t* to = bytes.data();
    for (const Measurement* measurement : measurements) {
      std::memcpy(record++, ValuesOf(*measurement), sizeof(*record));
      std::memcpy(info++, measurement->infoList.data[0], sizeof(*info));
      const uint32_t elements = measurement->beaconElements.count;
      for (uint32_t i = 0; i < elements; ++i) {
        const ElementObject& element = *measurement->beaconElements.data[i];
        std::memcpy(to, &element, kHeaderSize);
        CopyPayload(element, to + kHeaderSize);
        to += kHeaderSize + element.length;
      }
    }
    return measurements.size() * (sizeof(*record) + sizeof(*info)) + bytes.size();
  }

 private:
  std::vector<WifiScanMeasurement> records;
  std::vector<WifiMeasurementInfo> infos;
  std::vector<uint8_t> bytes;
};

// The straightforward way with the standard library. It copies records as Gather does: only the appends are measured.
class AppendPerByte {
 public:
  explicit AppendPerByte(std::size_t) {}

  std::size_t Marshal(Measurements measurements) {
    std::vector<WifiScanMeasurement> records;
    std::vector<WifiMeasurementInfo> infos;
    std::vector<uint8_t> bytes;
    for (const Measurement* measurement : measurements) {
      std::memcpy(&records.emplace_back(), ValuesOf(*measurement), sizeof(WifiScanMeasurement));
      std::memcpy(&infos.emplace_back(), measurement->infoList.data[0], sizeof(WifiMeasurementInfo));
      for (uint32_t i = 0; i < measurement->beaconElements.count; ++i) {
        const ElementObject& element = *measurement->beaconElements[i];
        bytes.push_back(element.id);
        bytes.push_back(element.length);
        for (uint32_t at = 0; at < element.length; ++at) bytes.push_back(element.payload[at]);
      }
    }
    return records.size() * sizeof(WifiScanMeasurement) + infos.size() * sizeof(WifiMeasurementInfo) + bytes.size();
  }
};

const bool entered = bench::Enter<Kesd>("kesd") && bench::Enter<Gather<LibraryCopy>>(kFloor) &&
                     bench::Enter<Gather<InlineCopy>>("a memcpy a piece") &&
                     bench::Enter<AppendPerByte>("std::vector, an append a byte");

// Prints one line a contender when everything has run: medians, which neighbours on the machine move little.
class Table : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context& context) override {
    PrintBasicContext(&GetErrorStream(), context);
    return true;
  }

  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.run_type != Run::RT_Iteration) continue;
      const std::string& name = run.run_name.function_name;
      const std::size_t count = std::stoul(run.run_name.args);
      if (run.error_occurred) std::fprintf(stderr, "%s: %s\n", name.c_str(), run.error_message.c_str());
      nanoseconds[count][name].push_back(run.GetAdjustedCPUTime() / static_cast<double>(count));
      bytes[name] = run.counters.at("bytes");
    }
  }

  void Finalize() override {
    std::printf("| ns a measurement |");
    for (const auto& [count, contenders] : nanoseconds) std::printf(" of %zu | x floor |", count);
    std::printf(" bytes each |\n|---|");
    for (std::size_t i = 0; i < nanoseconds.size(); ++i) std::printf("---|---|");
    std::printf("---|\n");
    for (const auto& [name, perMeasurement] : bytes) {
      std::printf("| %s |", name.c_str());
      for (auto& [count, contenders] : nanoseconds) {
        const double median = Median(contenders[name]);
        std::printf(" %.0f | %.2f |", median, median / Median(contenders[kFloor]));
      }
      std::printf(" %.0f |\n", perMeasurement);
    }
  }

 private:
  static double Median(std::vector<double>& values) {
    if (values.empty()) return 0;
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
  }

  std::map<std::size_t, std::map<std::string, std::vector<double>>> nanoseconds;  // by count and contender, each run
  std::map<std::string, double> bytes;                                            // by contender, of a measurement
};

}  // namespace

int main(int argc, char** argv) {
  // Freed memory stays with the program: whether a pass has to get its pages from the kernel again would otherwise
  // depend on what the other contenders have freed before it.
  mallopt(M_TRIM_THRESHOLD, 1 << 30);
  mallopt(M_MMAP_THRESHOLD, 1 << 25);

  // The contenders take turns in random order, so that whatever else the machine does meets all of them alike.
  std::vector<char*> arguments(argv, argv + argc);
  const auto quick = std::find(arguments.begin(), arguments.end(), std::string_view("--quick"));
  std::string defaults[] = {"--benchmark_enable_random_interleaving=true",
                            "--benchmark_repetitions=" + std::string(quick == arguments.end() ? "31" : "9"),
                            "--benchmark_min_time=0.03"};
  if (quick != arguments.end()) arguments.erase(quick);
  for (std::string& argument : defaults) arguments.insert(arguments.begin() + 1, argument.data());
  int count = static_cast<int>(arguments.size());
  benchmark::Initialize(&count, arguments.data());
  if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) return 2;
  Table table;
  benchmark::RunSpecifiedBenchmarks(&table);
}
