// Generic netlink to nl80211, the kernel's interface to its radios, over libnl.
#ifndef KESD_HOST_VEXO_CLIENT_NL80211_NETLINK_H_
#define KESD_HOST_VEXO_CLIENT_NL80211_NETLINK_H_

#include <linux/nl80211.h>
#include <netlink/attr.h>
#include <netlink/msg.h>
#include <netlink/netlink.h>

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace vexo_host::nl80211 {

struct FreeMessage {
  void operator()(nl_msg* message) const { nlmsg_free(message); }
};
using Message = std::unique_ptr<nl_msg, FreeMessage>;

// The attributes of a message by type (NL80211_ATTR_*), null where there is none. The payloads of those that the source
// reads are as long as their types; a nest's contents are not looked at yet.
using Attributes = std::array<nlattr*, NL80211_ATTR_MAX + 1>;

// False when the message is malformed.
bool ReadAttributes(const nlmsghdr& header, uint8_t& command, Attributes& attributes);

// One thread at a time.
class Netlink {
 public:
  using Handler = std::function<void(uint8_t command, const Attributes& attributes)>;  // throws nothing

  // 0, or an errno. ENOENT: the kernel has no nl80211.
  int Open();

  // Joins a multicast group ("scan", "config", ...). 0, or an errno.
  int Join(const char* group);

  // A message for `command`; `flags` are NLM_F_*. Throws std::bad_alloc.
  Message New(uint8_t command, int flags = 0) const;

  // Sends a message and waits for the kernel's answer. 0, or an errno; Explanation is then the kernel's, if it gave
  // one. `handler`, where there is one, is called for each message of the answer, and for what comes unasked meanwhile.
  // A dump that the kernel marks as inconsistent ends with EAGAIN: it is to be asked for again.
  int Ask(Message message, const Handler& handler = nullptr);

  // Takes the messages that are there and does not wait. 0, or an errno: ENOBUFS when some were lost.
  int Receive(const Handler& handler);

  const std::string& Explanation() const { return explanation; }
  int Descriptor() const { return nl_socket_get_fd(socket.get()); }

 private:
  struct FreeSocket {
    void operator()(nl_sock* freed) const { nl_socket_free(freed); }
  };
  struct Answer;

  int ReceiveInto(Answer& answer);

  std::unique_ptr<nl_sock, FreeSocket> socket;
  int family = 0;
  std::string explanation;
};

}  // namespace vexo_host::nl80211

#endif  // KESD_HOST_VEXO_CLIENT_NL80211_NETLINK_H_
