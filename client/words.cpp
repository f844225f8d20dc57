#include "client/words.h"

namespace kesctl {
namespace {

void Append(std::string& text, std::string_view word, std::string_view separator) {
  if (!text.empty()) text += separator;
  text += word;
}

void AppendGenerations(std::string& text, const kes::SecurityGenerations& generations, std::string_view kind) {
  if (!generations.Any()) return;
  std::string names;
  if (generations.wpa) Append(names, "WPA", "/");
  if (generations.wpa2) Append(names, "WPA2", "/");
  if (generations.wpa3) Append(names, "WPA3", "/");
  Append(text, names.append(kind), "+");
}

}  // namespace

std::string SecurityWords(const kes::Security& security) {
  switch (security.base) {
    case kes::Security::Base::kUnknown:
      return "?";
    case kes::Security::Base::kOpen:
      return security.oweTransition ? "OWE transition" : "open";
    case kes::Security::Base::kWep:
      return "WEP";
    case kes::Security::Base::kProtected:
      break;
  }
  std::string text;
  AppendGenerations(text, security.personal, "-Personal");
  AppendGenerations(text, security.enterprise, "-Enterprise");
  if (security.fils) Append(text, "FILS", "+");
  if (security.owe) Append(text, "OWE", "+");
  return text;
}

std::string SecurityWords(const kes::Measurement& measurement) {
  return SecurityWords(kes::SecurityOf(measurement.elements, measurement.values.capability, !measurement.incomplete));
}

StatusWords WordsFor(wifi::ScanStatus status) {
  switch (status) {
    case wifi::ScanStatus::kOk:
      return {"ok", ""};
    case wifi::ScanStatus::kFailed:
      return {"failed", "The measurement source began and could not finish; try again, the daemon's log tells why."};
    case wifi::ScanStatus::kTimedOut:
      return {"timed out", "Give it longer with --timeout MS; what was found until then is shown."};
    case wifi::ScanStatus::kUnsupported:
      return {"unsupported", "The daemon's measurement source never serves such a request; try --mode cache."};
    case wifi::ScanStatus::kUnavailable:
      return {"unavailable", "The daemon's measurement source cannot be read now; its log tells why."};
    case wifi::ScanStatus::kBadResponse:
      return {"bad response", "The daemon's Wi-Fi library answered with something else; look into the daemon's log."};
    case wifi::ScanStatus::kInvalidRequest:
      return {"invalid request", "The measurement source cannot serve these channels or filters; try fewer."};
    case wifi::ScanStatus::kInterfaceGone:
      return {"no interface", "The daemon's radio has no network interface now; plug it in, or name another one."};
    case wifi::ScanStatus::kInterfaceDown:
      return {"interface down", "The radio's network interface is down; try: ip link set INTERFACE up"};
    case wifi::ScanStatus::kRadioBlocked:
      return {"radio blocked", "The radio is turned off; try: rfkill unblock wifi, or look for a switch or key."};
    case wifi::ScanStatus::kWrongInterface:
      return {"wrong interface", "The daemon was given an interface that cannot scan; give it a managed Wi-Fi one."};
    case wifi::ScanStatus::kNotPermitted:
      return {"not permitted", "The daemon may not use the radio; it needs the capability CAP_NET_ADMIN."};
  }
  return {"unknown", "The daemon's Wi-Fi library is newer than this kesctl; look into the daemon's log."};
}

StatusWords RangingWordsFor(wifi::ScanStatus status) {
  switch (status) {
    case wifi::ScanStatus::kUnsupported:
      return {"unsupported",
              "The daemon's measurement source cannot range: not every one can, and a capture never can."};
    case wifi::ScanStatus::kInvalidRequest:
      return {"invalid request", "The measurement source cannot serve these peers or channels; try fewer."};
    default:
      return WordsFor(status);
  }
}

std::string SourceName(wifi::SourceKind source) {
  switch (source) {
    case wifi::SourceKind::kUnknown:
      return "unknown";
    case wifi::SourceKind::kScene:
      return "scene";
    case wifi::SourceKind::kCapture:
      return "capture";
    case wifi::SourceKind::kRadio:
      return "radio";
  }
  return std::to_string(static_cast<uint32_t>(source));
}

std::string EndSentences(wifi::ScanStatus status, const StatusWords& words) {
  return "the request ended with status " + std::to_string(static_cast<uint32_t>(status)) + " (" +
         std::string(words.name) + "). " + std::string(words.advice);
}

std::string RangingStatusName(wifi::RangingStatus status) {
  switch (status) {
    case wifi::RangingStatus::kSuccess:
      return "success";
    case wifi::RangingStatus::kFailed:
      return "failed";
    case wifi::RangingStatus::kNoResponse:
      return "no-response";
    case wifi::RangingStatus::kUnknownPeer:
      return "unknown-peer";
    case wifi::RangingStatus::kNotCapable:
      return "not-capable";
    case wifi::RangingStatus::kRejected:
      return "rejected";
    case wifi::RangingStatus::kWrongChannel:
      return "wrong-channel";
    case wifi::RangingStatus::kBusy:
      return "busy";
    case wifi::RangingStatus::kInvalidTimestamp:
      return "invalid-timestamp";
    case wifi::RangingStatus::kChangedParameters:
      return "changed-parameters";
    case wifi::RangingStatus::kNotMeasured:
      return "not-measured";
  }
  return "unknown(" + std::to_string(static_cast<uint32_t>(status)) + ")";
}

std::string AgeWords(uint32_t ageMs) {
  const uint32_t seconds = ageMs / 1000;
  if (seconds < 10) return std::to_string(seconds) + '.' + std::to_string(ageMs / 100 % 10) + " s";
  if (seconds < 120) return std::to_string(seconds) + " s";
  if (seconds < 2 * 3600) return std::to_string(seconds / 60) + " min";
  return std::to_string(seconds / 3600) + " h";
}

}  // namespace kesctl
