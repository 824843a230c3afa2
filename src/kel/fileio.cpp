#include "kel/fileio.h"

#include <fcntl.h>
#include <poll.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <memory>

#include "kel/cipher.h"
#include "kel/kelformat.h"

namespace kel {
namespace {

/// The directory and the name that a path ends at when links are followed. A link that leads
/// nowhere is taken as the name itself.
std::string FinalPath(const char* path) {
  const std::unique_ptr<char, decltype(&std::free)> real(::realpath(path, nullptr), &std::free);
  return real != nullptr ? std::string(real.get()) : std::string(path);
}

/// Creates a new file beside `name`.
Descriptor CreateBeside(int dir, const std::string& name, std::string& temporary) {
  // A long name keeps its start, so that the temporary one fits too.
  const std::string_view start = std::string_view(name).substr(0, 200);
  for (int attempt = 0; attempt < 16; ++attempt) {
    temporary = Format("%S.%lx.tmp", start, RandomNonce());
    Descriptor file(
        ::openat(dir, temporary.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0666));
    if (file.IsOpen() || errno != EEXIST) return file;
  }
  return {};
}

/// Gives `from` the name `to` unless that is taken.
bool RenameNew(int dir, const char* from, const char* to) {
  if (::renameat2(dir, from, dir, to, RENAME_NOREPLACE) == 0) return true;
  if (errno != EINVAL && errno != ENOSYS) return false;
  // A file system without that call: a second name is refused when it is taken, too.
  return ::linkat(dir, from, dir, to, 0) == 0 && ::unlinkat(dir, from, 0) == 0;
}

}  // namespace

FileStatus StatusOfErrno(int error, FileStatus otherwise) {
  switch (error) {
    case ENOENT:
    case ENOTDIR:
    case ENAMETOOLONG:
      return FileStatus::Missing;
    case ENXIO:  // a socket, or a device without a driver
    case ENODEV:
    case EISDIR:
    case ELOOP:
      return FileStatus::NotValid;
    case EEXIST:
    case ENOTEMPTY:
      return FileStatus::Exists;
    case EFBIG:
      return FileStatus::TooLarge;
    default:
      return otherwise;
  }
}

FileStatus OpenRegular(const Place& place, Descriptor& file, uint64_t& size) {
  if (!place.IsFound()) return FileStatus::Missing;
  const int follow = place.IsConfined() ? O_NOFOLLOW : 0;
  file = Descriptor(
      ::openat(place.Dir(), place.Name(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY | follow));
  if (!file.IsOpen()) return StatusOfErrno(errno, FileStatus::Unreadable);
  struct stat info;
  if (::fstat(file.Get(), &info) != 0) return FileStatus::Unreadable;
  if (!S_ISREG(info.st_mode)) return FileStatus::NotValid;
  size = static_cast<uint64_t>(info.st_size);
  return FileStatus::Ok;
}

int64_t ReadFull(int descriptor, char* buffer, size_t size) {
  size_t used = 0;
  while (used < size) {
    const ssize_t count = ::read(descriptor, buffer + used, size - used);
    if (count == 0) break;
    if (count > 0) {
      used += static_cast<size_t>(count);
    } else if (errno != EINTR) {
      return -1;
    }
  }
  return static_cast<int64_t>(used);
}

int64_t ReadFullAt(int descriptor, uint64_t offset, char* buffer, size_t size) {
  size_t used = 0;
  while (used < size) {
    const ssize_t count =
        ::pread(descriptor, buffer + used, size - used, static_cast<off_t>(offset + used));
    if (count == 0) break;
    if (count > 0) {
      used += static_cast<size_t>(count);
    } else if (errno != EINTR) {
      return -1;
    }
  }
  return static_cast<int64_t>(used);
}

bool WriteFull(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = ::write(descriptor, bytes.data(), bytes.size());
    if (count >= 0) {
      bytes.remove_prefix(static_cast<size_t>(count));
    } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
      pollfd waiting{descriptor, POLLOUT, 0};
      if (::poll(&waiting, 1, -1) < 0 && errno != EINTR) return false;
    } else if (errno != EINTR) {
      return false;
    }
  }
  return true;
}

FileStatus ReadFile(const Place& place, std::string& out, uint64_t maxBytes) {
  out.clear();
  Descriptor file;
  uint64_t size = 0;
  const FileStatus status = OpenRegular(place, file, size);
  if (status != FileStatus::Ok) return status;
  if (size > maxBytes) return FileStatus::TooLarge;
  // One byte more than expected, so that the end shows in the first call after the data.
  out.resize(size + 1);
  size_t used = 0;
  while (true) {
    const int64_t count = ReadFull(file.Get(), out.data() + used, out.size() - used);
    if (count >= 0) used += static_cast<size_t>(count);
    const bool ended = count >= 0 && used < out.size();
    if (count < 0 || used > maxBytes) {
      out.clear();
      return count < 0 ? FileStatus::Unreadable : FileStatus::TooLarge;
    }
    if (ended) break;
    out.resize(out.size() + std::max<size_t>(out.size() / 2, 65536));
  }
  out.resize(used);
  return FileStatus::Ok;
}

ReplacedFile::~ReplacedFile() {
  if (file_.IsOpen()) ::unlinkat(dir_.Get(), temporary_.c_str(), 0);
}

FileStatus ReplacedFile::Open(const Place& place, Mode mode) {
  if (!place.IsFound()) return FileStatus::Missing;
  mode_ = mode;
  // A confined place is final already: its last name is no link, or must not be followed.
  const std::string target =
      place.IsConfined() ? std::string(place.Name()) : FinalPath(place.Name());
  const size_t slash = target.rfind('/');
  const std::string parent = slash == std::string::npos ? "." : target.substr(0, slash + 1);
  name_ = slash == std::string::npos ? target : target.substr(slash + 1);
  dir_ = Descriptor(::openat(place.Dir(), parent.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!dir_.IsOpen()) return StatusOfErrno(errno, FileStatus::Unwritable);
  struct stat old;
  exists_ = ::fstatat(dir_.Get(), name_.c_str(), &old, AT_SYMLINK_NOFOLLOW) == 0;
  if (name_.empty() || (exists_ && S_ISDIR(old.st_mode))) return FileStatus::NotValid;
  if (exists_ && mode == Mode::CreateNew) return FileStatus::Exists;
  // What is left of a link that leads nowhere is replaced by the file.
  if (exists_ && S_ISLNK(old.st_mode) && !place.IsConfined()) exists_ = false;
  if (exists_ && !S_ISREG(old.st_mode)) return FileStatus::NotValid;
  if (exists_ && mode == Mode::Replace &&
      ::faccessat(dir_.Get(), name_.c_str(), W_OK, AT_EACCESS) != 0) {
    return FileStatus::Unwritable;
  }
  if (exists_) {
    oldMode_ = old.st_mode & 07777;
    owner_ = old.st_uid;
    group_ = old.st_gid;
  }
  file_ = CreateBeside(dir_.Get(), name_, temporary_);
  return file_.IsOpen() ? FileStatus::Ok : StatusOfErrno(errno, FileStatus::Unwritable);
}

FileStatus ReplacedFile::Commit(bool flush) {
  bool good = true;
  if (exists_) {
    struct stat now;
    good = ::fstat(file_.Get(), &now) == 0;
    if (good && (now.st_uid != owner_ || now.st_gid != group_)) {
      good = ::fchown(file_.Get(), owner_, group_) == 0;
    }
    good = good && ::fchmod(file_.Get(), oldMode_) == 0;
  } else if (newMode_ != 0) {
    good = ::fchmod(file_.Get(), newMode_) == 0;
  }
  good = good && (!flush || ::fsync(file_.Get()) == 0);
  good = file_.Close() && good;
  FileStatus status = good ? FileStatus::Ok : FileStatus::Unwritable;
  if (good) {
    good = mode_ == Mode::CreateNew
               ? RenameNew(dir_.Get(), temporary_.c_str(), name_.c_str())
               : ::renameat(dir_.Get(), temporary_.c_str(), dir_.Get(), name_.c_str()) == 0;
    if (!good) status = StatusOfErrno(errno, FileStatus::Unwritable);
  }
  if (!good) ::unlinkat(dir_.Get(), temporary_.c_str(), 0);
  return status;
}

FileStatus ReplaceFile(const Place& place, std::string_view bytes) {
  ReplacedFile file;
  const FileStatus status = file.Open(place);
  if (status != FileStatus::Ok) return status;
  return file.Write(bytes) ? file.Commit() : FileStatus::Unwritable;
}

}  // namespace kel
