// Moves trees to another file system; declared in dirs.h.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <utility>
#include <vector>

#include "kel/cipher.h"
#include "kel/dirs.h"
#include "kel/filecopy.h"
#include "kel/fileio.h"
#include "kel/filestat.h"
#include "kel/kelformat.h"
#include "kel/stop.h"
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
  if (::lseek(from, 0, SEEK_SET) != 0 || ::lseek(to, 0, SEEK_SET) != 0)
    return FailedBySystem(FileStatus::Failed);
  if (!SameContents(from, to, length, status)) return FileStatus::Unwritable;
  KeepOwner(to, info);
  if (::fchmod(to, info.st_mode & 07777) != 0) return FailedBySystem(FileStatus::Unwritable);
  KeepTimes(to, info);
  // What somebody else adds while it is copied would be lost with the source.
  return IsUnchanged(from, info) ? FileStatus::Ok : FileStatus::Failed;
}

FileStatus CopyRegular(int dir, const char* name, int target, const char* newName,
                       const struct stat& info) {
  const Descriptor from(::openat(dir, name, O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
  if (!from.IsOpen()) return FailedBySystem(FileStatus::Unreadable);
  const Descriptor to(::openat(target, newName, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  if (!to.IsOpen()) return FailedBySystem(FileStatus::Unwritable);
  return CopyOpenFile(from.Get(), to.Get(), info);
}

FileStatus CopyLink(int dir, const char* name, int target, const char* newName) {
  std::array<char, PATH_MAX> link;
  const ssize_t length = ::readlinkat(dir, name, link.data(), link.size() - 1);
  if (length < 0) return FailedBySystem(FileStatus::Unreadable);
  link[static_cast<size_t>(length)] = '\0';
  return ::symlinkat(link.data(), target, newName) == 0 ? FileStatus::Ok
                                                        : FailedBySystem(FileStatus::Unwritable);
}

/// Anything but a directory. Pipes, sockets and devices are not copied.
FileStatus CopyEntry(int dir, const char* name, int target, const char* newName,
                     const struct stat& info) {
  if (S_ISLNK(info.st_mode)) return CopyLink(dir, name, target, newName);
  if (!S_ISREG(info.st_mode)) return FileStatus::NotValid;
  return CopyRegular(dir, name, target, newName, info);
}

/// A sum that changes when an entry comes, goes or is written to, whatever order they are met in.
class TreeSum {
 public:
  void Add(const struct stat& info) {
    uint64_t hash = 0;
    for (const uint64_t part : {static_cast<uint64_t>(info.st_ino),
                                static_cast<uint64_t>(info.st_size), Time(info.st_ctim)}) {
      hash = (hash ^ part) * 0x9E3779B97F4A7C15U;
      hash ^= hash >> 32;
    }
    sum_ += hash;
  }
  bool operator==(const TreeSum&) const = default;

 private:
  static uint64_t Time(const timespec& time) {
    return static_cast<uint64_t>(time.tv_sec) * 1'000'000'000U +
           static_cast<uint64_t>(time.tv_nsec);
  }
  uint64_t sum_ = 0;
};

/// Looks again at what was copied. The top itself changes by being renamed and does not count.
class TreeSummer : public TreeVisitor {
 public:
  FileStatus Entry(int, const char*, const struct stat& info) override {
    sum_.Add(info);
    return FileStatus::Ok;
  }
  FileStatus Enter(int, const char*, const struct stat& info, bool&) override {
    if (!std::exchange(isTop_, false)) sum_.Add(info);
    return FileStatus::Ok;
  }
  FileStatus Leave(int, const char*, const struct stat&) override { return FileStatus::Ok; }
  const TreeSum& Sum() const { return sum_; }

 private:
  bool isTop_ = true;
  TreeSum sum_;
};

/// Keeps one descriptor of the copy open, the directory that the walk is in.
class TreeCopier : public TreeVisitor {
 public:
  TreeCopier(int target, const char* topName) : outside_(target), topName_(topName) {}

  FileStatus Entry(int dir, const char* name, const struct stat& info) override {
    sum_.Add(info);
    return CopyEntry(dir, name, here_.Get(), name, info);
  }

  FileStatus Enter(int, const char* name, const struct stat& info, bool&) override {
    const bool isTop = levels_.empty();
    if (isTop) device_ = info.st_dev;
    // Another file system that is mounted in the tree stays where it is, and the copy itself, when
    // it grows in one of those, has no end.
    if (info.st_dev != device_ || (!isTop && IsSame(levels_.front(), info))) {
      return FileStatus::Failed;
    }
    if (!isTop) sum_.Add(info);
    const int parent = isTop ? outside_ : here_.Get();
    const char* newName = isTop ? topName_ : name;
    if (::mkdirat(parent, newName, 0700) != 0) return FailedBySystem(FileStatus::Unwritable);
    Descriptor level(::openat(parent, newName, kOpenLevel));
    struct stat made;
    if (!level.IsOpen() || ::fstat(level.Get(), &made) != 0)
      return FailedBySystem(FileStatus::Unwritable);
    levels_.push_back(made);
    here_ = std::move(level);
    return FileStatus::Ok;
  }

  FileStatus Leave(int, const char*, const struct stat& info) override {
    const Descriptor level = std::move(here_);
    levels_.pop_back();
    if (!levels_.empty()) {
      here_ = Descriptor(::openat(level.Get(), "..", kOpenLevel));
      struct stat parent;
      if (!here_.IsOpen() || ::fstat(here_.Get(), &parent) != 0 ||
          !IsSame(parent, levels_.back())) {
        return FileStatus::Failed;
      }
    }
    KeepOwner(level.Get(), info);
    const bool good = ::fchmod(level.Get(), info.st_mode & 07777) == 0;
    KeepTimes(level.Get(), info);
    return good ? FileStatus::Ok : FailedBySystem(FileStatus::Unwritable);
  }

  const TreeSum& Sum() const { return sum_; }

 private:
  static constexpr int kOpenLevel = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
  static bool IsSame(const struct stat& a, const struct stat& b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
  }

  int outside_;
  const char* topName_;
  dev_t device_ = 0;
  Descriptor here_;
  std::vector<struct stat> levels_;
  TreeSum sum_;
};

/// A name beside that of a place which nobody else has.
std::string NameBeside(const std::string& path) {
  // A long name keeps its start, so that the new one fits too.
  const size_t name = path.rfind('/') + 1;  // 0 without a separator
  return Format("%S.%S.%lx.tmp", path.substr(0, name), path.substr(name, 200), RandomNonce());
}

FileStatus Rename(int dir, const std::string& from, const std::string& to) {
  return RenameToFree(dir, from.c_str(), dir, to.c_str()) == 0
             ? FileStatus::Ok
             : StatusOfErrno(errno, FileStatus::Unwritable);
}

/// The name is on the disk before what it replaces goes.
void SyncParent(int dir, const std::string& path) {
  const std::string parent = path.substr(0, path.rfind('/') + 1);  // "" without a separator
  const Descriptor level(
      ::openat(dir, parent.empty() ? "." : parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (level.IsOpen()) ::fsync(level.Get());
}

/// Brings a copy to the disk: a tree at one go, for file by file would take far longer.
FileStatus Flush(int dir, const std::string& name, const struct stat& info) {
  if (S_ISLNK(info.st_mode)) return FileStatus::Ok;
  // A descriptor for reading will do, but not every copy may be read by whoever owns it.
  const Descriptor copy(::openat(dir, name.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
  if (!copy.IsOpen()) return errno == EACCES ? FileStatus::Ok : FailedBySystem(FileStatus::Failed);
  const int result = S_ISDIR(info.st_mode) ? ::syncfs(copy.Get()) : ::fsync(copy.Get());
  return result == 0 ? FileStatus::Ok : FailedBySystem(FileStatus::Failed);
}

/// Copies a file or a tree, and says what was found. Left by a stop, it leaves what it has copied.
FileStatus Copy(const Place& from, const struct stat& info, int target, const std::string& name,
                TreeSum& sum) {
  if (!S_ISDIR(info.st_mode)) {
    return CopyEntry(from.Dir(), from.Name(), target, name.c_str(), info);
  }
  TreeCopier copier(target, name.c_str());
  const FileStatus status = WalkTree(from.Dir(), from.Name(), copier);
  sum = copier.Sum();
  return status;
}

/// Whether what has the name now is what was copied.
bool IsAsCopied(int dir, const std::string& name, const struct stat& info, const TreeSum& sum) {
  struct stat now;
  if (::fstatat(dir, name.c_str(), &now, AT_SYMLINK_NOFOLLOW) != 0) return false;
  if (!S_ISDIR(info.st_mode)) {
    return now.st_ino == info.st_ino && now.st_size == info.st_size &&
           now.st_mtim.tv_sec == info.st_mtim.tv_sec && now.st_mtim.tv_nsec == info.st_mtim.tv_nsec;
  }
  TreeSummer summer;
  return WalkTree(dir, name.c_str(), summer) == FileStatus::Ok && summer.Sum() == sum;
}

}  // namespace

FileStatus MoveByCopy(const Place& from, const Place& to) {
  struct stat info;
  if (::fstatat(from.Dir(), from.Name(), &info, AT_SYMLINK_NOFOLLOW) != 0) {
    return StatusOfErrno(errno, FileStatus::Failed);
  }
  if (Exists(to)) return FileStatus::Exists;
  // The copy grows under a name of its own beside the destination, so that it is there whole or
  // not at all. The source is put aside before: who may not do that could not remove it either, and
  // nobody finds it by its name any more and writes to what is about to go.
  const std::string copy = NameBeside(to.Name());
  const std::string aside = NameBeside(from.Name());
  TreeSum sum;
  FileStatus status = FileStatus::Ok;
  try {
    status = Copy(from, info, to.Dir(), copy, sum);
  } catch (const Interrupted&) {
    const Interruptible cleaning(false);
    RemoveTree(to.Dir(), copy.c_str());
    throw;
  }
  // From here on it is done to the end: half-way, there would be neither the one nor the other.
  const Interruptible moving(false);
  if (status == FileStatus::Ok) status = Flush(to.Dir(), copy, info);
  if (status == FileStatus::Ok) status = Rename(from.Dir(), from.Name(), aside);
  if (status == FileStatus::Ok) {
    status = IsAsCopied(from.Dir(), aside, info, sum) ? Rename(to.Dir(), copy, to.Name())
                                                      : FileStatus::Failed;
    const bool arrived = status == FileStatus::Ok;
    if (arrived) SyncParent(to.Dir(), to.Name());
    if (arrived) status = RemoveTree(from.Dir(), aside.c_str());
    const KeptReason kept;
    if (status != FileStatus::Ok) Rename(from.Dir(), aside, from.Name());
    if (arrived) return status;
  }
  const KeptReason kept;
  if (status != FileStatus::Ok) RemoveTree(to.Dir(), copy.c_str());
  return status;
}

}  // namespace kel
