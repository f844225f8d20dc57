// How a network protects itself, as its beacon says (IEEE Std 802.11-2020, 9.4.1.4 and 9.4.2.24; the vendor elements
// of WPA, of OWE transition mode and of RSN overriding).
#ifndef KESD_CLIENT_SECURITY_H_
#define KESD_CLIENT_SECURITY_H_

#include <cstdint>
#include <span>

namespace kes {

// Which generations a network offers. Personal has a passphrase, enterprise an authentication server.
struct SecurityGenerations {
  bool wpa = false;
  bool wpa2 = false;
  bool wpa3 = false;

  bool Any() const { return wpa || wpa2 || wpa3; }
  bool operator==(const SecurityGenerations&) const = default;
};

struct Security {
  enum class Base {
    kUnknown,    // the elements that would tell are missing, damaged, or name nothing known
    kOpen,       // no protection at all
    kWep,        // protected, by neither WPA nor RSN
    kProtected,  // by what the members below say
  };

  Base base = Base::kUnknown;
  SecurityGenerations personal;
  SecurityGenerations enterprise;
  bool fils = false;
  bool owe = false;
  bool oweTransition = false;  // an open network that has a hidden OWE twin

  bool operator==(const Security&) const = default;
};

// `elements`: those of the beacon, back to back. `complete`: that they are all of them; a missing element proves
// nothing otherwise. Never throws.
Security SecurityOf(std::span<const uint8_t> elements, uint16_t capability, bool complete);

}  // namespace kes

#endif  // KESD_CLIENT_SECURITY_H_
