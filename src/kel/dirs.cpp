#include "kel/dirs.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <memory>
#include <set>
#include <utility>

#include "kel/fileio.h"
#include "kel/filestat.h"
#include "kel/hostpath.h"
#include "kel/pathparser.h"
#include "kel/treewalk.h"

namespace kel {
namespace {

FileStatus Done(int result) {
  return result == 0 ? FileStatus::Ok : StatusOfErrno(errno, FileStatus::Failed);
}

class TreeDeleter : public TreeVisitor {
 public:
  FileStatus Entry(int dir, const char* name, const struct stat&) override {
    return Remove(dir, name, 0);
  }
  FileStatus Enter(int dir, const char* name, const struct stat& info, bool&) override {
    if ((info.st_mode & S_IRWXU) != S_IRWXU) Unlock(dir, name);
    return FileStatus::Ok;
  }
  FileStatus Leave(int dir, const char* name, const struct stat&) override {
    return Remove(dir, name, AT_REMOVEDIR);
  }

 private:
  /// What stays protected shows when something is removed from it.
  static void Unlock(int dir, const char* name) {
    const Descriptor level(::openat(dir, name, O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (level.IsOpen()) ChangeMode(level.Get(), S_IRWXU);
  }
  static FileStatus Remove(int dir, const char* name, int flags) {
    const int result = ::unlinkat(dir, name, flags);
    return result != 0 && errno == ENOENT ? FileStatus::Ok : Done(result);
  }
};

class TreeMeter : public TreeVisitor {
 public:
  explicit TreeMeter(const FilePolicy& policy) : policy_(policy) {}

  FileStatus Entry(int, const char*, const struct stat& info) override {
    if (S_ISREG(info.st_mode)) bytes_ += static_cast<uint64_t>(info.st_size);
    return FileStatus::Ok;
  }
  FileStatus Enter(int, const char*, const struct stat& info, bool& skip) override {
    skip =
        !seen_.insert({info.st_dev, info.st_ino}).second || policy_.Hides(info.st_dev, info.st_ino);
    return FileStatus::Ok;
  }
  FileStatus Leave(int, const char*, const struct stat&) override { return FileStatus::Ok; }
  FileStatus Blocked() override {
    status_ = FileStatus::Unreadable;
    return FileStatus::Ok;
  }

  uint64_t Bytes() const { return bytes_; }
  FileStatus Status() const { return status_; }

 private:
  const FilePolicy& policy_;
  FileStatus status_ = FileStatus::Ok;
  uint64_t bytes_ = 0;
  std::set<std::pair<dev_t, ino_t>> seen_;
};

/// Cuts separators off the end and gives what the path ends with.
std::string_view LastName(std::string_view path) {
  while (!path.empty() && path.back() == '/') path.remove_suffix(1);
  return path.substr(path.rfind('/') + 1);
}

bool IsUndeletable(const Place& place) {
  const std::string path = SystemPath(place.Path());
  const std::string_view last = LastName(path);
  return last.empty() || last == "." || last == "..";
}

FileStatus MakeDirectory(const FilePolicy& policy, const std::string& path) {
  const Place place = policy.Find(path, Access::Write);
  if (place.IsRefused()) return FileStatus::Failed;
  const FileStatus status = CreateDirectory(place);
  if (status != FileStatus::Exists) return status;
  return GetFileStat(place).kind == FileKind::Directory ? FileStatus::Ok : FileStatus::Exists;
}

}  // namespace

bool Exists(const Place& place) {
  struct stat info;
  return place.IsFound() && ::fstatat(place.Dir(), place.Name(), &info, AT_SYMLINK_NOFOLLOW) == 0;
}

FileStatus CreateDirectory(const Place& place) {
  if (!place.IsFound()) return FileStatus::Missing;
  return Done(::mkdirat(place.Dir(), place.Name(), 0777));
}

FileStatus CreatePath(const FilePolicy& policy, std::string_view path) {
  // Up to the first level that exists or can be made, then down again.
  std::vector<std::string> missing;
  std::string level = SystemPath(path.substr(0, PATH_MAX + 1));
  FileStatus status = MakeDirectory(policy, level);
  while (status == FileStatus::Missing) {
    const std::string_view last = LastName(level);
    const auto start = static_cast<size_t>(last.data() - level.data());
    if (last.empty() || start == 0 || level.size() > PATH_MAX) return FileStatus::Failed;
    missing.push_back(level);
    level = level.substr(0, start);
    status = MakeDirectory(policy, level);
  }
  while (status == FileStatus::Ok && !missing.empty()) {
    status = MakeDirectory(policy, missing.back());
    missing.pop_back();
  }
  return status;
}

FileStatus DeleteDirectory(const Place& place, bool force) {
  if (!place.IsFound()) return FileStatus::Missing;
  if (IsUndeletable(place)) return FileStatus::Failed;
  if (!force) return Done(::unlinkat(place.Dir(), place.Name(), AT_REMOVEDIR));
  TreeDeleter deleter;
  return WalkTree(place.Dir(), place.Name(), deleter);
}

FileStatus RemoveTree(int dir, const char* name) {
  if (::unlinkat(dir, name, 0) == 0 || errno == ENOENT) return FileStatus::Ok;
  TreeDeleter deleter;
  return WalkTree(dir, name, deleter);
}

FileStatus TreeSize(const FilePolicy& policy, const Place& place, uint64_t& bytes) {
  bytes = 0;
  if (!place.IsFound()) return FileStatus::Missing;
  // The directory that is asked for may be reached through a link; those below it are not.
  const int follow = place.IsConfined() ? O_NOFOLLOW : 0;
  const Descriptor top(
      ::openat(place.Dir(), place.Name(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | follow));
  if (!top.IsOpen()) return StatusOfErrno(errno, FileStatus::Unreadable);
  TreeMeter meter(policy);
  const FileStatus status = WalkTree(top.Get(), ".", meter);
  bytes = meter.Bytes();
  return status == FileStatus::Ok ? meter.Status() : status;
}

FileStatus ListFileNames(const Place& place, std::vector<std::string>& names) {
  names.clear();
  if (!place.IsFound()) return FileStatus::Missing;
  const int follow = place.IsConfined() ? O_NOFOLLOW : 0;
  const int top = ::openat(place.Dir(), place.Name(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | follow);
  if (top < 0) return StatusOfErrno(errno, FileStatus::Unreadable);
  const std::unique_ptr<DIR, int (*)(DIR*)> stream(::fdopendir(top), &::closedir);
  if (stream == nullptr) {
    Descriptor unused(top);
    return FileStatus::Unreadable;
  }
  while (const dirent* entry = ::readdir(stream.get())) {
    struct stat info;
    const bool known = entry->d_type != DT_UNKNOWN && entry->d_type != DT_LNK;
    if (known ? entry->d_type == DT_DIR
              : ::fstatat(top, entry->d_name, &info, 0) == 0 && S_ISDIR(info.st_mode)) {
      continue;
    }
    names.emplace_back(entry->d_name);
  }
  std::sort(names.begin(), names.end());
  return FileStatus::Ok;
}

int RenameToFree(int fromDir, const char* from, int toDir, const char* to) {
  if (::renameat2(fromDir, from, toDir, to, RENAME_NOREPLACE) == 0) return 0;
  if (errno != EINVAL && errno != ENOSYS) return -1;
  // Into itself, or a file system that cannot refuse to replace: then look first.
  struct stat info;
  if (::fstatat(toDir, to, &info, AT_SYMLINK_NOFOLLOW) != 0) {
    return ::renameat(fromDir, from, toDir, to);
  }
  errno = EEXIST;
  return -1;
}

FileStatus Move(const Place& from, const Place& to) {
  if (!from.IsFound() || !to.IsFound()) return FileStatus::Missing;
  struct stat info;
  if (::fstatat(from.Dir(), from.Name(), &info, AT_SYMLINK_NOFOLLOW) != 0) {
    return StatusOfErrno(errno, FileStatus::Failed);
  }
  if (RenameToFree(from.Dir(), from.Name(), to.Dir(), to.Name()) == 0) return FileStatus::Ok;
  if (errno == EACCES || errno == EPERM || errno == EROFS) {
    return FailedBySystem(FileStatus::Unwritable);
  }
  if (errno != EXDEV) return Done(-1);
  return IsUndeletable(from) ? FileStatus::Failed : MoveByCopy(from, to);
}

std::string CurrentDirectory() {
  // Without a buffer of ours there is no limit to its length.
  const std::unique_ptr<char, decltype(&std::free)> path(::getcwd(nullptr, 0), &std::free);
  return path != nullptr ? std::string(path.get()) : std::string();
}

FileStatus SetCurrentDirectory(const Place& place) {
  if (!place.IsFound()) return FileStatus::Missing;
  const int follow = place.IsConfined() ? O_NOFOLLOW : 0;
  const Descriptor dir(
      ::openat(place.Dir(), place.Name(), O_PATH | O_DIRECTORY | O_CLOEXEC | follow));
  if (!dir.IsOpen()) return StatusOfErrno(errno, FileStatus::Failed);
  return Done(MoveForScript(dir.Get()));
}

}  // namespace kel
