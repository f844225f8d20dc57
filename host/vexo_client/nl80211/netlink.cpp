#include "host/vexo_client/nl80211/netlink.h"

#include <linux/netlink.h>
#include <netlink/genl/ctrl.h>
#include <netlink/genl/genl.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <new>
#include <utility>

namespace vexo_host::nl80211 {
namespace {

constexpr int kReceiveBuffer = 256 << 10;  // a peer measurement's results are lost when they do not fit
constexpr size_t kMessageSize = 16 << 10;  // 255 SSIDs and all channels fit
constexpr int kAnswerTimeMs = 5'000;       // the kernel answers at once; a driver may take its time

nla_policy PolicyOf(uint16_t type) {
  nla_policy policy{};
  policy.type = type;
  return policy;
}

// What the source reads.
const nla_policy* MessagePolicy() {
  static const auto policy = [] {
    std::array<nla_policy, NL80211_ATTR_MAX + 1> made{};
    for (const int type : {NL80211_ATTR_WIPHY, NL80211_ATTR_IFINDEX, NL80211_ATTR_IFTYPE}) {
      made[static_cast<size_t>(type)] = PolicyOf(NLA_U32);
    }
    made[NL80211_ATTR_MAX_NUM_SCAN_SSIDS] = PolicyOf(NLA_U8);
    for (const int nest : {NL80211_ATTR_BSS, NL80211_ATTR_WIPHY_BANDS, NL80211_ATTR_PEER_MEASUREMENTS}) {
      made[static_cast<size_t>(nest)] = PolicyOf(NLA_NESTED);
    }
    return made;
  }();
  return policy.data();
}

int ErrnoOf(int libnlError) {
  switch (-libnlError) {
    case NLE_AGAIN:
      return EAGAIN;
    case NLE_NOMEM:
      return ENOMEM;
    case NLE_OBJ_NOTFOUND:
      return ENOENT;
    default:
      return EIO;
  }
}

}  // namespace

bool ReadAttributes(const nlmsghdr& header, uint8_t& command, Attributes& attributes) {
  auto* const message = const_cast<nlmsghdr*>(&header);  // libnl reads it only
  if (genlmsg_valid_hdr(message, 0) == 0) return false;
  const auto* const generic = static_cast<const genlmsghdr*>(nlmsg_data(message));
  command = generic->cmd;
  return genlmsg_parse(message, 0, attributes.data(), NL80211_ATTR_MAX, const_cast<nla_policy*>(MessagePolicy())) == 0;
}

// What is being waited for, and what came of it.
struct Netlink::Answer {
  Netlink& netlink;
  const Handler& handler;
  uint32_t sequence;  // 0: whatever comes
  bool ended = false;
  int error = 0;
  bool interrupted = false;  // the dump

  void ReadExtendedAcknowledgement(const nlmsghdr& header, const nlmsgerr& body) {
    if ((header.nlmsg_flags & NLM_F_ACK_TLVS) == 0) return;
    size_t skipped = sizeof(nlmsgerr);
    if ((header.nlmsg_flags & NLM_F_CAPPED) == 0 && body.msg.nlmsg_len >= NLMSG_HDRLEN) {
      skipped += body.msg.nlmsg_len - NLMSG_HDRLEN;
    }
    const auto length = static_cast<size_t>(nlmsg_datalen(&header));
    skipped = NLMSG_ALIGN(skipped);
    if (skipped > length) return;
    std::array<nlattr*, NLMSGERR_ATTR_MAX + 1> attributes{};
    std::array<nla_policy, NLMSGERR_ATTR_MAX + 1> policy{};
    policy[NLMSGERR_ATTR_MSG] = PolicyOf(NLA_NUL_STRING);
    auto* const head = reinterpret_cast<nlattr*>(static_cast<char*>(nlmsg_data(&header)) + skipped);
    if (nla_parse(attributes.data(), NLMSGERR_ATTR_MAX, head, static_cast<int>(length - skipped), policy.data()) != 0) {
      return;
    }
    if (attributes[NLMSGERR_ATTR_MSG] == nullptr) return;
    try {
      netlink.explanation = nla_get_string(attributes[NLMSGERR_ATTR_MSG]);
    } catch (const std::bad_alloc&) {
      netlink.explanation.clear();
    }
  }

  static int OnSequence(nl_msg* message, void* self) {
    const uint32_t wanted = static_cast<Answer*>(self)->sequence, has = nlmsg_hdr(message)->nlmsg_seq;
    return wanted == 0 || has == wanted || has == 0 ? NL_OK : NL_SKIP;
  }
  static int OnMessage(nl_msg* message, void* self) {
    const auto& answer = *static_cast<Answer*>(self);
    uint8_t command = 0;
    Attributes attributes;
    if (answer.handler && ReadAttributes(*nlmsg_hdr(message), command, attributes)) {
      answer.handler(command, attributes);
    }
    return NL_OK;
  }
  // A dump that fails says so in its last message, which is no error message.
  static int OnFinish(nl_msg* message, void* self) {
    auto& answer = *static_cast<Answer*>(self);
    int32_t result = 0;
    if (nlmsg_datalen(nlmsg_hdr(message)) >= static_cast<int>(sizeof(result))) {
      std::memcpy(&result, nlmsg_data(nlmsg_hdr(message)), sizeof(result));
    }
    if (result < 0) answer.error = -result;
    answer.ended = true;
    return NL_OK;
  }
  static int OnInterruptedDump(nl_msg*, void* self) {
    static_cast<Answer*>(self)->interrupted = true;
    return NL_OK;
  }
  static int OnAcknowledgement(nl_msg* message, void* self) {
    auto& answer = *static_cast<Answer*>(self);
    const nlmsghdr& header = *nlmsg_hdr(message);
    answer.ReadExtendedAcknowledgement(header, *static_cast<const nlmsgerr*>(nlmsg_data(&header)));
    answer.ended = true;
    return NL_STOP;
  }
  static int OnError(sockaddr_nl*, nlmsgerr* body, void* self) {
    auto& answer = *static_cast<Answer*>(self);
    const auto& header = *reinterpret_cast<const nlmsghdr*>(reinterpret_cast<const char*>(body) - NLMSG_HDRLEN);
    answer.ReadExtendedAcknowledgement(header, *body);
    answer.error = -body->error;
    answer.ended = true;
    return NL_STOP;
  }
};

int Netlink::Open() {
  socket.reset(nl_socket_alloc());
  if (socket == nullptr) return ENOMEM;
  if (const int error = genl_connect(socket.get()); error < 0) return ErrnoOf(error);
  nl_socket_set_buffer_size(socket.get(), kReceiveBuffer, 0);
  const int on = 1;
  // Older kernels have no extended acknowledgements: then there are no explanations.
  setsockopt(Descriptor(), SOL_NETLINK, NETLINK_EXT_ACK, &on, sizeof(on));
  setsockopt(Descriptor(), SOL_NETLINK, NETLINK_CAP_ACK, &on, sizeof(on));
  family = genl_ctrl_resolve(socket.get(), NL80211_GENL_NAME);
  if (family < 0) return ErrnoOf(family);
  return nl_socket_set_nonblocking(socket.get()) < 0 ? EIO : 0;
}

int Netlink::Join(const char* group) {
  Netlink asking;  // libnl resolves by a blocking call, whose answers must not mix with events
  asking.socket.reset(nl_socket_alloc());
  if (asking.socket == nullptr) return ENOMEM;
  if (const int error = genl_connect(asking.socket.get()); error < 0) return ErrnoOf(error);
  const int id = genl_ctrl_resolve_grp(asking.socket.get(), NL80211_GENL_NAME, group);
  if (id < 0) return ErrnoOf(id);
  const int error = nl_socket_add_membership(socket.get(), id);
  return error < 0 ? ErrnoOf(error) : 0;
}

Message Netlink::New(uint8_t command, int flags) const {
  Message message(nlmsg_alloc_size(kMessageSize));
  if (message == nullptr ||
      genlmsg_put(message.get(), NL_AUTO_PORT, NL_AUTO_SEQ, family, 0, flags, command, 0) == nullptr) {
    throw std::bad_alloc();
  }
  return message;
}

int Netlink::ReceiveInto(Answer& answer) {
  const std::unique_ptr<nl_cb, void (*)(nl_cb*)> callbacks(nl_cb_alloc(NL_CB_DEFAULT), nl_cb_put);
  if (callbacks == nullptr) return ENOMEM;
  nl_cb_set(callbacks.get(), NL_CB_SEQ_CHECK, NL_CB_CUSTOM, Answer::OnSequence, &answer);
  nl_cb_set(callbacks.get(), NL_CB_VALID, NL_CB_CUSTOM, Answer::OnMessage, &answer);
  nl_cb_set(callbacks.get(), NL_CB_DUMP_INTR, NL_CB_CUSTOM, Answer::OnInterruptedDump, &answer);
  nl_cb_set(callbacks.get(), NL_CB_FINISH, NL_CB_CUSTOM, Answer::OnFinish, &answer);
  nl_cb_set(callbacks.get(), NL_CB_ACK, NL_CB_CUSTOM, Answer::OnAcknowledgement, &answer);
  nl_cb_err(callbacks.get(), NL_CB_CUSTOM, Answer::OnError, &answer);
  errno = 0;
  const int error = nl_recvmsgs(socket.get(), callbacks.get());
  if (error >= 0 || answer.ended) return 0;
  return errno == ENOBUFS ? ENOBUFS : ErrnoOf(error);
}

int Netlink::Ask(Message message, const Handler& handler) {
  explanation.clear();
  const bool isDump = (nlmsg_hdr(message.get())->nlmsg_flags & NLM_F_DUMP) == NLM_F_DUMP;
  if (!isDump) nlmsg_hdr(message.get())->nlmsg_flags |= NLM_F_ACK;
  if (const int sent = nl_send_auto(socket.get(), message.get()); sent < 0) return ErrnoOf(sent);
  Answer answer{*this, handler, nlmsg_hdr(message.get())->nlmsg_seq};
  while (!answer.ended) {
    const int error = ReceiveInto(answer);
    if (error == 0) continue;
    if (error != EAGAIN) return error;
    pollfd readable{Descriptor(), POLLIN, 0};
    const int ready = poll(&readable, 1, kAnswerTimeMs);
    if (ready == 0) return ETIMEDOUT;
    if (ready < 0 && errno != EINTR) return errno;
  }
  return answer.error == 0 && answer.interrupted ? EAGAIN : answer.error;
}

int Netlink::Receive(const Handler& handler) {
  Answer answer{*this, handler, 0};
  for (;;) {
    answer.ended = false;
    if (const int error = ReceiveInto(answer); error != 0) return error == EAGAIN ? 0 : error;
  }
}

}  // namespace vexo_host::nl80211
