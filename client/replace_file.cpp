#include "client/replace_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <system_error>
#include <utility>

#include "host/fenksocket/unique_fd.h"

namespace kesctl {
namespace {

std::string Reason() { return std::generic_category().message(errno); }

// A file of a name that nobody else has, beside `path`. It goes again, unless it was moved.
class TemporaryFile {
 public:
  explicit TemporaryFile(const std::string& path) : name(path.substr(0, path.rfind('/') + 1) + ".kesctl-XXXXXX") {
    fd.Reset(mkostemp(name.data(), O_CLOEXEC));
    isThere = fd.IsOpen();
  }
  ~TemporaryFile() {
    if (isThere) unlink(name.c_str());
  }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;

  // Each is false, with the reason in errno, when that failed.
  bool IsOpen() const { return fd.IsOpen(); }
  bool Write(std::string_view content) const {
    while (!content.empty()) {
      const ssize_t written = write(fd.Get(), content.data(), content.size());
      if (written < 0 && errno != EINTR) return false;
      if (written > 0) content.remove_prefix(static_cast<std::size_t>(written));
    }
    return fsync(fd.Get()) == 0;  // a rename may reach the disk before what was written does
  }
  bool SetPermissions() const {
    const mode_t mask = umask(0);
    umask(mask);
    return fchmod(fd.Get(), 0666 & ~mask) == 0;
  }
  bool MoveTo(const std::string& path) {
    const bool isMoved = rename(name.c_str(), path.c_str()) == 0;
    if (isMoved) isThere = false;
    return isMoved;
  }

 private:
  std::string name;
  fenk::UniqueFd fd;
  bool isThere;
};

// A rename would put a file in the place of a device or a pipe, too.
bool IsOtherThanAFile(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode);
}

constexpr char kNotAFile[] = "something other than a regular file is there";

}  // namespace

std::optional<std::string> WhyNotReplaceable(const std::string& path) {
  if (IsOtherThanAFile(path)) return kNotAFile;
  if (!TemporaryFile(path).IsOpen()) return Reason();
  return std::nullopt;
}

std::optional<std::string> ReplaceFile(const std::string& path, std::string_view content) {
  if (IsOtherThanAFile(path)) return kNotAFile;
  TemporaryFile file(path);
  if (file.IsOpen() && file.Write(content) && file.SetPermissions() && file.MoveTo(path)) return std::nullopt;
  return Reason();
}

}  // namespace kesctl
