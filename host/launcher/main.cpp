// kesd-launch: makes the daemon's control socket and becomes the daemon, as init does on the device.

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <variant>

#include "host/launcher/options.h"
#include "host/launcher/socket_file.h"

namespace {

constexpr char kVariable[] = "ANDROID_SOCKET_kesd";
constexpr int kFailure = 1;
constexpr int kNotFound = 127;

// So that no socket or lock takes the place of a standard stream which the caller closed.
bool OpenStandardStreams() {
  int fd = 0;
  do {
    fd = open("/dev/null", O_RDWR);
    if (fd < 0) return false;
  } while (fd <= STDERR_FILENO);
  close(fd);
  return true;
}

// The exit status of a launch that came to nothing.
int Launch(int argc, char** argv) {
  const std::variant<launcher::Options, int> parsed = launcher::ParseOptions(argc, argv);
  if (const int* const answered = std::get_if<int>(&parsed)) return *answered;
  const auto& options = std::get<launcher::Options>(parsed);

  const std::optional<launcher::SocketFile> socketFile = launcher::SocketFile::Make(options);
  if (!socketFile) return kFailure;
  const int fd = socketFile->Descriptor();
  if (fcntl(fd, F_SETFD, 0) == 0 && setenv(kVariable, std::to_string(fd).c_str(), 1) == 0) {
    execvp(options.program[0], options.program);
  }
  const int error = errno;
  socketFile->Remove();
  fprintf(stderr, "kesd-launch: cannot run %s: %s\n", options.program[0], strerror(error));
  return error == ENOENT ? kNotFound : kFailure;
}

}  // namespace

int main(int argc, char** argv) {
  if (!OpenStandardStreams()) return kFailure;
  try {
    return Launch(argc, argv);
  } catch (...) {  // nothing else is thrown here
    fputs("kesd-launch: out of memory\n", stderr);
    return kFailure;
  }
}
