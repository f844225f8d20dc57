// Text for people out of octets that anybody may have sent. Nothing here lets a control character, an invisible
// formatting character or a broken encoding through to a terminal.
#ifndef KESD_CLIENT_TEXT_H_
#define KESD_CLIENT_TEXT_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "client/mac_address.h"

namespace kesctl {

// Whether `bytes` are UTF-8 as RFC 3629 has it.
bool IsUtf8(std::span<const uint8_t> bytes);

// Valid UTF-8 as it is; every octet of anything else, of control and formatting characters and of a backslash as
// \xNN. Two different inputs never give the same text.
std::string Escape(std::span<const uint8_t> bytes);

// An SSID of zero octets only, or none: the network hides its name.
bool IsHiddenSsid(bool valid, std::span<const uint8_t> ssid);

// "<hidden>", or the SSID escaped; one that would read "<hidden>" itself has its first character escaped, too.
std::string SsidText(bool valid, std::span<const uint8_t> ssid);

// How many terminal cells `utf8`, as Escape gives it, takes: two for East Asian wide characters and pictures, none for
// combining marks.
std::size_t DisplayCells(std::string_view utf8);

// The longest beginning of `utf8` that takes no more than `cells` of them.
std::string_view FirstCells(std::string_view utf8, std::size_t cells);

// Lower-case hexadecimal without separators.
std::string Hex(std::span<const uint8_t> bytes);

// "aa:bb:cc:dd:ee:ff".
std::string MacText(const kes::MacAddress& mac);

// Six two-digit hexadecimal octets, in either case, separated by ':' throughout or '-' throughout.
std::optional<kes::MacAddress> ParseMac(std::string_view text);

}  // namespace kesctl

#endif  // KESD_CLIENT_TEXT_H_
