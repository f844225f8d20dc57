#include "client/socket_access.h"

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <vector>

namespace kesctl {
namespace {

std::vector<gid_t> GroupsOfProcess() {
  std::vector<gid_t> groups(static_cast<std::size_t>(std::max(getgroups(0, nullptr), 0)));
  const int count = getgroups(static_cast<int>(groups.size()), groups.data());
  groups.resize(static_cast<std::size_t>(std::max(count, 0)));
  if (std::find(groups.begin(), groups.end(), getegid()) == groups.end()) groups.insert(groups.begin(), getegid());
  return groups;
}

// Whether the system's files say that this process's user is in `group`, as a new login would find.
bool IsMember(gid_t group) {
  const passwd* user = getpwuid(geteuid());
  if (user == nullptr) return false;
  int count = 0;
  (void)getgrouplist(user->pw_name, user->pw_gid, nullptr, &count);
  std::vector<gid_t> groups(static_cast<std::size_t>(count));
  if (getgrouplist(user->pw_name, user->pw_gid, groups.data(), &count) < 0) return false;
  return std::find(groups.begin(), groups.end(), group) != groups.end();
}

std::optional<Barrier> BarrierAt(const std::string& path, int right) {
  Barrier barrier{path, {}};
  if (access(path.c_str(), right) == 0 || errno != EACCES) return std::nullopt;
  if (stat(path.c_str(), &barrier.status) != 0) return std::nullopt;
  return barrier;
}

}  // namespace

std::string UserName(uid_t user) {
  const passwd* entry = getpwuid(user);
  return entry != nullptr ? entry->pw_name : std::to_string(user);
}

std::string GroupName(gid_t group) {
  const ::group* entry = getgrgid(group);
  return entry != nullptr ? entry->gr_name : std::to_string(group);
}

std::string Ownership(const struct stat& status) {
  char mode[16];
  std::snprintf(mode, sizeof mode, " %04o", static_cast<unsigned>(status.st_mode) & 07777u);
  return UserName(status.st_uid) + ':' + GroupName(status.st_gid) + mode;
}

std::string Whoami() {
  std::string groups;
  for (const gid_t group : GroupsOfProcess()) groups.append(groups.empty() ? "" : ", ").append(GroupName(group));
  return UserName(geteuid()) + " (groups " + groups + ')';
}

std::optional<Barrier> FindBarrier(const std::string& path) {
  for (std::size_t end = path.find('/', 1); end != std::string::npos; end = path.find('/', end + 1)) {
    if (std::optional<Barrier> folder = BarrierAt(path.substr(0, end), X_OK)) return folder;
  }
  return BarrierAt(path, W_OK);
}

std::string WayPast(const Barrier& barrier) {
  const mode_t mode = barrier.status.st_mode;
  const gid_t group = barrier.status.st_gid;
  const std::string right = barrier.IsFolder() ? "x" : "w";
  if (barrier.status.st_uid == geteuid()) return "Give yourself the right: chmod u+" + right + ' ' + barrier.path;
  // Nobody is told to join the group of root.
  if (group != 0 && (mode & (barrier.IsFolder() ? S_IXGRP : S_IWGRP)) != 0) {
    const std::string name = GroupName(group);
    if (IsMember(group)) return "You were put into group " + name + " after you logged in: log in again.";
    return "Add yourself to group " + name + ": sudo usermod -aG " + name + ' ' + UserName(geteuid()) +
           ", then log in again.";
  }
  const std::string asOwner = "Run kesctl as " + UserName(barrier.status.st_uid) + ", or have ";
  if (barrier.IsFolder()) return asOwner + "others let in: chmod o+x " + barrier.path;
  return asOwner + "the daemon started by kesd-launch --group GROUP, with a group that you are in.";
}

}  // namespace kesctl
