#include "client/security.h"

#include <gtest/gtest.h>

#include <vector>

#include "client/words.h"

namespace kesctl {
namespace {

using Bytes = std::vector<uint8_t>;

constexpr uint16_t kEss = 1;
constexpr uint16_t kPrivate = 1 | 1 << 4;

Bytes operator+(Bytes left, const Bytes& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

const Bytes kSsid{0, 4, 'C', 'a', 'f', 'e'};
const Bytes kOweTwin{221, 11, 0x50, 0x6F, 0x9A, 28, 2, 0, 0x5E, 0x10, 0, 1, 0};
Bytes Wpa(uint8_t suite) {
  return {221, 22, 0x00, 0x50, 0xF2, 1, 1, 0, 0x00, 0x50, 0xF2, 2,
          1,   0,  0x00, 0x50, 0xF2, 2, 1, 0, 0x00, 0x50, 0xF2, suite};
}

// An RSN element with CCMP, these key management suites of the standard's own, and these capabilities.
Bytes Rsn(const Bytes& suites, uint8_t capabilities = 0) {
  Bytes body{1, 0, 0x00, 0x0F, 0xAC, 4, 1, 0, 0x00, 0x0F, 0xAC, 4, static_cast<uint8_t>(suites.size()), 0};
  for (const uint8_t suite : suites) body = body + Bytes{0x00, 0x0F, 0xAC, suite};
  body = body + Bytes{capabilities, 0};
  return Bytes{48, static_cast<uint8_t>(body.size())} + body;
}

// The same as an RSN override element of this type.
Bytes RsnOverride(uint8_t type, const Bytes& rsn) {
  return Bytes{221, static_cast<uint8_t>(rsn[1] + 4), 0x50, 0x6F, 0x9A, type} + Bytes(rsn.begin() + 2, rsn.end());
}

constexpr uint8_t kMfpRequired = 0x40;
constexpr uint8_t kMfpCapable = 0x80;

const struct {
  const char* name;
  uint16_t capability;
  Bytes elements;
  const char* words;
} kCases[] = {
    {"no elements tell nothing", kEss, {}, "?"},
    {"privacy alone", kPrivate, kSsid, "WEP"},
    {"privacy alone, but the list breaks off", kPrivate, kSsid + Bytes{48, 20, 1}, "?"},
    {"open, with a twin", kEss, kSsid + kOweTwin, "OWE transition"},
    {"OWE", kPrivate, kSsid + Rsn({18}, kMfpRequired | kMfpCapable), "OWE"},
    {"the hidden twin itself", kPrivate, kSsid + Rsn({18}) + kOweTwin, "OWE"},
    {"passphrase", kPrivate, kSsid + Rsn({2}), "WPA2-Personal"},
    {"fast transition and SHA-256", kPrivate, Rsn({4, 6}), "WPA2-Personal"},
    {"SAE", kPrivate, Rsn({8}, kMfpRequired | kMfpCapable), "WPA3-Personal"},
    {"passphrase and SAE", kPrivate, Rsn({2, 8}, kMfpCapable), "WPA2/WPA3-Personal"},
    {"802.1X", kPrivate, Rsn({1}), "WPA2-Enterprise"},
    {"802.1X with SHA-256, frames not protected", kPrivate, Rsn({5}, kMfpCapable), "WPA2-Enterprise"},
    {"802.1X with SHA-256, frames protected", kPrivate, Rsn({5}, kMfpRequired | kMfpCapable), "WPA3-Enterprise"},
    {"802.1X, old and new", kPrivate, Rsn({1, 5}, kMfpCapable), "WPA2/WPA3-Enterprise"},
    {"192 bits", kPrivate, Rsn({12}, kMfpRequired | kMfpCapable), "WPA3-Enterprise"},
    {"FILS", kPrivate, Rsn({14, 15}), "FILS"},
    {"passphrase or server", kPrivate, Rsn({1, 2}), "WPA2-Personal+WPA2-Enterprise"},
    {"WPA", kPrivate, kSsid + Wpa(2), "WPA-Personal"},
    {"WPA with a server", kPrivate, kSsid + Wpa(1), "WPA-Enterprise"},
    {"WPA and RSN", kPrivate, Rsn({2}) + Wpa(2), "WPA/WPA2-Personal"},
    {"SAE for those that know of it", kPrivate, Rsn({2}) + RsnOverride(41, Rsn({8}, kMfpRequired)),
     "WPA2/WPA3-Personal"},
    {"the second override", kPrivate, RsnOverride(42, Rsn({24})) + Rsn({2}), "WPA2/WPA3-Personal"},
    {"damaged override", kPrivate, Rsn({2}) + RsnOverride(41, Bytes{48, 3, 1, 0, 0}), "?"},
    {"RSN that ends after the version has the defaults", kPrivate, {48, 2, 1, 0}, "WPA2-Enterprise"},
    {"RSN that ends after the group cipher", kPrivate, {48, 6, 1, 0, 0, 0x0F, 0xAC, 4}, "WPA2-Enterprise"},
    {"RSN without capabilities",
     kPrivate,
     {48, 18, 1, 0, 0, 0x0F, 0xAC, 4, 1, 0, 0, 0x0F, 0xAC, 4, 1, 0, 0, 0x0F, 0xAC, 2},
     "WPA2-Personal"},
    {"RSN of another version", kPrivate, {48, 2, 2, 0}, "?"},
    {"empty RSN", kPrivate, {48, 0}, "?"},
    {"RSN that claims more ciphers than it has",
     kPrivate,
     {48, 14, 1, 0, 0, 0x0F, 0xAC, 4, 0xFF, 0xFF, 0, 0x0F, 0xAC, 4, 0, 0},
     "?"},
    {"RSN that claims more key management than it has",
     kPrivate,
     {48, 18, 1, 0, 0, 0x0F, 0xAC, 4, 1, 0, 0, 0x0F, 0xAC, 4, 2, 0, 0, 0x0F, 0xAC, 2},
     "?"},
    {"RSN with no key management", kPrivate, Rsn({}), "?"},
    {"RSN with suites nobody knows", kPrivate, Rsn({31, 200}), "?"},
    {"damaged RSN beside good WPA", kPrivate, Bytes{48, 3, 1, 0, 0} + Wpa(2), "?"},
    {"a vendor's own suite is no passphrase",
     kPrivate,
     {48, 18, 1, 0, 0, 0x0F, 0xAC, 4, 1, 0, 0, 0x0F, 0xAC, 4, 1, 0, 0x00, 0x40, 0x96, 2},
     "?"},
    {"vendor element of three octets", kEss, Bytes{221, 3, 0x00, 0x50, 0xF2} + kSsid, "open"},
    {"another vendor element of the same organisation", kEss, Bytes{221, 4, 0x00, 0x50, 0xF2, 4}, "open"},
};

TEST(Security, IsNamedAsTheBeaconSays) {
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(SecurityWords(kes::SecurityOf(c.elements, c.capability, true)), c.words);
  }
}

TEST(Security, TakesNothingFromTheAbsenceOfAnElementThatMayNotHaveArrived) {
  EXPECT_EQ(SecurityWords(kes::SecurityOf(kSsid, kPrivate, false)), "?");
  EXPECT_EQ(SecurityWords(kes::SecurityOf(kSsid, kEss, false)), "open");
  EXPECT_EQ(SecurityWords(kes::SecurityOf(kSsid + Rsn({2}), kPrivate, false)), "WPA2-Personal");
}

}  // namespace
}  // namespace kesctl
