// How kesctl says what libkes found out.
#ifndef KESD_CLIENT_WORDS_H_
#define KESD_CLIENT_WORDS_H_

#include <cstdint>
#include <string>
#include <string_view>

#include "client/discovery_result.h"
#include "client/ranging_result.h"
#include "client/security.h"

namespace kesctl {

// "open", "WEP", "WPA2/WPA3-Personal", "WPA3-Enterprise", "OWE", "OWE transition", "?"; several ways in are joined by
// '+'.
std::string SecurityWords(const kes::Security& security);

// The same for what was measured.
std::string SecurityWords(const kes::Measurement& measurement);

struct StatusWords {
  std::string_view name;
  std::string_view advice;  // a sentence; empty when there is nothing to do
};
StatusWords WordsFor(wifi::ScanStatus status);         // of a discovery scan
StatusWords RangingWordsFor(wifi::ScanStatus status);  // of a ranging request

// "scene", "capture", "radio", "unknown"; the number when it has no name.
std::string SourceName(wifi::SourceKind source);

// "the request ended with status 2 (timed out). ADVICE"
std::string EndSentences(wifi::ScanStatus status, const StatusWords& words);

// How the ranging of one peer ended, in kebab case: "success", "no-response"; "unknown(N)" when the number has no name.
std::string RangingStatusName(wifi::RangingStatus status);

// "0.3 s", "45 s", "12 min", "5 h".
std::string AgeWords(uint32_t ageMs);

}  // namespace kesctl

#endif  // KESD_CLIENT_WORDS_H_
