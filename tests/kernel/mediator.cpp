#include "tests/kernel/mediator.h"

#include <linux/nl80211.h>
#include <netlink/genl/ctrl.h>
#include <netlink/genl/genl.h>
#include <poll.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>

namespace kernel_test {
namespace {

// The kernel's mac80211_hwsim.h, which no package has.
enum { HWSIM_CMD_REGISTER = 1, HWSIM_CMD_NEW_RADIO = 4, HWSIM_CMD_START_PMSR = 9, HWSIM_CMD_REPORT_PMSR = 11 };
enum {
  HWSIM_ATTR_ADDR_TRANSMITTER = 2,
  HWSIM_ATTR_CHANNELS = 9,
  HWSIM_ATTR_DESTROY_RADIO_ON_CLOSE = 16,
  HWSIM_ATTR_RADIO_NAME = 17,
  HWSIM_ATTR_PMSR_SUPPORT = 26,
  HWSIM_ATTR_PMSR_REQUEST = 27,
  HWSIM_ATTR_PMSR_RESULT = 28,
  HWSIM_ATTR_MAX = 28
};

constexpr char kRadio[] = "ranging";
constexpr int kPatienceMs = 60'000;

template <typename Function>
void Nest(nl_msg* message, int type, const Function& inside) {
  nlattr* const nest = nla_nest_start(message, type | NLA_F_NESTED);
  inside();
  nla_nest_end(message, nest);
}

template <typename Function>
void ForEachNested(const nlattr* nest, const Function& function) {
  nlattr* nested = nullptr;
  int rest = 0;
  nla_for_each_nested(nested, nest, rest) function(nested);
}

nlattr* Within(const nlattr* nest, int type) {
  return nest == nullptr ? nullptr : nla_find(static_cast<nlattr*>(nla_data(nest)), nla_len(nest), type);
}

std::array<uint8_t, 6> Address(const nlattr* attribute) {
  std::array<uint8_t, 6> address{};
  nla_memcpy(address.data(), attribute, static_cast<int>(address.size()));
  return address;
}

std::string Words(const nlattr* peer) {
  const nlattr* const channel = Within(peer, NL80211_PMSR_PEER_ATTR_CHAN);
  const nlattr* const ftm =
      Within(Within(Within(peer, NL80211_PMSR_PEER_ATTR_REQ), NL80211_PMSR_REQ_ATTR_DATA), NL80211_PMSR_TYPE_FTM);
  const auto u32 = [](const nlattr* nest, int type) {
    const nlattr* const found = Within(nest, type);
    return found == nullptr ? "-" : std::to_string(nla_get_u32(found));
  };
  const auto small = [&](int type) {
    const nlattr* const found = Within(ftm, type);
    if (found == nullptr) return std::string("-");
    return std::to_string(nla_len(found) == 1 ? nla_get_u8(found) : nla_get_u16(found));
  };
  std::string words =
      u32(channel, NL80211_ATTR_WIPHY_FREQ) + " in " + u32(channel, NL80211_ATTR_CENTER_FREQ1) + " width " +
      u32(channel, NL80211_ATTR_CHANNEL_WIDTH) + " preamble " + u32(ftm, NL80211_PMSR_FTM_REQ_ATTR_PREAMBLE) +
      " bursts " + small(NL80211_PMSR_FTM_REQ_ATTR_NUM_BURSTS_EXP) + " period " +
      small(NL80211_PMSR_FTM_REQ_ATTR_BURST_PERIOD) + " frames " + small(NL80211_PMSR_FTM_REQ_ATTR_FTMS_PER_BURST) +
      " retries " + small(NL80211_PMSR_FTM_REQ_ATTR_NUM_FTMR_RETRIES);
  if (Within(ftm, NL80211_PMSR_FTM_REQ_ATTR_ASAP) != nullptr) words += " asap";
  if (Within(ftm, NL80211_PMSR_FTM_REQ_ATTR_TRIGGER_BASED) != nullptr) words += " tb";
  if (Within(ftm, NL80211_PMSR_FTM_REQ_ATTR_NON_TRIGGER_BASED) != nullptr) words += " ntb";
  return words;
}

void PutAnswer(nl_msg* to, const FtmAnswer& answer) {
  if (answer.status == NL80211_PMSR_STATUS_FAILURE) {
    nla_put_u32(to, NL80211_PMSR_FTM_RESP_ATTR_FAIL_REASON, answer.reason);
  }
  nla_put_u16(to, NL80211_PMSR_FTM_RESP_ATTR_BURST_INDEX, answer.burst);
  if (answer.halfDbm != 0) nla_put_s32(to, NL80211_PMSR_FTM_RESP_ATTR_RSSI_AVG, answer.halfDbm);
  if (answer.rttPs) nla_put_s64(to, NL80211_PMSR_FTM_RESP_ATTR_RTT_AVG, *answer.rttPs);
  if (answer.rttVariancePs2) nla_put_u64(to, NL80211_PMSR_FTM_RESP_ATTR_RTT_VARIANCE, *answer.rttVariancePs2);
  if (answer.distanceMm) nla_put_s64(to, NL80211_PMSR_FTM_RESP_ATTR_DIST_AVG, *answer.distanceMm);
  if (answer.distanceVarianceMm2) {
    nla_put_u64(to, NL80211_PMSR_FTM_RESP_ATTR_DIST_VARIANCE, *answer.distanceVarianceMm2);
  }
}

}  // namespace

Mediator::Mediator() : socket(nl_socket_alloc(), &nl_socket_free) {
  if (genl_connect(socket.get()) < 0) return;
  nl_socket_set_buffer_size(socket.get(), 4 << 20, 0);  // frames come too, and nobody reads them for a while
  family = genl_ctrl_resolve(socket.get(), "MAC80211_HWSIM");
}

Mediator::Message Mediator::New(uint8_t command, int flags) {
  Message message(nlmsg_alloc(), &nlmsg_free);
  genlmsg_put(message.get(), NL_AUTO_PORT, NL_AUTO_SEQ, family, 0, flags, command, 1);
  return message;
}

// The number in the acknowledgement: 0, a negative errno, or a new radio's.
int Mediator::Ask(Message message) {
  if (nl_send_auto(socket.get(), message.get()) < 0) return -EIO;
  std::optional<int> acknowledged;
  while (!acknowledged) {
    if (!Receive(acknowledged)) return -ETIMEDOUT;
  }
  return *acknowledged;
}

bool Mediator::Receive(std::optional<int>& acknowledged) {
  pollfd readable{nl_socket_get_fd(socket.get()), POLLIN, 0};
  if (poll(&readable, 1, kPatienceMs) != 1) return false;
  sockaddr_nl from{};
  unsigned char* bytes = nullptr;
  int rest = nl_recv(socket.get(), &from, &bytes, nullptr);
  const std::unique_ptr<unsigned char, decltype(&free)> owned(bytes, &free);
  for (auto* header = reinterpret_cast<nlmsghdr*>(bytes); rest > 0 && nlmsg_ok(header, rest);
       header = nlmsg_next(header, &rest)) {
    if (header->nlmsg_type == NLMSG_ERROR) acknowledged = static_cast<nlmsgerr*>(nlmsg_data(header))->error;
    if (header->nlmsg_type != family || genlmsg_hdr(header)->cmd != HWSIM_CMD_START_PMSR) continue;
    std::array<nlattr*, HWSIM_ATTR_MAX + 1> attributes{};
    genlmsg_parse(header, 0, attributes.data(), HWSIM_ATTR_MAX, nullptr);
    FtmMeasurement measurement{Address(attributes[HWSIM_ATTR_ADDR_TRANSMITTER]), {}};
    ForEachNested(Within(attributes[HWSIM_ATTR_PMSR_REQUEST], NL80211_ATTR_PEER_MEASUREMENTS), [&](nlattr* peer) {
      if (nla_type(peer) != NL80211_PMSR_ATTR_PEERS) return;
      measurement.peers.push_back({Address(Within(peer, NL80211_PMSR_PEER_ATTR_ADDR)), Words(peer)});
    });
    asked.push_back(std::move(measurement));
  }
  return true;
}

std::string Mediator::AddRadio() {
  Message message = New(HWSIM_CMD_NEW_RADIO, NLM_F_ACK);
  nl_msg* const to = message.get();
  nla_put_u32(to, HWSIM_ATTR_CHANNELS, 1);
  nla_put_flag(to, HWSIM_ATTR_DESTROY_RADIO_ON_CLOSE);
  nla_put_string(to, HWSIM_ATTR_RADIO_NAME, kRadio);
  Nest(to, HWSIM_ATTR_PMSR_SUPPORT, [&] {
    nla_put_u32(to, NL80211_PMSR_ATTR_MAX_PEERS, 3);
    Nest(to, NL80211_PMSR_ATTR_TYPE_CAPA, [&] {
      Nest(to, NL80211_PMSR_TYPE_FTM, [&] {
        nla_put_flag(to, NL80211_PMSR_FTM_CAPA_ATTR_ASAP);
        nla_put_u32(to, NL80211_PMSR_FTM_CAPA_ATTR_PREAMBLES,
                    1 << NL80211_PREAMBLE_LEGACY | 1 << NL80211_PREAMBLE_HT | 1 << NL80211_PREAMBLE_VHT |
                        1 << NL80211_PREAMBLE_HE);
        nla_put_u32(to, NL80211_PMSR_FTM_CAPA_ATTR_BANDWIDTHS,
                    1 << NL80211_CHAN_WIDTH_20_NOHT | 1 << NL80211_CHAN_WIDTH_20 | 1 << NL80211_CHAN_WIDTH_40 |
                        1 << NL80211_CHAN_WIDTH_80);
        nla_put_u8(to, NL80211_PMSR_FTM_CAPA_ATTR_MAX_BURSTS_EXPONENT, 2);
        nla_put_u8(to, NL80211_PMSR_FTM_CAPA_ATTR_MAX_FTMS_PER_BURST, 20);
        nla_put_flag(to, NL80211_PMSR_FTM_CAPA_ATTR_NON_TRIGGER_BASED);
      });
    });
  });
  if (Ask(std::move(message)) < 0) return "";
  std::error_code error;
  const std::string interfaces = std::string("/sys/class/ieee80211/") + kRadio + "/device/net";
  for (const auto& entry : std::filesystem::directory_iterator(interfaces, error)) return entry.path().filename();
  return "";
}

bool Mediator::Register() { return Ask(New(HWSIM_CMD_REGISTER, NLM_F_ACK)) == 0; }

FtmMeasurement Mediator::Next() {
  std::optional<int> ignored;
  while (asked.empty()) {
    if (!Receive(ignored)) return {};
  }
  FtmMeasurement next = std::move(asked.front());
  asked.pop_front();
  return next;
}

bool Mediator::Report(const FtmMeasurement& measurement, const std::vector<Answer>& answers) {
  Message message = New(HWSIM_CMD_REPORT_PMSR, NLM_F_ACK);
  nl_msg* const to = message.get();
  nla_put(to, HWSIM_ATTR_ADDR_TRANSMITTER, 6, measurement.radio.data());
  Nest(to, HWSIM_ATTR_PMSR_RESULT, [&] {
    Nest(to, NL80211_PMSR_ATTR_PEERS, [&] {
      int number = 0;
      for (const auto& [peer, answer] : answers) {
        Nest(to, ++number, [&, &peer = peer, &answer = answer] {
          nla_put(to, NL80211_PMSR_PEER_ATTR_ADDR, 6, peer.data());
          Nest(to, NL80211_PMSR_PEER_ATTR_RESP, [&] {
            nla_put_u32(to, NL80211_PMSR_RESP_ATTR_STATUS, answer.status);
            if (answer.isFinal) nla_put_flag(to, NL80211_PMSR_RESP_ATTR_FINAL);
            Nest(to, NL80211_PMSR_RESP_ATTR_DATA,
                 [&] { Nest(to, NL80211_PMSR_TYPE_FTM, [&] { PutAnswer(to, answer); }); });
          });
        });
      }
    });
  });
  return Ask(std::move(message)) == 0;
}

}  // namespace kernel_test
