#include "kel/hostpath.h"

#include <unistd.h>

#include <atomic>
#include <mutex>

#include "kel/dirs.h"
#include "kel/pathparser.h"

namespace kel {
namespace {

/// Where the host was when scripts began to move, and where they went. A current directory that is
/// another one again was chosen by the host.
struct Moves {
  std::atomic<bool> any = false;
  std::mutex mutex;
  std::string host;
  std::string script;
};

/// Left to the end of the process: contexts may outlive other statics.
Moves& TheMoves() {
  static Moves* const moves = new Moves;
  return *moves;
}

std::string HostDirectory() {
  Moves& moves = TheMoves();
  const std::lock_guard lock(moves.mutex);
  std::string current = CurrentDirectory();
  return moves.any && current == moves.script ? moves.host : current;
}

}  // namespace

std::string HostPath(std::string_view path) {
  if (!TheMoves().any.load(std::memory_order_acquire)) return std::string(path);
  return SettledHostPath(path);
}

std::string SettledHostPath(std::string_view path) {
  if (path.empty() || !PathIsRelative(path)) return std::string(path);
  const std::string directory = HostDirectory();
  return directory.empty() ? std::string() : JoinPath(directory, path);
}

int MoveForScript(int directory) {
  Moves& moves = TheMoves();
  const std::lock_guard lock(moves.mutex);
  std::string before = CurrentDirectory();
  if (::fchdir(directory) != 0) return -1;
  if (!moves.any || before != moves.script) moves.host = std::move(before);
  moves.script = CurrentDirectory();
  moves.any.store(true, std::memory_order_release);
  return 0;
}

}  // namespace kel
