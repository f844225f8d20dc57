#include "tests/process.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace testing_process {
namespace {

using std::chrono::steady_clock;
constexpr std::chrono::seconds kPatience{60};

struct Ends {
  fenk::UniqueFd read;
  fenk::UniqueFd write;
};

Ends MakeEnds(bool terminal) {
  int ends[2];
  const int failed = terminal ? openpty(&ends[0], &ends[1], nullptr, nullptr, nullptr) : pipe2(ends, O_CLOEXEC);
  if (failed != 0) throw std::runtime_error("no pipe or terminal");
  if (terminal) fcntl(ends[0], F_SETFD, FD_CLOEXEC);
  return {fenk::UniqueFd(ends[0]), fenk::UniqueFd(ends[1])};
}

// Appends what there is; closes the descriptor at its end, which of a terminal is EIO.
void ReadSome(fenk::UniqueFd& from, std::string& into) {
  char block[65536];
  const ssize_t size = read(from.Get(), block, sizeof block);
  if (size > 0) {
    into.append(block, static_cast<size_t>(size));
  } else if (size == 0 || errno != EINTR) {
    from.Reset(-1);
  }
}

std::vector<char*> Pointers(const std::vector<std::string>& strings) {
  std::vector<char*> pointers;
  for (const std::string& string : strings) pointers.push_back(const_cast<char*>(string.c_str()));
  pointers.push_back(nullptr);
  return pointers;
}

}  // namespace

#ifdef KESD_EMULATOR
std::vector<std::string> Emulated(const std::vector<std::string>& arguments) {
  std::vector<std::string> words;
  for (const std::string& argument : arguments) {
    const bool starts = words.empty() || words.back() == "--";
    if (starts && argument.starts_with(KESD_BINARY_DIR "/")) words.insert(words.end(), {KESD_EMULATOR});
    words.push_back(argument);
  }
  return words;
}
#else
std::vector<std::string> Emulated(const std::vector<std::string>& arguments) { return arguments; }
#endif

Process::Process(const std::vector<std::string>& arguments, Output output,
                 const std::vector<std::string>& environment) {
  Ends in = MakeEnds(false);
  Ends outEnds = MakeEnds(output == Output::kTerminal);
  Ends errEnds = MakeEnds(false);
  if (output == Output::kFull) outEnds.write.Reset(open("/dev/full", O_WRONLY | O_CLOEXEC));
  if (output == Output::kClosedPipe) outEnds.read.Reset(-1);
  const bool merged = output == Output::kMerged || output == Output::kTerminal;
  const std::vector<std::string> words = Emulated(arguments);
  const std::vector<char*> argv = Pointers(words);

  pid = fork();
  if (pid == 0) {
    for (const std::string& setting : environment) putenv(const_cast<char*>(setting.c_str()));
    const bool terminal = output == Output::kTerminal;
    if (terminal) {
      setsid();
      ioctl(outEnds.write.Get(), TIOCSCTTY, 0);
    }
    dup2(terminal ? outEnds.write.Get() : in.read.Get(), STDIN_FILENO);
    dup2(outEnds.write.Get(), STDOUT_FILENO);
    dup2(merged ? outEnds.write.Get() : errEnds.write.Get(), STDERR_FILENO);
    execv(argv[0], argv.data());
    _exit(127);
  }
  if (pid < 0) throw std::runtime_error("fork failed");
  input = std::move(in.write);
  out = std::move(outEnds.read);
  err = std::move(errEnds.read);
}

Process::Process(Process&& other) noexcept
    : pid(std::exchange(other.pid, -1)),
      input(std::move(other.input)),
      out(std::move(other.out)),
      err(std::move(other.err)),
      unread(std::move(other.unread)) {}

Process::~Process() {
  if (pid < 0) return;
  kill(pid, SIGKILL);
  waitpid(pid, nullptr, 0);
}

void Process::Signal(int signal) const {
  if (pid > 0) kill(pid, signal);
}

bool Process::IsRunning() const {
  siginfo_t info = {};
  return pid > 0 && waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid == 0;
}

bool Process::AwaitStop() const {
  siginfo_t info = {};
  return waitid(P_PID, static_cast<id_t>(pid), &info, WSTOPPED | WEXITED | WNOWAIT) == 0 && info.si_code == CLD_STOPPED;
}

std::string::size_type Process::Await(const std::string& part) {
  const steady_clock::time_point deadline = steady_clock::now() + kPatience;
  for (;;) {
    const std::string::size_type at = unread.find(part);
    if (at != std::string::npos || !out.IsOpen() || steady_clock::now() > deadline) return at;
    pollfd readable = {out.Get(), POLLIN, 0};
    if (poll(&readable, 1, 1000) == 1) ReadSome(out, unread);
  }
}

std::string Process::ReadLine() {
  const std::string::size_type end = Await("\n");
  if (end == std::string::npos) return "";
  std::string line = unread.substr(0, end);
  unread.erase(0, end + 1);
  return line;
}

std::string Process::ReadUntil(const std::string& part) {
  const std::string::size_type at = Await(part);
  const std::string::size_type size = at == std::string::npos ? unread.size() : at + part.size();
  std::string text = unread.substr(0, size);
  unread.erase(0, size);
  return text;
}

void Process::Type(const std::string& keys) const { (void)!write(out.Get(), keys.data(), keys.size()); }

void Process::Resize(unsigned short rows, unsigned short columns) const {
  const winsize size{rows, columns, 0, 0};
  ioctl(out.Get(), TIOCSWINSZ, &size);
}

std::vector<std::string> Process::ReadLinesUntil(const std::string& part) {
  std::vector<std::string> lines;
  do {
    lines.push_back(ReadLine());
  } while (!lines.back().empty() && lines.back().find(part) == std::string::npos);
  return lines;
}

bool Process::AwaitFullTerminal() const {
  const fenk::UniqueFd its(open(ptsname(out.Get()), O_RDWR | O_NOCTTY | O_CLOEXEC));
  const steady_clock::time_point deadline = steady_clock::now() + kPatience;
  pollfd room{its.Get(), POLLOUT, 0};
  while (poll(&room, 1, 0) == 1) {
    if (steady_clock::now() > deadline) return false;
    poll(nullptr, 0, 5);
  }
  return true;
}

bool Process::AwaitHangUp() const {
  pollfd ended{out.Get(), 0, 0};
  return poll(&ended, 1, std::chrono::milliseconds(kPatience).count()) == 1;
}

Outcome Process::Finish() {
  EndInput();
  Outcome outcome = {.exitCode = -1, .out = std::move(unread), .err = {}};
  bool killed = false;
  const steady_clock::time_point deadline = steady_clock::now() + kPatience;
  while (out.IsOpen() || err.IsOpen()) {
    pollfd watched[2] = {{out.Get(), POLLIN, 0}, {err.Get(), POLLIN, 0}};
    poll(watched, 2, 1000);
    if (watched[0].revents != 0) ReadSome(out, outcome.out);
    if (watched[1].revents != 0) ReadSome(err, outcome.err);
    if (!killed && steady_clock::now() > deadline) {
      Signal(SIGKILL);
      killed = true;
    }
  }
  int status = 0;
  waitpid(pid, &status, 0);
  pid = -1;
  if (!killed) outcome.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
  return outcome;
}

TemporaryDirectory::TemporaryDirectory() {
  std::string pattern = std::filesystem::temp_directory_path() / "kesd-test.XXXXXX";
  if (mkdtemp(pattern.data()) != nullptr) path = pattern;
}

TemporaryDirectory::~TemporaryDirectory() { std::filesystem::remove_all(path); }

std::vector<std::string> LinesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

Outcome Run(const std::vector<std::string>& arguments, const std::vector<std::string>& environment) {
  return Process(arguments, Output::kSeparate, environment).Finish();
}

}  // namespace testing_process
