#include "client/text.h"

#include <algorithm>
#include <iterator>

namespace kesctl {
namespace {

struct Range {
  char32_t first;
  char32_t last;
};

// What a terminal might obey or hide instead of showing it: controls, and the formatting characters, line and
// paragraph separators of Unicode. Ascending.
constexpr Range kUnprintable[] = {
    {0x0000, 0x001F},   {0x007F, 0x009F},   {0x00AD, 0x00AD},   {0x061C, 0x061C},   {0x115F, 0x1160},
    {0x180E, 0x180E},   {0x200B, 0x200F},   {0x2028, 0x202E},   {0x2060, 0x206F},   {0x3164, 0x3164},
    {0xFEFF, 0xFEFF},   {0xFFA0, 0xFFA0},   {0xFFF0, 0xFFFB},   {0xFFFE, 0xFFFF},   {0x110BD, 0x110BD},
    {0x110CD, 0x110CD}, {0x13430, 0x1343F}, {0x1BCA0, 0x1BCA3}, {0x1D173, 0x1D17A}, {0xE0000, 0xE0FFF},
};

// Marks that stand on the character before them.
constexpr Range kCombining[] = {
    {0x0300, 0x036F}, {0x0483, 0x0489}, {0x0591, 0x05BD}, {0x064B, 0x065F}, {0x0E31, 0x0E31},
    {0x0E34, 0x0E3A}, {0x0E47, 0x0E4E}, {0x1AB0, 0x1AFF}, {0x1DC0, 0x1DFF}, {0x20D0, 0x20FF},
    {0x302A, 0x302F}, {0x3099, 0x309A}, {0xFE00, 0xFE0F}, {0xFE20, 0xFE2F},
};

// Two cells wide: Hangul, CJK, full-width forms, pictures.
constexpr Range kWide[] = {
    {0x1100, 0x115F},   {0x2E80, 0x303E},   {0x3041, 0xA4CF},   {0xA960, 0xA97C},   {0xAC00, 0xD7A3},
    {0xF900, 0xFAFF},   {0xFE30, 0xFE6F},   {0xFF01, 0xFF60},   {0xFFE0, 0xFFE6},   {0x1F300, 0x1F64F},
    {0x1F680, 0x1F6FF}, {0x1F900, 0x1F9FF}, {0x1FA70, 0x1FAFF}, {0x20000, 0x3FFFD},
};

template <std::size_t size>
bool IsIn(const Range (&ranges)[size], char32_t character) {
  const Range* range = std::lower_bound(std::begin(ranges), std::end(ranges), character,
                                        [](const Range& r, char32_t c) { return r.last < c; });
  return range != std::end(ranges) && range->first <= character;
}

struct Character {
  char32_t value;
  std::size_t size;  // octets
};

// The character that `bytes` begin with; nothing when they begin with no whole, shortest-form UTF-8 sequence.
std::optional<Character> FirstCharacter(std::span<const uint8_t> bytes) {
  const uint8_t lead = bytes[0];
  if (lead < 0x80) return Character{lead, 1};
  const std::size_t size = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
  if (lead < 0xC2 || lead > 0xF4 || bytes.size() < size) return std::nullopt;
  char32_t value = lead & (0xFFu >> (size + 1));
  for (const uint8_t octet : bytes.subspan(1, size - 1)) {
    if ((octet & 0xC0) != 0x80) return std::nullopt;
    value = value << 6 | (octet & 0x3Fu);
  }
  constexpr char32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
  const bool surrogate = value >= 0xD800 && value <= 0xDFFF;
  if (value < kSmallest[size] || value > 0x10FFFF || surrogate) return std::nullopt;
  return Character{value, size};
}

struct Extent {
  std::size_t size;   // octets
  std::size_t cells;  // of a terminal
};

// Of the first character.
Extent FirstExtent(std::string_view utf8) {
  const std::optional<Character> character =
      FirstCharacter({reinterpret_cast<const uint8_t*>(utf8.data()), utf8.size()});
  if (!character) return {1, 1};
  if (IsIn(kCombining, character->value)) return {character->size, 0};
  return {character->size, IsIn(kWide, character->value) ? std::size_t{2} : std::size_t{1}};
}

constexpr char kHexDigits[] = "0123456789abcdef";

void AppendHex(std::string& text, uint8_t octet) {
  text += kHexDigits[octet >> 4];
  text += kHexDigits[octet & 15];
}

void AppendEscaped(std::string& text, std::span<const uint8_t> bytes) {
  for (const uint8_t octet : bytes) {
    text += "\\x";
    AppendHex(text, octet);
  }
}

std::optional<uint8_t> HexValue(char digit) {
  if (digit >= '0' && digit <= '9') return static_cast<uint8_t>(digit - '0');
  if (digit >= 'a' && digit <= 'f') return static_cast<uint8_t>(digit - 'a' + 10);
  if (digit >= 'A' && digit <= 'F') return static_cast<uint8_t>(digit - 'A' + 10);
  return std::nullopt;
}

}  // namespace

bool IsUtf8(std::span<const uint8_t> bytes) {
  while (!bytes.empty()) {
    const std::optional<Character> character = FirstCharacter(bytes);
    if (!character) return false;
    bytes = bytes.subspan(character->size);
  }
  return true;
}

std::string Escape(std::span<const uint8_t> bytes) {
  std::string text;
  while (!bytes.empty()) {
    const std::optional<Character> character = FirstCharacter(bytes);
    const std::span<const uint8_t> octets = bytes.first(character ? character->size : 1);
    if (!character || character->value == U'\\' || IsIn(kUnprintable, character->value)) {
      AppendEscaped(text, octets);
    } else {
      text.append(octets.begin(), octets.end());
    }
    bytes = bytes.subspan(octets.size());
  }
  return text;
}

bool IsHiddenSsid(bool valid, std::span<const uint8_t> ssid) {
  return !valid || std::all_of(ssid.begin(), ssid.end(), [](uint8_t octet) { return octet == 0; });
}

std::string SsidText(bool valid, std::span<const uint8_t> ssid) {
  constexpr std::string_view kHidden = "<hidden>";
  if (IsHiddenSsid(valid, ssid)) return std::string(kHidden);
  std::string text = Escape(ssid);
  if (text == kHidden) text.replace(0, 1, "\\x3c");
  return text;
}

std::string_view FirstCells(std::string_view utf8, std::size_t cells) {
  std::size_t taken = 0;
  while (taken < utf8.size()) {
    const Extent next = FirstExtent(utf8.substr(taken));
    if (next.cells > cells) break;
    cells -= next.cells;
    taken += next.size;
  }
  return utf8.substr(0, taken);
}

std::size_t DisplayCells(std::string_view utf8) {
  std::size_t cells = 0;
  while (!utf8.empty()) {
    const Extent next = FirstExtent(utf8);
    cells += next.cells;
    utf8.remove_prefix(next.size);
  }
  return cells;
}

std::string Hex(std::span<const uint8_t> bytes) {
  std::string text;
  text.reserve(bytes.size() * 2);
  for (const uint8_t octet : bytes) AppendHex(text, octet);
  return text;
}

std::string MacText(const kes::MacAddress& mac) {
  std::string text;
  for (const uint8_t octet : mac) {
    if (!text.empty()) text += ':';
    AppendHex(text, octet);
  }
  return text;
}

std::optional<kes::MacAddress> ParseMac(std::string_view text) {
  kes::MacAddress mac{};
  if (text.size() != 17 || (text[2] != ':' && text[2] != '-')) return std::nullopt;
  for (std::size_t i = 0; i < mac.size(); ++i) {
    const std::optional<uint8_t> high = HexValue(text[3 * i]);
    const std::optional<uint8_t> low = HexValue(text[3 * i + 1]);
    if (!high || !low || (i != 0 && text[3 * i - 1] != text[2])) return std::nullopt;
    mac[i] = static_cast<uint8_t>(*high << 4 | *low);
  }
  return mac;
}

}  // namespace kesctl
