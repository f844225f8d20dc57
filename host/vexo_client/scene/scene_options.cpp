#include "host/vexo_client/scene/scene_options.h"

#include <charconv>
#include <limits>
#include <span>

namespace vexo_host {
namespace {

constexpr uint64_t kMaxDelayMs = 600'000;
constexpr uint64_t kMaxFadingDb = 20;

struct Option {
  std::string_view key;
  uint64_t most;
  uint64_t value = 0;
  bool given = false;
};

std::string Quoted(std::string_view text) { return "\"" + std::string(text) + "\""; }

bool ParseOne(std::string_view item, std::span<Option> known, std::string& error) {
  const size_t equals = item.find('=');
  if (equals == std::string_view::npos) return error = Quoted(item) + " is not of the form KEY=VALUE", false;
  const std::string_view value = item.substr(equals + 1);
  for (Option& option : known) {
    if (item.substr(0, equals) != option.key) continue;
    if (option.given) return error = std::string(option.key) + " is given twice", false;
    const auto [end, problem] = std::from_chars(value.data(), value.data() + value.size(), option.value);
    option.given = problem == std::errc() && end == value.data() + value.size() && option.value <= option.most;
    if (!option.given) {
      error = std::string(option.key) + " must be a number from 0 to " + std::to_string(option.most) + ", not " +
              Quoted(value);
    }
    return option.given;
  }
  return error = "there is no key " + Quoted(item.substr(0, equals)), false;
}

}  // namespace

bool ParseSceneOptions(std::string_view text, SceneOptions& options, std::string& error) {
  Option known[] = {{"aps", kMaxAccessPoints},
                    {"seed", std::numeric_limits<uint64_t>::max()},
                    {"delay", kMaxDelayMs},
                    {"fading", kMaxFadingDb}};
  for (bool more = true; more;) {
    const size_t comma = text.find(',');
    if (!ParseOne(text.substr(0, comma), known, error)) return false;
    more = comma != std::string_view::npos;
    if (more) text.remove_prefix(comma + 1);
  }
  if (known[0].given) options.accessPoints = static_cast<uint32_t>(known[0].value);
  if (known[1].given) options.seed = known[1].value;
  if (known[2].given) options.delay = std::chrono::milliseconds(known[2].value);
  if (known[3].given) options.fadingDb = static_cast<uint32_t>(known[3].value);
  return true;
}

}  // namespace vexo_host
