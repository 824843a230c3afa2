#include "kel/rotate.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "kel/descriptor.h"

namespace kel {
namespace {

bool IsSameFile(const struct stat& left, const struct stat& right) {
  return left.st_dev == right.st_dev && left.st_ino == right.st_ino;
}

std::string OldName(const Place& place, uint32_t number) {
  return std::string(place.Name()) + "." + std::to_string(number);
}

/// Whether the old file under a name can give way: nothing else is ours to move or to replace.
bool MayMove(int dir, const std::string& name) {
  struct stat info {};
  return ::fstatat(dir, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0 || S_ISREG(info.st_mode);
}

void MoveAway(const Place& place, uint32_t kept) {
  const int dir = place.Dir();
  for (uint32_t i = 1; i <= kept; ++i)
    if (!MayMove(dir, OldName(place, i))) return;
  if (kept == 0) {
    ::unlinkat(dir, place.Name(), 0);
    return;
  }
  for (uint32_t i = kept; i > 1; --i) {
    ::renameat(dir, OldName(place, i - 1).c_str(), dir, OldName(place, i).c_str());
  }
  ::renameat(dir, place.Name(), dir, OldName(place, 1).c_str());
}

}  // namespace

void RotateFile(const Place& place, uint64_t limit, uint32_t kept, uint64_t more) {
  struct stat info {};
  if (!place.IsFound()) return;
  if (::fstatat(place.Dir(), place.Name(), &info, AT_SYMLINK_NOFOLLOW) != 0) return;
  if (!S_ISREG(info.st_mode) || info.st_size == 0) return;
  if (static_cast<uint64_t>(info.st_size) + more <= limit) return;
  const Descriptor file(::openat(place.Dir(), place.Name(),
                                 O_WRONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  // Whoever finds it locked leaves the work to the other process and appends to either file.
  if (!file.IsOpen() || ::flock(file.Get(), LOCK_EX | LOCK_NB) != 0) return;
  struct stat open {};
  if (::fstat(file.Get(), &open) != 0) return;
  if (::fstatat(place.Dir(), place.Name(), &info, AT_SYMLINK_NOFOLLOW) != 0) return;
  // Only under its lock a file is moved, so it stays under the name from here on.
  if (IsSameFile(open, info)) MoveAway(place, kept);
}

}  // namespace kel
