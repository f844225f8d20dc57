#include "host/log/line.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string_view>

namespace hostlog {
namespace {

constexpr size_t kMessageBytes = 2048;   // of a message, before it is escaped
constexpr size_t kLineBytes = PIPE_BUF;  // a pipe takes this much in one piece, whoever else writes to it
constexpr size_t kTagBytes = 64;         // of a tag, before it is escaped
constexpr std::string_view kCutMark = " [cut]";

class ErrnoKeeper {
 public:
  ErrnoKeeper() : kept(errno) {}
  ~ErrnoKeeper() { errno = kept; }
  ErrnoKeeper(const ErrnoKeeper&) = delete;
  ErrnoKeeper& operator=(const ErrnoKeeper&) = delete;

 private:
  int kept;
};

// Fills a line from the front and keeps room for the cut mark and the newline.
class LineBuffer {
 public:
  void Plain(std::string_view text) {
    const size_t taken = std::min(text.size(), kRoom - used);
    std::copy_n(text.data(), taken, line.data() + used);
    used += taken;
  }

  // False when `text` was cut, which happens between two characters.
  bool Escaped(std::string_view text) {
    for (const char c : text) {
      std::array<char, 8> escape;
      const std::string_view shown = Escape(c, escape);
      if (shown.size() > kRoom - used) return false;
      Plain(shown);
    }
    return true;
  }

  std::string_view Finish(bool cut) {
    if (cut) {
      std::copy(kCutMark.begin(), kCutMark.end(), line.data() + used);
      used += kCutMark.size();
    }
    line[used++] = '\n';
    return {line.data(), used};
  }

 private:
  static constexpr size_t kRoom = kLineBytes - kCutMark.size() - 1;

  static std::string_view Escape(char c, std::array<char, 8>& buffer) {
    switch (c) {
      case '\n':
        return "\\n";
      case '\r':
        return "\\r";
      case '\t':
        return "\\t";
      case '\\':
        return "\\\\";
      default:
        break;
    }
    if (c >= ' ' && c <= '~') {
      buffer[0] = c;
      return {buffer.data(), 1};
    }
    constexpr char kDigits[] = "0123456789abcdef";
    const auto byte = static_cast<unsigned char>(c);
    buffer = {'\\', 'x', kDigits[byte >> 4], kDigits[byte & 0xF]};
    return {buffer.data(), 4};
  }

  std::array<char, kLineBytes> line;
  size_t used = 0;
};

// A reader of standard error that has gone must not end the process, whatever the process does about SIGPIPE.
class SigpipeBlocker {
 public:
  SigpipeBlocker() {
    sigemptyset(&pipeOnly);
    sigaddset(&pipeOnly, SIGPIPE);
    sigset_t pending;
    sigpending(&pending);
    wasPending = sigismember(&pending, SIGPIPE) == 1;
    blocked = pthread_sigmask(SIG_BLOCK, &pipeOnly, &before) == 0;
  }
  ~SigpipeBlocker() {
    if (!blocked) return;
    if (raised && !wasPending) {
      const timespec now = {};
      while (sigtimedwait(&pipeOnly, nullptr, &now) < 0 && errno == EINTR) {
      }
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
  }
  SigpipeBlocker(const SigpipeBlocker&) = delete;
  SigpipeBlocker& operator=(const SigpipeBlocker&) = delete;

  void Raised() { raised = true; }

 private:
  sigset_t pipeOnly;
  sigset_t before;
  bool wasPending = false;
  bool blocked = false;
  bool raised = false;
};

void WriteToStandardError(std::string_view line) {
  SigpipeBlocker blocker;
  while (write(STDERR_FILENO, line.data(), line.size()) < 0) {
    if (errno == EPIPE) blocker.Raised();
    if (errno != EINTR) return;
  }
}

void Head(LineBuffer& line, Level level, const char* tag) {
  timespec now = {};
  clock_gettime(CLOCK_REALTIME, &now);
  tm local = {};
  localtime_r(&now.tv_sec, &local);
  std::array<char, 40> text;
  size_t length = strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &local);
  line.Plain({text.data(), length});
  length = static_cast<size_t>(snprintf(text.data(), text.size(), ".%03d %c ",
                                        static_cast<int>(now.tv_nsec / 1'000'000), "-EWID"[static_cast<int>(level)]));
  line.Plain({text.data(), length});
  line.Escaped({tag, strnlen(tag, kTagBytes)});
  length = static_cast<size_t>(snprintf(text.data(), text.size(), " %d: ", static_cast<int>(gettid())));
  line.Plain({text.data(), length});
}

}  // namespace

void WriteLine(Level level, const char* tag, const char* format, std::va_list arguments) noexcept {
  const ErrnoKeeper errnoKeeper;
  std::array<char, kMessageBytes> message;
  const int wanted = vsnprintf(message.data(), message.size(), format, arguments);
  // A format that cannot be carried out (a wide character without a multibyte form) is shown as it is.
  std::string_view text = wanted < 0 ? std::string_view(format) : std::string_view(message.data());
  const bool longer = wanted >= static_cast<int>(message.size());
  if (!longer && text.ends_with('\n')) text.remove_suffix(1);

  LineBuffer line;
  Head(line, level, tag == nullptr ? "" : tag);
  const bool whole = line.Escaped(text);
  WriteToStandardError(line.Finish(longer || !whole));
}

void WriteLine(Level level, const char* tag, const char* format, ...) noexcept {
  std::va_list arguments;
  va_start(arguments, format);
  WriteLine(level, tag, format, arguments);
  va_end(arguments);
}

}  // namespace hostlog
