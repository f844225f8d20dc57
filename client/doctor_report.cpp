#include "client/doctor_report.h"

#include <nlohmann/json.hpp>

namespace kesctl {
namespace {

struct Words {
  std::string_view state;
  std::string_view colour;
};

Words WordsOf(Verdict verdict) {
  switch (verdict) {
    case Verdict::kOk:
      return {"ok", "\033[32m"};  // green
    case Verdict::kFailed:
      return {"failed", "\033[31m"};  // red
    case Verdict::kSkipped:
      break;
  }
  return {"skipped", "\033[2m"};  // faint
}

std::string Padded(std::string_view text, std::size_t width) {
  std::string padded(text);
  padded.resize(std::max(width, text.size()), ' ');
  return padded;
}

}  // namespace

std::string DoctorText(const DoctorEntry& entry, bool colour) {
  const Words words = WordsOf(entry.finding.verdict);
  const std::string state = Padded(words.state, 9);
  std::string text = colour ? std::string(words.colour) + state + "\033[0m" : state;
  text += Padded(entry.check, 12) + entry.finding.detail + '\n';
  if (!entry.finding.advice.empty()) text += Padded("", 9 + 12) + "-> " + entry.finding.advice + '\n';
  return text;
}

std::string DoctorJson(std::span<const DoctorEntry> entries, int exitCode) {
  using Json = nlohmann::ordered_json;
  Json checks = Json::array();
  for (const auto& [check, finding] : entries) {
    Json& json = checks.emplace_back();
    json["name"] = check;
    json["state"] = WordsOf(finding.verdict).state;
    json["detail"] = finding.detail;
    if (finding.verdict == Verdict::kFailed) json["advice"] = finding.advice;
  }
  const Json json{{"ok", exitCode == kExitDelivered}, {"exit_code", exitCode}, {"checks", std::move(checks)}};
  constexpr bool kEnsureAscii = true;
  return json.dump(-1, ' ', kEnsureAscii) + '\n';
}

}  // namespace kesctl
