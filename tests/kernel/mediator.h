// The simulated radios' mediator (MAC80211_HWSIM): what the peers of a distance measurement answer.
#ifndef KESD_TESTS_KERNEL_MEDIATOR_H_
#define KESD_TESTS_KERNEL_MEDIATOR_H_

#include <netlink/msg.h>
#include <netlink/netlink.h>

#include <array>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kernel_test {

struct FtmAnswer {
  uint32_t status = 0, reason = 0;  // NL80211_PMSR_STATUS_*, NL80211_PMSR_FTM_FAILURE_*
  std::optional<int64_t> rttPs = {}, distanceMm = {};
  std::optional<uint64_t> rttVariancePs2 = {}, distanceVarianceMm2 = {};
  int32_t halfDbm = 0;  // 0: none
  uint16_t burst = 0;
  bool isFinal = true;
};

struct FtmPeer {
  std::array<uint8_t, 6> address;
  std::string asked;  // what the radio was told, in words
};

struct FtmMeasurement {
  std::array<uint8_t, 6> radio;
  std::vector<FtmPeer> peers;
};

// Radios that it made go with it.
class Mediator {
 public:
  Mediator();

  // A radio that can measure, up to three peers at once. Returns its network interface, which is down; empty when there
  // is none.
  std::string AddRadio();

  // Takes the medium over: from here on nobody hears anybody.
  bool Register();

  // The next measurement that a radio is asked for; one without peers when none comes for a minute.
  FtmMeasurement Next();

  struct Answer {
    std::array<uint8_t, 6> peer;
    FtmAnswer answer;
  };
  // Ends the measurement. False when the kernel refuses.
  bool Report(const FtmMeasurement& measurement, const std::vector<Answer>& answers);

 private:
  using Message = std::unique_ptr<nl_msg, decltype(&nlmsg_free)>;
  Message New(uint8_t command, int flags);
  int Ask(Message message);
  bool Receive(std::optional<int>& acknowledged);

  std::unique_ptr<nl_sock, decltype(&nl_socket_free)> socket;
  int family = -1;
  std::deque<FtmMeasurement> asked;
};

}  // namespace kernel_test

#endif  // KESD_TESTS_KERNEL_MEDIATOR_H_
