// What the marshalling benchmark compares: ways to turn a response's measurements into something that can be sent.
#ifndef KESD_BENCH_MARSHAL_H_
#define KESD_BENCH_MARSHAL_H_

#include <benchmark/benchmark.h>

#include <cstddef>
#include <span>

#include "platform/vexo_measurement.h"

namespace bench {

using Measurement = zv_loc_fw::VEXOFullBeaconScanMeasurement;
using Measurements = std::span<const Measurement* const>;

// Measurements as the library makes them: each object, list and payload has its own place on the heap. Each measurement
// has values everywhere, an SSID, one info object and 12 elements of 24 octets. The same ones for everybody; they live
// until the program ends.
Measurements MadeBefore(std::size_t count);

// Runs a contender, which is made once with the number of measurements, so that it can keep what it is right to reuse.
// `size_t Marshal(Measurements)` makes one message from scratch and returns its bytes.
template <typename Contender>
void MeasureMarshalling(benchmark::State& state) {
  const auto count = static_cast<std::size_t>(state.range(0));
  const Measurements measurements = MadeBefore(count);
  Contender contender(count);
  std::size_t bytes = 0;
  for (auto _ : state) {
    bytes = contender.Marshal(measurements);
    benchmark::ClobberMemory();
  }
  state.counters["bytes"] = static_cast<double>(bytes) / static_cast<double>(count);
}

// Adds a contender to the benchmark; called before main.
template <typename Contender>
bool Enter(const char* name) {
  benchmark::RegisterBenchmark(name, MeasureMarshalling<Contender>)->Arg(20)->Arg(1000);
  return true;
}

}  // namespace bench

#endif  // KESD_BENCH_MARSHAL_H_
