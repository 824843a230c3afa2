#include "kel/hostpath.h"

#include <unistd.h>

#include <atomic>
#include <mutex>

#include "kel/dirs.h"
#include "kel/file.h"
#include "kel/pathparser.h"

namespace kel {
namespace {

/// The current directory itself, whatever scripts call it meanwhile.
FileStamp Here() {
  FileStamp stamp;
  GetFileStamp(".", stamp);
  return stamp;
}

/// Where the host was when scripts began to move, and where they went. A current directory that is
/// another one again was chosen by the host.
struct Moves {
  std::atomic<bool> any = false;
  std::mutex mutex;
  std::string host;
  FileStamp script;

  bool IsAtScripts() const {
    const FileStamp here = Here();
    return any && here.device == script.device && here.inode == script.inode;
  }
};

/// Left to the end of the process: contexts may outlive other statics.
Moves& TheMoves() {
  static Moves* const moves = new Moves;
  return *moves;
}

std::string HostDirectoryOf(const Moves& moves) {
  return moves.IsAtScripts() ? moves.host : CurrentDirectory();
}

}  // namespace

std::string HostPath(std::string_view path) {
  if (!TheMoves().any.load(std::memory_order_acquire)) return std::string(path);
  return SettledHostPath(path);
}

std::string SettledHostPath(std::string_view path) {
  if (path.empty() || !PathIsRelative(path)) return std::string(path);
  Moves& moves = TheMoves();
  const std::lock_guard lock(moves.mutex);
  const std::string directory = HostDirectoryOf(moves);
  return directory.empty() ? std::string() : JoinPath(directory, path);
}

int MoveForScript(int directory) {
  Moves& moves = TheMoves();
  const std::lock_guard lock(moves.mutex);
  std::string host = HostDirectoryOf(moves);
  if (::fchdir(directory) != 0) return -1;
  moves.host = std::move(host);
  moves.script = Here();
  moves.any.store(true, std::memory_order_release);
  return 0;
}

}  // namespace kel
