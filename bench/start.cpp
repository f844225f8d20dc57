// From the daemon's start to its first answer, beside a server that does nothing else; and the sizes of its files.
#include <fcntl.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "bench/contender.h"
#include "bench/system_calls.h"
#include "bench/unix_address.h"
#include "host/fenksocket/unique_fd.h"

namespace {

using bench::ClientEnd;
using bench::Contender;
using fenk::UniqueFd;
using std::chrono::steady_clock;
namespace fs = std::filesystem;

struct Effort {
  int starts;         // of each contender, in turn
  int countedStarts;  // of each contender, under strace
};
constexpr Effort kFull{30, 5};
constexpr Effort kQuick{7, 3};

constexpr char kSource[] = "scene:delay=0,aps=20";
constexpr char kControlSocket[] = "ANDROID_SOCKET_kesd";
constexpr auto kPatience = std::chrono::seconds(30);
// How late the client may notice that it can connect; far below what is measured.
constexpr auto kGlance = std::chrono::microseconds(50);

std::system_error SystemError(const std::string& what) { return {errno, std::generic_category(), what}; }

template <typename Value>
Value Median(std::vector<Value> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

class TemporaryDirectory {
 public:
  TemporaryDirectory() {
    std::string pattern = (fs::temp_directory_path() / "kesd-bench-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) throw SystemError("mkdtemp");
    path = pattern;
  }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  ~TemporaryDirectory() {
    std::error_code ignored;
    fs::remove_all(path, ignored);
  }
  fs::path path;
};

// The trivial server: takes one connection and answers one byte with another until the client leaves.

UniqueFd ListenAt(const std::string& path) {
  UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const sockaddr_un address = bench::AddressOf(path);
  if (bind(socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) throw SystemError("bind");
  if (listen(socket.Get(), 1) != 0) throw SystemError("listen");
  return socket;
}

// Without a path: at the socket that the launcher made.
void ServeTrivially(const char* path) {
  const char* const inherited = std::getenv(kControlSocket);
  if (path == nullptr && inherited == nullptr) throw std::runtime_error("no socket to serve");
  const UniqueFd listening = path != nullptr ? ListenAt(path) : UniqueFd(std::stoi(inherited));
  const UniqueFd connection(accept4(listening.Get(), nullptr, nullptr, SOCK_CLOEXEC));
  char byte;
  while (read(connection.Get(), &byte, 1) == 1 && write(connection.Get(), &byte, 1) == 1) {
  }
}

class TrivialClient final : public ClientEnd {
 public:
  explicit TrivialClient(const std::string& path) : socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    const sockaddr_un address = bench::AddressOf(path);
    if (connect(socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
      throw SystemError("connect");
    }
  }
  std::size_t Request() override {
    char byte = 0;
    if (write(socket.Get(), &byte, 1) != 1 || read(socket.Get(), &byte, 1) != 1) throw SystemError("no answer");
    return 1;
  }

 private:
  const UniqueFd socket;
};

std::unique_ptr<ClientEnd> ConnectTrivially(const std::string& path, const bench::Payload&) {
  return std::make_unique<TrivialClient>(path);
}

std::string ThisProgram() { return fs::read_symlink("/proc/self/exe").string(); }

Contender Trivial() {
  return {"a trivial server",
          [](const std::string& path, const bench::Payload&) {
            execl(ThisProgram().c_str(), "start", "--serve", path.c_str(), nullptr);
          },
          ConnectTrivially};
}

Contender LaunchedTrivial() {
  return {"the same, through kesd-launch",
          [](const std::string& path, const bench::Payload&) {
            execl(KESD_BINARY_DIR "/bin/kesd-launch", "kesd-launch", "--socket", path.c_str(), "--",
                  ThisProgram().c_str(), "--serve", nullptr);
          },
          ConnectTrivially};
}

// A process that waits to become a contender's server. Ends with this object.
class Starter {
 public:
  Starter(const Contender& contender, const std::string& path) : id(fork()) {
    if (id < 0) throw SystemError("fork");
    if (id == 0) Become(contender, path);
    int status = 0;
    if (waitpid(id, &status, WUNTRACED) != id || !WIFSTOPPED(status)) throw std::runtime_error("a child is gone");
  }
  Starter(const Starter&) = delete;
  ~Starter() {
    kill(id, SIGTERM);
    kill(id, SIGCONT);
    const auto deadline = steady_clock::now() + kPatience;
    while (Runs() && steady_clock::now() < deadline) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    kill(id, SIGKILL);
    waitpid(id, nullptr, 0);
  }

  pid_t Id() const { return id; }
  bool Runs() const { return waitpid(id, nullptr, WNOHANG) == 0; }
  void Go() const { kill(id, SIGCONT); }

 private:
  [[noreturn]] static void Become(const Contender& contender, const std::string& path) {
    try {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      dup2(open("/dev/null", O_RDWR | O_CLOEXEC), STDERR_FILENO);  // the daemon's log
      kill(getpid(), SIGSTOP);
      contender.serve(path, {});
    } catch (...) {  // the client finds no server
    }
    _exit(1);
  }

  const pid_t id;
};

// Returns when the first request has been answered.
std::unique_ptr<ClientEnd> StartAndAsk(const Starter& starter, const Contender& contender, const std::string& path) {
  starter.Go();
  std::unique_ptr<ClientEnd> client;
  const auto deadline = steady_clock::now() + kPatience;
  while (client == nullptr) {
    try {
      client = contender.connect(path, {});
    } catch (const std::exception&) {
      if (!starter.Runs() || steady_clock::now() > deadline) throw;
      std::this_thread::sleep_for(kGlance);
    }
  }
  client->Request();
  return client;
}

double MillisecondsToFirstAnswer(const Contender& contender) {
  const TemporaryDirectory directory;
  const std::string path = directory.path / "socket";
  const Starter starter(contender, path);
  const auto begin = steady_clock::now();
  const auto client = StartAndAsk(starter, contender, path);
  return std::chrono::duration<double, std::milli>(steady_clock::now() - begin).count();
}

bench::SystemCalls CallsToFirstAnswer(const Contender& contender) {
  const TemporaryDirectory directory;
  const std::string path = directory.path / "socket";
  const Starter starter(contender, path);
  std::unique_ptr<ClientEnd> client;  // leaves when nobody counts any more
  return bench::CountSystemCalls(starter.Id(), [&] { client = StartAndAsk(starter, contender, path); });
}

void CompareStarts(const Effort& effort) {
  setenv("VEXO_SOURCE", kSource, 1);
  const std::array contenders{Trivial(), LaunchedTrivial(), bench::Kesd()};
  std::array<std::vector<double>, contenders.size()> times;
  std::array<std::vector<uint64_t>, contenders.size()> futex, others;
  for (int i = 0; i < effort.starts; ++i) {
    for (std::size_t j = 0; j < contenders.size(); ++j) times[j].push_back(MillisecondsToFirstAnswer(contenders[j]));
  }
  for (int i = 0; i < effort.countedStarts; ++i) {
    for (std::size_t j = 0; j < contenders.size(); ++j) {
      const bench::SystemCalls calls = CallsToFirstAnswer(contenders[j]);
      futex[j].push_back(calls.futex);
      others[j].push_back(calls.others);
    }
  }
  std::printf("### From the start to the first answer: a discovery request, 20 access points\n\n");
  std::printf("| | median ms | x trivial | least ms | system calls |\n|---|---|---|---|---|\n");
  for (std::size_t j = 0; j < contenders.size(); ++j) {
    const double median = Median(times[j]);
    std::printf("| %s | %.2f | %.2f | %.2f | %llu + %llu futex |\n", contenders[j].name, median,
                median / Median(times[0]), *std::min_element(times[j].begin(), times[j].end()),
                static_cast<unsigned long long>(Median(others[j])), static_cast<unsigned long long>(Median(futex[j])));
  }
}

void Strip(const fs::path& from, const fs::path& to) {
  std::array<std::string, 4> words{"strip", "-o", to.string(), from.string()};
  std::array<char*, 5> arguments{words[0].data(), words[1].data(), words[2].data(), words[3].data(), nullptr};
  pid_t id = -1;
  int status = -1;
  if (posix_spawnp(&id, "strip", nullptr, nullptr, arguments.data(), environ) != 0 || waitpid(id, &status, 0) != id ||
      status != 0) {
    throw std::runtime_error("cannot strip " + from.string());
  }
}

void ListSizes() {
  const fs::path programs = KESD_BINARY_DIR "/bin", libraries = KESD_BINARY_DIR "/lib/kesd";
  const TemporaryDirectory directory;
  std::printf("\n### Sizes, bytes\n\n| | as built | stripped |\n|---|---|---|\n");
  for (const fs::path& file :
       {programs / "kesd", libraries / "libfenksocket.so", libraries / "libvexo_client.so",
        libraries / "libzv_loc_fw.so", libraries / "libcutils.so", programs / "kesd-launch", programs / "kesctl"}) {
    const fs::path stripped = directory.path / file.filename();
    Strip(file, stripped);
    std::printf("| %s | %ju | %ju |\n", file.filename().c_str(), fs::file_size(file), fs::file_size(stripped));
  }
}

}  // namespace

int main(int argc, char** argv) try {
  const std::vector<std::string> arguments(argv + 1, argv + argc);
  if (!arguments.empty() && arguments[0] == "--serve") {
    ServeTrivially(argc > 2 ? argv[2] : nullptr);
    return 0;
  }
  const bool quick = arguments == std::vector<std::string>{"--quick"};
  if (!quick && !arguments.empty()) {
    std::fprintf(stderr, "Usage: start [--quick]\n");
    return 2;
  }
  CompareStarts(quick ? kQuick : kFull);
  ListSizes();
  return 0;
} catch (const std::exception& e) {
  std::fprintf(stderr, "start: %s\n", e.what());
  return 1;
}
