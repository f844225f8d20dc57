#include "host/log/levels.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <optional>
#include <string_view>

namespace hostlog {
namespace {

constexpr const char* kVariable = "KES_LOG";
constexpr const char* kOwnTag = "log";
constexpr int kDefaultLevel = static_cast<int>(Level::kWarning);
constexpr int kHighestLevel = static_cast<int>(Level::kDebug);
constexpr size_t kNameBytes = 32;  // tags that agree in these share a level
constexpr size_t kMaxTags = 64;

struct TagLevel {
  std::array<char, kNameBytes> name;  // filled up with zeros; never changes once the entry is published
  std::atomic<int> local;
  std::atomic<int> environment;

  bool IsFor(std::string_view tag) const {
    return tag.size() <= kNameBytes && strncmp(name.data(), tag.data(), tag.size()) == 0 &&
           (tag.size() == kNameBytes || name[tag.size()] == '\0');
  }
};

// Entries are only ever added, behind `tagCount`, so that readers need no lock. Nothing here has a destructor:
// messages are written until the process is gone.
constinit std::array<TagLevel, kMaxTags> tagLevels{};
constinit std::atomic<size_t> tagCount{0};
constinit std::atomic<int> environmentLevel{0};  // for every tag
constinit std::mutex addMutex;

std::string_view Key(const char* tag) {
  return tag == nullptr ? std::string_view() : std::string_view(tag, strnlen(tag, kNameBytes));
}

TagLevel* Find(std::string_view tag) {
  const size_t count = tagCount.load(std::memory_order_acquire);
  for (size_t i = 0; i < count; ++i) {
    if (tagLevels[i].IsFor(tag)) return &tagLevels[i];
  }
  return nullptr;
}

// Null when the table is full.
TagLevel* FindOrAdd(std::string_view tag) {
  const std::lock_guard lock(addMutex);
  if (TagLevel* const found = Find(tag)) return found;
  const size_t count = tagCount.load(std::memory_order_relaxed);
  if (count == kMaxTags) return nullptr;
  TagLevel& added = tagLevels[count];
  std::copy(tag.begin(), tag.end(), added.name.begin());
  added.local.store(kDefaultLevel, std::memory_order_relaxed);
  tagCount.store(count + 1, std::memory_order_release);
  return &added;
}

void Raise(std::atomic<int>& level, int to) {
  level.store(std::max(level.load(std::memory_order_relaxed), to), std::memory_order_relaxed);
}

std::optional<int> LevelOfWord(std::string_view word) {
  constexpr std::array<std::string_view, kHighestLevel> kWords = {"error", "warning", "info", "debug"};
  const auto found = std::find(kWords.begin(), kWords.end(), word);
  if (found == kWords.end()) return std::nullopt;
  return static_cast<int>(found - kWords.begin()) + 1;
}

std::string_view Trimmed(std::string_view text) {
  const size_t first = text.find_first_not_of(' ');
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

// One item of the variable: "LEVEL" or "TAG=LEVEL". False when it is neither.
bool Apply(std::string_view item) {
  const size_t equals = item.find('=');
  if (equals == std::string_view::npos) {
    const std::optional<int> level = LevelOfWord(item);
    if (level) Raise(environmentLevel, *level);
    return level.has_value();
  }
  const std::string_view tag = Trimmed(item.substr(0, equals));
  const std::optional<int> level = LevelOfWord(Trimmed(item.substr(equals + 1)));
  if (!level || tag.empty()) return false;
  TagLevel* const entry = FindOrAdd(tag.substr(0, kNameBytes));
  if (entry != nullptr) Raise(entry->environment, *level);
  return entry != nullptr;
}

bool ReadEnvironment() {
  const char* const value = getenv(kVariable);  // NOLINT(concurrency-mt-unsafe): nobody here changes it
  std::string_view rest = value == nullptr ? "" : value;
  while (!rest.empty()) {
    const std::string_view item = Trimmed(rest.substr(0, rest.find(',')));
    rest.remove_prefix(std::min(rest.size(), rest.find(',') == rest.npos ? rest.npos : rest.find(',') + 1));
    if (!item.empty() && !Apply(item)) {
      WriteLine(Level::kWarning, kOwnTag,
                "%s: \"%.*s\" ignored: expected LEVEL or TAG=LEVEL, where LEVEL is error, warning, info or debug",
                kVariable, static_cast<int>(std::min<size_t>(item.size(), 100)), item.data());
    }
  }
  return true;
}

void EnsureEnvironmentRead() { [[maybe_unused]] static const bool read = ReadEnvironment(); }

}  // namespace

bool IsAdmitted(const char* tag, Level level) noexcept {
  EnsureEnvironmentRead();
  int admitted = environmentLevel.load(std::memory_order_relaxed);
  if (const TagLevel* const entry = Find(Key(tag))) {
    admitted = std::max(
        {admitted, entry->local.load(std::memory_order_relaxed), entry->environment.load(std::memory_order_relaxed)});
  } else {
    admitted = std::max(admitted, kDefaultLevel);
  }
  return static_cast<int>(level) <= admitted;
}

void SetLocalLevel(const char* tag, int level) noexcept {
  EnsureEnvironmentRead();
  TagLevel* const entry = FindOrAdd(Key(tag));
  if (entry == nullptr) {
    WriteLine(Level::kWarning, kOwnTag, "No room for the level of tag \"%s\": it keeps the default", tag);
    return;
  }
  entry->local.store(std::clamp(level, 0, kHighestLevel), std::memory_order_relaxed);
}

}  // namespace hostlog
