#include "kel/treewalk.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <utility>
#include <vector>

#include "kel/fileio.h"
#include "kel/stop.h"

namespace kel {
namespace {

constexpr int kOpenLevel = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK;

/// A directory that the walk is in.
struct Level {
  std::string name;
  struct stat info;
  std::vector<std::pair<std::string, struct stat>> pending;  // directories in it, still to enter
};

bool IsSame(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

bool IsDots(const char* name) {
  return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0;
}

class Walk {
 public:
  explicit Walk(TreeVisitor& visitor) : visitor_(visitor) {}

  FileStatus Run(int dir, const char* name) {
    struct stat info;
    if (::fstatat(dir, name, &info, AT_SYMLINK_NOFOLLOW) != 0) {
      return StatusOfErrno(errno, FileStatus::Failed);
    }
    if (!S_ISDIR(info.st_mode)) return FileStatus::NotValid;
    FileStatus status = Descend(dir, name, info);
    while (status == FileStatus::Ok && !levels_.empty()) {
      CheckStop();
      if (levels_.back().pending.empty()) {
        status = Ascend(dir);
        continue;
      }
      const auto next = std::move(levels_.back().pending.back());
      levels_.back().pending.pop_back();
      status = Descend(here_.Get(), next.first.c_str(), next.second);
    }
    return status;
  }

 private:
  FileStatus Descend(int dir, const char* name, const struct stat& info) {
    bool skip = false;
    const FileStatus entered = visitor_.Enter(dir, name, info, skip);
    if (entered != FileStatus::Ok || skip) return entered;
    Descriptor child(::openat(dir, name, kOpenLevel));
    if (!child.IsOpen()) {
      if (levels_.empty()) return StatusOfErrno(errno, FileStatus::Unreadable);
      return errno == ENOENT ? FileStatus::Ok : Blocked();
    }
    levels_.push_back({name, {}, {}});
    if (::fstat(child.Get(), &levels_.back().info) != 0)
      return FailedBySystem(FileStatus::Unreadable);
    here_ = std::move(child);
    return List();
  }

  FileStatus Blocked() {
    FailedBySystem(FileStatus::Ok);
    return visitor_.Blocked();
  }

  FileStatus List() {
    const int copy = ::openat(here_.Get(), ".", kOpenLevel);
    const std::unique_ptr<DIR, int (*)(DIR*)> stream(copy >= 0 ? ::fdopendir(copy) : nullptr,
                                                     &::closedir);
    if (stream == nullptr) {
      Descriptor unused(copy);
      return FailedBySystem(FileStatus::Unreadable);
    }
    while (true) {
      CheckStop();
      errno = 0;
      const dirent* entry = ::readdir(stream.get());
      if (entry == nullptr)
        return errno == 0 ? FileStatus::Ok : FailedBySystem(FileStatus::Unreadable);
      if (IsDots(entry->d_name)) continue;
      struct stat info;
      if (::fstatat(here_.Get(), entry->d_name, &info, AT_SYMLINK_NOFOLLOW) != 0) {
        const FileStatus status = errno == ENOENT ? FileStatus::Ok : Blocked();
        if (status != FileStatus::Ok) return status;
        continue;
      }
      if (S_ISDIR(info.st_mode)) {
        levels_.back().pending.emplace_back(entry->d_name, info);
        continue;
      }
      const FileStatus status = visitor_.Entry(here_.Get(), entry->d_name, info);
      if (status != FileStatus::Ok) return status;
    }
  }

  FileStatus Ascend(int outside) {
    const Level done = std::move(levels_.back());
    levels_.pop_back();
    if (levels_.empty()) {
      here_.Close();
      return visitor_.Leave(outside, done.name.c_str(), done.info);
    }
    Descriptor parent(::openat(here_.Get(), "..", kOpenLevel));
    struct stat info;
    // Moved elsewhere meanwhile, ".." is somebody else's directory.
    if (!parent.IsOpen() || ::fstat(parent.Get(), &info) != 0 ||
        !IsSame(info, levels_.back().info)) {
      return FileStatus::Failed;
    }
    here_ = std::move(parent);
    return visitor_.Leave(here_.Get(), done.name.c_str(), done.info);
  }

  TreeVisitor& visitor_;
  Descriptor here_;
  std::vector<Level> levels_;
};

}  // namespace

FileStatus WalkTree(int dir, const char* name, TreeVisitor& visitor) {
  return Walk(visitor).Run(dir, name);
}

}  // namespace kel
