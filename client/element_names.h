// The standard's names of the information elements (IEEE Std 802.11-2020, Table 9-92, and the amendments up to
// 802.11be).
#ifndef KESD_CLIENT_ELEMENT_NAMES_H_
#define KESD_CLIENT_ELEMENT_NAMES_H_

#include <string_view>

#include "host/wifi/information_elements.h"

namespace kes {

// "Reserved or unknown" for an identifier without a name here. The text lives for ever.
std::string_view ElementName(const wifi::Element& element);

}  // namespace kes

#endif  // KESD_CLIENT_ELEMENT_NAMES_H_
