// The socket that a launched program serves, and its file.
#ifndef KESD_HOST_LAUNCHER_SOCKET_FILE_H_
#define KESD_HOST_LAUNCHER_SOCKET_FILE_H_

#include <optional>
#include <string>

#include "host/fenksocket/unique_fd.h"
#include "host/launcher/options.h"

namespace launcher {

// A listening Unix stream socket at a path. It listens from the start, so that a client which connects while the
// program is still starting waits instead of being refused.
//
// A lock file beside it (PATH.lock, which stays) is held from before the path is looked at until this object ends or
// this process executes another program: of several launchers of one path at once, one makes the socket and the
// others find it served.
class SocketFile {
 public:
  // Makes the socket that `options` asks for. A socket that nobody listens on is replaced; one that is served and a
  // file that is no socket are left alone. At no moment does the file permit more than `options.mode`. The directory
  // must exist, but for that of the default path, which is made. Nothing after it has said on standard error why not.
  static std::optional<SocketFile> Make(const Options& options);

  // Closed when this object ends; close-on-exec is set.
  int Descriptor() const { return socket.Get(); }

  // Takes the file away again.
  void Remove() const;

 private:
  SocketFile(std::string filePath, fenk::UniqueFd heldLock, fenk::UniqueFd listeningSocket);

  std::string path;
  fenk::UniqueFd lock;
  fenk::UniqueFd socket;
};

}  // namespace launcher

#endif  // KESD_HOST_LAUNCHER_SOCKET_FILE_H_
