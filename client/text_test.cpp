#include "client/text.h"

#include <gtest/gtest.h>

#include "client/element_names.h"

namespace kesctl {
namespace {

std::span<const uint8_t> Octets(std::string_view text) {
  return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

using namespace std::string_view_literals;

const struct {
  const char* name;
  std::string_view ssid;
  std::string_view text;
  std::size_t cells;
} kSsidCases[] = {
    {"empty", "", "<hidden>", 8},
    {"zero octets only", "\0\0\0"sv, "<hidden>", 8},
    {"a zero octet among others", "a\0b"sv, "a\\x00b", 6},
    {"what hidden ones are shown as", "<hidden>", "\\x3chidden>", 11},
    {"backslash", "a\\x1b", "a\\x5cx1b", 8},
    {"C1 control as UTF-8", "\xc2\x9b[m", "\\xc2\\x9b[m", 10},
    {"C1 control as an octet", "\x9b[m", "\\x9b[m", 6},
    {"right-to-left override", "abc\xe2\x80\xaexyz", "abc\\xe2\\x80\\xaexyz", 18},
    {"isolates", "\xe2\x81\xa6", "\\xe2\\x81\\xa6", 12},
    {"zero-width space", "a\xe2\x80\x8b", "a\\xe2\\x80\\x8b", 13},
    {"line separator", "\xe2\x80\xa8", "\\xe2\\x80\\xa8", 12},
    {"tag characters", "\xf3\xa0\x81\x81", "\\xf3\\xa0\\x81\\x81", 16},
    {"combining mark", "e\xcc\x81", "e\xcc\x81", 1},
    {"Korean", "\xec\x99\x80\xec\x9d\xb4", "\xec\x99\x80\xec\x9d\xb4", 4},
    {"picture", "\xf0\x9f\x98\x80", "\xf0\x9f\x98\x80", 2},
    {"overlong slash", "\xc0\xaf", "\\xc0\\xaf", 8},
    {"surrogate", "\xed\xa0\x80", "\\xed\\xa0\\x80", 12},
    {"beyond Unicode", "\xf4\x90\x80\x80", "\\xf4\\x90\\x80\\x80", 16},
    {"cut short", "ab\xe2\x82", "ab\\xe2\\x82", 10},
    {"good after bad", "\xff\xc3\xa9", "\\xff\xc3\xa9", 5},
};

TEST(SsidText, ShowsWhatIsSafeAndEscapesTheRest) {
  for (const auto& c : kSsidCases) {
    SCOPED_TRACE(c.name);
    const std::string text = SsidText(true, Octets(c.ssid));
    EXPECT_EQ(text, c.text);
    EXPECT_EQ(DisplayCells(text), c.cells);
  }
  EXPECT_EQ(SsidText(false, Octets("leftover")), "<hidden>");
}

TEST(MacText, IsReadBackAndNothingElseIs) {
  const kes::MacAddress mac{0x02, 0x00, 0x5E, 0xAB, 0xCD, 0xEF};
  EXPECT_EQ(MacText(mac), "02:00:5e:ab:cd:ef");
  EXPECT_EQ(ParseMac("02:00:5E:ab:Cd:EF"), mac);
  EXPECT_EQ(ParseMac("02-00-5e-ab-cd-ef"), mac);
  for (const char* bad : {"", "02:00:5e:ab:cd", "02:00:5e:ab:cd:e", "02:00:5e:ab:cd:ef:", "02:00:5e:ab:cd:eg",
                          "02:00:5e-ab:cd:ef", "02005eabcdef", "02 00 5e ab cd ef", "+2:00:5e:ab:cd:ef"}) {
    EXPECT_EQ(ParseMac(bad), std::nullopt) << bad;
  }
}

TEST(ElementNames, AreTheStandardsOwn) {
  const uint8_t he[] = {35, 1, 2};
  const uint8_t unknown[] = {250};
  EXPECT_EQ(kes::ElementName({48, {}}), "RSN");
  EXPECT_EQ(kes::ElementName({255, he}), "HE Capabilities");
  EXPECT_EQ(kes::ElementName({255, unknown}), "Reserved or unknown");
  EXPECT_EQ(kes::ElementName({255, {}}), "Reserved or unknown");
}

}  // namespace
}  // namespace kesctl
