#include "kel/hostpath.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <mutex>
#include <utility>

#include "kel/descriptor.h"
#include "kel/dirs.h"
#include "kel/pathparser.h"

namespace kel {
namespace {

/// Where the host was when scripts began to move, and where they went. A current directory that is
/// another one again was chosen by the host.
class Moves {
 public:
  std::atomic<bool> any = false;
  std::mutex mutex;

  std::string HostDirectory() {
    if (!IsAtScripts()) {
      script_ = Descriptor();
      host_ = CurrentDirectory();
    }
    return host_;
  }
  int Move(int directory) {
    HostDirectory();
    Descriptor kept(::fcntl(directory, F_DUPFD_CLOEXEC, 3));
    if (!kept.IsOpen() || ::fchdir(directory) != 0) return -1;
    script_ = std::move(kept);
    any.store(true, std::memory_order_release);
    return 0;
  }

 private:
  bool IsAtScripts() const {
    struct stat here;
    struct stat theirs;
    return script_.IsOpen() && ::stat(".", &here) == 0 && ::fstat(script_.Get(), &theirs) == 0 &&
           here.st_dev == theirs.st_dev && here.st_ino == theirs.st_ino;
  }

  std::string host_;
  /// Open, so that it stays itself whatever becomes of its name.
  Descriptor script_;
};

/// Left to the end of the process: contexts may outlive other statics.
Moves& TheMoves() {
  static Moves* const moves = new Moves;
  return *moves;
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
  const std::string directory = moves.HostDirectory();
  return directory.empty() ? std::string() : JoinPath(directory, path);
}

int MoveForScript(int directory) {
  Moves& moves = TheMoves();
  const std::lock_guard lock(moves.mutex);
  return moves.Move(directory);
}

}  // namespace kel
