#include "client/text.h"

#include <gtest/gtest.h>

#include "client/element_names.h"

namespace kesctl {
namespace {

std::span<const uint8_t> Octets(std::string_view text) {
  return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

struct SsidCase {
  const char* name;
  std::string_view ssid;
  std::string_view text;
  std::size_t cells;
};

using namespace std::string_view_literals;

const SsidCase kSsidCases[] = {
    {"plain", "Cafe 5G", "Cafe 5G", 7},
    {"empty", "", "<hidden>", 8},
    {"zero octets only", "\0\0\0"sv, "<hidden>", 8},
    {"a zero octet among others", "a\0b"sv, "a\\x00b", 6},
    {"what hidden ones are shown as", "<hidden>", "\\x3chidden>", 11},
    {"backslash", "a\\x1b", "a\\x5cx1b", 8},
    {"terminal sequence", "\x1b[31mred\x1b[0m", "\\x1b[31mred\\x1b[0m", 18},
    {"bell, newline, delete", "\a\n\x7f", "\\x07\\x0a\\x7f", 12},
    {"C1 control as UTF-8",
     "\xc2\x9b"
     "31m",
     "\\xc2\\x9b31m", 11},
    {"C1 control as an octet",
     "\x9b"
     "31m",
     "\\x9b31m", 7},
    {"right-to-left override",
     "abc\xe2\x80\xae"
     "def",
     "abc\\xe2\\x80\\xaedef", 18},
    {"isolates", "\xe2\x81\xa6", "\\xe2\\x81\\xa6", 12},
    {"line separator", "\xe2\x80\xa8", "\\xe2\\x80\\xa8", 12},
    {"zero-width space", "a\xe2\x80\x8b", "a\\xe2\\x80\\x8b", 13},
    {"tag characters", "\xf3\xa0\x81\x81", "\\xf3\\xa0\\x81\\x81", 16},
    {"umlaut", "Caf\xc3\xa9", "Caf\xc3\xa9", 4},
    {"combining mark", "e\xcc\x81", "e\xcc\x81", 1},
    {"Korean", "\xec\x99\x80\xec\x9d\xb4", "\xec\x99\x80\xec\x9d\xb4", 4},
    {"picture", "\xf0\x9f\x98\x80", "\xf0\x9f\x98\x80", 2},
    {"GBK", "\xb2\xe2\xca\xd4", "\\xb2\\xe2\\xca\\xd4", 16},
    {"overlong slash", "\xc0\xaf", "\\xc0\\xaf", 8},
    {"overlong escape", "\xe0\x80\x9b", "\\xe0\\x80\\x9b", 12},
    {"surrogate", "\xed\xa0\x80", "\\xed\\xa0\\x80", 12},
    {"beyond Unicode", "\xf4\x90\x80\x80", "\\xf4\\x90\\x80\\x80", 16},
    {"cut short", "ab\xe2\x82", "ab\\xe2\\x82", 10},
    {"good after bad", "\xff\xc3\xa9", "\\xff\xc3\xa9", 5},
};

TEST(SsidText, ShowsWhatIsSafeAndEscapesTheRest) {
  for (const SsidCase& c : kSsidCases) {
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
  EXPECT_EQ(kes::ElementName({244, {}}), "RSN Extension");
  EXPECT_EQ(kes::ElementName({2, {}}), "Reserved or unknown");
  EXPECT_EQ(kes::ElementName({255, he}), "HE Capabilities");
  EXPECT_EQ(kes::ElementName({255, unknown}), "Reserved or unknown");
  EXPECT_EQ(kes::ElementName({255, {}}), "Reserved or unknown");
}

}  // namespace
}  // namespace kesctl
