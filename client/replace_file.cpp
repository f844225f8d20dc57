#include "client/replace_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <system_error>
#include <variant>

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
  bool SetPermissions(mode_t mode) const { return fchmod(fd.Get(), mode) == 0; }
  bool SetOwner(uid_t user, gid_t group) const { return fchown(fd.Get(), user, group) == 0; }
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

// Where a path leads.
struct Place {
  std::string path;  // without links
  std::optional<struct stat> there;
};

// Or why nothing can be put there. A rename would take the place of a link, a device or a pipe, too.
std::variant<Place, std::string> Find(const std::string& path) {
  struct stat status {};
  if (const std::unique_ptr<char, decltype(&std::free)> real(realpath(path.c_str(), nullptr), &std::free); real) {
    if (stat(real.get(), &status) != 0) return Reason();
    if (!S_ISREG(status.st_mode)) return "something other than a regular file is there";
    return Place{real.get(), status};
  }
  if (errno != ENOENT) return Reason();
  if (lstat(path.c_str(), &status) == 0) return "a link to nothing is there";
  return Place{path, std::nullopt};
}

mode_t ModeOfNewFiles() {
  const mode_t mask = umask(0);
  umask(mask);
  return 0666 & ~mask;
}

// Nobody may read it who could not read what it takes the place of.
bool AdoptRights(const TemporaryFile& file, const std::optional<struct stat>& old) {
  if (!old) return file.SetPermissions(ModeOfNewFiles());
  const mode_t mode = old->st_mode & 0777;
  return file.SetPermissions(file.SetOwner(old->st_uid, old->st_gid) ? mode : mode & 0700);
}

}  // namespace

std::optional<std::string> WhyNotReplaceable(const std::string& path) {
  const auto place = Find(path);
  if (const auto* why = std::get_if<std::string>(&place)) return *why;
  if (!TemporaryFile(std::get<Place>(place).path).IsOpen()) return Reason();
  return std::nullopt;
}

std::optional<std::string> ReplaceFile(const std::string& path, std::string_view content) {
  const auto found = Find(path);
  if (const auto* why = std::get_if<std::string>(&found)) return *why;
  const Place& place = std::get<Place>(found);
  TemporaryFile file(place.path);
  if (file.IsOpen() && file.Write(content) && AdoptRights(file, place.there) && file.MoveTo(place.path)) {
    return std::nullopt;
  }
  return Reason();
}

}  // namespace kesctl
