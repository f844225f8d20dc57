// Scans once, lists what is around, and measures the distance to the strongest access point that is in reach.
//
//   cmake -B build && cmake --build build && build/strongest [SOCKET]
//   g++ -std=c++20 strongest.cpp -o strongest $(pkg-config --cflags --libs kes)      # without CMake
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>

#include "client/client.h"

using namespace std::chrono_literals;

namespace {

int Fail(const char* what, const kes::Error& error) {
  std::fprintf(stderr, "%s: %s\n", what, error.message.c_str());
  return 1;
}

// Anybody may have chosen the name: what could drive a terminal is not shown.
std::string Printable(const std::vector<uint8_t>& octets) {
  std::string text(octets.begin(), octets.end());
  std::replace_if(
      text.begin(), text.end(), [](char c) { return c < ' ' || c > '~'; }, '?');
  return text;
}

void Print(const kes::Measurement& ap) {
  const kes::MacAddress& b = ap.bssid;
  std::printf("%02x:%02x:%02x:%02x:%02x:%02x  %4u MHz  ", b[0], b[1], b[2], b[3], b[4], b[5], ap.values.frequencyMhz);
  if (ap.values.signalMbm == wifi::kSignalUnknown) {
    std::printf("      -  ");
  } else {
    std::printf("%3d dBm  ", ap.values.signalMbm / 100);
  }
  std::printf("%s\n", Printable(ap.ssid).c_str());
}

}  // namespace

int main(int argc, char** argv) {
  auto client = kes::Client::Connect(argc > 1 ? argv[1] : kes::kDefaultSocketPath);
  if (!client) return Fail("cannot connect", client.GetError());

  auto scan = client->StartDiscovery({});
  if (!scan) return Fail("cannot scan", scan.GetError());
  auto found = scan->Wait(fenk::Clock::now() + 30s, -1);
  if (!found) return Fail("no result", found.GetError());
  if (found->status != wifi::ScanStatus::kOk) {
    std::fprintf(stderr, "the scan ended with status %u\n", static_cast<unsigned>(found->status));
    return 1;
  }
  std::sort(found->measurements.begin(), found->measurements.end(),
            [](const auto& a, const auto& b) { return a.values.signalMbm > b.values.signalMbm; });
  for (const kes::Measurement& ap : found->measurements) Print(ap);
  if (found->measurements.empty()) return 0;

  kes::RangingRequest request;
  request.nodes.push_back({.mac = found->measurements.front().bssid});
  auto ranging = client->StartRanging(request);
  if (!ranging) return Fail("cannot range", ranging.GetError());
  auto ranged = ranging->Wait(fenk::Clock::now() + 30s, -1);
  if (!ranged) return Fail("no result", ranged.GetError());
  for (const kes::RangingMeasurement& peer : ranged->measurements) {
    if (peer.ranging.status == wifi::RangingStatus::kSuccess) {
      std::printf("The first is %.2f m away.\n", peer.ranging.distanceMm / 1000.0);
    } else {
      std::printf("The first cannot be measured: status %u\n", static_cast<unsigned>(peer.ranging.status));
    }
  }
  return 0;
}
