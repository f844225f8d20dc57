// Files that appear whole or not at all.
#ifndef KESD_CLIENT_REPLACE_FILE_H_
#define KESD_CLIENT_REPLACE_FILE_H_

#include <optional>
#include <string>
#include <string_view>

namespace kesctl {

// Why ReplaceFile would fail, as far as can be told before there is anything to write; nothing when it would not.
std::optional<std::string> WhyNotReplaceable(const std::string& path);

// Puts a file that holds `content` where `path` leads, links included, in the place of the regular file there, if there
// is one. It is written under another name in the same folder, so that nobody ever sees a part of it. It has the owner
// and the permissions of that file, or its permissions for the owner alone where the owner cannot be kept; else those
// that the umask leaves a new file. On failure all is as before, and the reason comes back.
std::optional<std::string> ReplaceFile(const std::string& path, std::string_view content);

}  // namespace kesctl

#endif  // KESD_CLIENT_REPLACE_FILE_H_
