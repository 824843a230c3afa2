// Copies trees; declared in dirs.h.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <vector>

#include "kel/cipher.h"
#include "kel/dirs.h"
#include "kel/filecopy.h"
#include "kel/fileio.h"
#include "kel/filestat.h"
#include "kel/kelformat.h"
#include "kel/treewalk.h"

namespace kel {
namespace {

void KeepTimes(int descriptor, const struct stat& info) {
  const std::array<timespec, 2> times = {info.st_atim, info.st_mtim};
  ::futimens(descriptor, times.data());
}

/// The owner is kept where the system allows it, which it does for the superuser.
void KeepOwner(int descriptor, const struct stat& info) {
  if (::fchown(descriptor, info.st_uid, info.st_gid) != 0) return;
}

/// Whether an open file is the one that was looked at, and as it was then.
bool IsUnchanged(int descriptor, const struct stat& info) {
  struct stat now;
  return ::fstat(descriptor, &now) == 0 && now.st_dev == info.st_dev && now.st_ino == info.st_ino &&
         now.st_size == info.st_size && now.st_mtim.tv_sec == info.st_mtim.tv_sec &&
         now.st_mtim.tv_nsec == info.st_mtim.tv_nsec;
}

FileStatus CopyOpenFile(int from, int to, const struct stat& info) {
  const auto length = static_cast<uint64_t>(info.st_size);
  FileStatus status = FileStatus::Ok;
  // A full disk is no lack of permission.
  if (!CopyContents(from, length, to, status)) return FileStatus::Failed;
  if (::lseek(from, 0, SEEK_SET) != 0 || ::lseek(to, 0, SEEK_SET) != 0) return FileStatus::Failed;
  if (!SameContents(from, to, length, status)) return FileStatus::Unwritable;
  KeepOwner(to, info);
  if (::fchmod(to, info.st_mode & 07777) != 0) return FileStatus::Unwritable;
  KeepTimes(to, info);
  if (::fsync(to) != 0) return FileStatus::Unwritable;
  // What somebody else adds while it is copied would be lost with the source.
  return IsUnchanged(from, info) ? FileStatus::Ok : FileStatus::Failed;
}

FileStatus CopyRegular(int dir, const char* name, int target, const char* newName,
                       const struct stat& info) {
  const Descriptor from(::openat(dir, name, O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
  if (!from.IsOpen()) return FileStatus::Unreadable;
  const Descriptor to(::openat(target, newName, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  if (!to.IsOpen()) return FileStatus::Unwritable;
  return CopyOpenFile(from.Get(), to.Get(), info);
}

FileStatus CopyLink(int dir, const char* name, int target, const char* newName) {
  std::array<char, PATH_MAX> link;
  const ssize_t length = ::readlinkat(dir, name, link.data(), link.size() - 1);
  if (length < 0) return FileStatus::Unreadable;
  link[static_cast<size_t>(length)] = '\0';
  return ::symlinkat(link.data(), target, newName) == 0 ? FileStatus::Ok : FileStatus::Unwritable;
}

/// Anything but a directory. Pipes, sockets and devices are not copied.
FileStatus CopyEntry(int dir, const char* name, int target, const char* newName,
                     const struct stat& info) {
  if (S_ISLNK(info.st_mode)) return CopyLink(dir, name, target, newName);
  if (!S_ISREG(info.st_mode)) return FileStatus::NotValid;
  return CopyRegular(dir, name, target, newName, info);
}

class TreeCopier : public TreeVisitor {
 public:
  TreeCopier(int target, const char* topName) : outside_(target), topName_(topName) {}

  FileStatus Entry(int dir, const char* name, const struct stat& info) override {
    return CopyEntry(dir, name, levels_.back().Get(), name, info);
  }

  FileStatus Enter(int, const char* name, const struct stat&, bool&) override {
    const int parent = levels_.empty() ? outside_ : levels_.back().Get();
    const char* newName = levels_.empty() ? topName_ : name;
    if (::mkdirat(parent, newName, 0700) != 0) return FileStatus::Unwritable;
    Descriptor level(::openat(parent, newName, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!level.IsOpen()) return FileStatus::Unwritable;
    levels_.push_back(std::move(level));
    return FileStatus::Ok;
  }

  FileStatus Leave(int, const char*, const struct stat& info) override {
    const int level = levels_.back().Get();
    KeepOwner(level, info);
    const bool good = ::fchmod(level, info.st_mode & 07777) == 0;
    KeepTimes(level, info);
    levels_.pop_back();
    return good ? FileStatus::Ok : FileStatus::Unwritable;
  }

 private:
  int outside_;
  const char* topName_;
  std::vector<Descriptor> levels_;
};

}  // namespace

FileStatus CopyTree(const Place& from, const Place& to) {
  if (!from.IsFound() || !to.IsFound()) return FileStatus::Missing;
  struct stat info;
  if (::fstatat(from.Dir(), from.Name(), &info, AT_SYMLINK_NOFOLLOW) != 0) {
    return StatusOfErrno(errno, FileStatus::Failed);
  }
  // The copy grows under a name of its own beside the destination, so that it is there whole or
  // not at all.
  const std::string name = to.Name();
  const std::string temporary = Format("%S.%lx.tmp", name, RandomNonce());
  FileStatus status = FileStatus::Ok;
  if (S_ISDIR(info.st_mode)) {
    TreeCopier copier(to.Dir(), temporary.c_str());
    status = WalkTree(from.Dir(), from.Name(), copier);
  } else {
    status = CopyEntry(from.Dir(), from.Name(), to.Dir(), temporary.c_str(), info);
  }
  if (status == FileStatus::Ok &&
      ::renameat2(to.Dir(), temporary.c_str(), to.Dir(), name.c_str(), RENAME_NOREPLACE) != 0) {
    status = StatusOfErrno(errno, FileStatus::Unwritable);
  }
  if (status != FileStatus::Ok) RemoveTree(to.Dir(), temporary.c_str());
  return status;
}

}  // namespace kel
