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
#include <system_error>
#include <utility>

#include "kel/cipher.h"
#include "kel/kelformat.h"
#include "kel/longstring.h"
#include "kel/stop.h"

namespace kel {
namespace {

/// The directory and the name that a path ends at when links are followed. A link that leads
/// nowhere is taken as the name itself.
std::string FinalPath(const char* path) {
  const std::unique_ptr<char, decltype(&std::free)> real(::realpath(path, nullptr), &std::free);
  return real != nullptr ? std::string(real.get()) : std::string(path);
}

thread_local int lastError = 0;

constexpr mode_t kOwnerOnly = 0600;
constexpr mode_t kUsual = 0666;

/// Creates a new file beside `name`.
Descriptor CreateBeside(int dir, const std::string& name, mode_t mode, std::string& temporary) {
  // A long name keeps its start, so that the temporary one fits too.
  const std::string_view start = std::string_view(name).substr(0, 200);
  for (int attempt = 0; attempt < 16; ++attempt) {
    temporary = Format(".%S.%lx.tmp", start, RandomNonce());
    Descriptor file(
        ::openat(dir, temporary.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, mode));
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

FileStatus FailedBySystem(FileStatus status) {
  lastError = errno;
  return status;
}

KeptReason::KeptReason() : error_(lastError) {}
KeptReason::~KeptReason() { lastError = error_; }

std::string TakeReason() {
  const int error = std::exchange(lastError, 0);
  return error != 0 ? ": " + std::generic_category().message(error) : std::string();
}

FileStatus StatusOfErrno(int error, FileStatus otherwise) {
  lastError = error;
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

FileStatus CheckRegular(const Place& place) {
  if (!place.IsFound()) return FileStatus::Missing;
  struct stat info;
  const int look = place.IsConfined() ? AT_SYMLINK_NOFOLLOW : 0;
  if (::fstatat(place.Dir(), place.Name(), &info, look) != 0) {
    return StatusOfErrno(errno, FileStatus::Unreadable);
  }
  return S_ISREG(info.st_mode) ? FileStatus::Ok : FileStatus::NotValid;
}

FileStatus OpenRegular(const Place& place, Descriptor& file, uint64_t& size) {
  const FileStatus status = CheckRegular(place);
  if (status != FileStatus::Ok) return status;
  const int follow = place.IsConfined() ? O_NOFOLLOW : 0;
  file = Descriptor(
      ::openat(place.Dir(), place.Name(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY | follow));
  if (!file.IsOpen()) return StatusOfErrno(errno, FileStatus::Unreadable);
  struct stat info;
  if (::fstat(file.Get(), &info) != 0) return FailedBySystem(FileStatus::Unreadable);
  if (!S_ISREG(info.st_mode)) return FileStatus::NotValid;
  size = static_cast<uint64_t>(info.st_size);
  return FileStatus::Ok;
}

uint32_t CopiedPermissions(int descriptor) {
  struct stat info;
  return ::fstat(descriptor, &info) == 0 ? info.st_mode & 01777 : kOwnerOnly;
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

bool WriteFull(int descriptor, std::string_view bytes, size_t* written) {
  constexpr size_t kBytesPerLook = size_t{4} << 20;
  while (!bytes.empty()) {
    const ssize_t count = ::write(descriptor, bytes.data(), std::min(bytes.size(), kBytesPerLook));
    if (count >= 0) {
      bytes.remove_prefix(static_cast<size_t>(count));
      if (written != nullptr) *written += static_cast<size_t>(count);
      if (!bytes.empty()) CheckStop();
    } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
      pollfd waiting{descriptor, POLLOUT, 0};
      if (::poll(&waiting, 1, -1) < 0 && errno != EINTR) return false;
    } else if (errno != EINTR) {
      return false;
    }
  }
  return true;
}

int64_t FileReader::Read(char* buffer, size_t size) {
  if (left_ == 0) return isKnown_ ? 0 : -1;
  constexpr uint64_t kBytesPerLook = uint64_t{4} << 20;
  int64_t used = 0;
  uint64_t wanted = 0;
  int64_t count = 0;
  do {
    CheckStop();
    wanted = std::min({size - static_cast<uint64_t>(used), left_, kBytesPerLook});
    count = ReadFull(descriptor_, buffer + used, wanted);
    if (count < 0) return count;
    used += count;
    left_ -= static_cast<uint64_t>(count);
  } while (count > 0 && static_cast<uint64_t>(count) == wanted &&
           static_cast<uint64_t>(used) < size && left_ > 0);
  return used;
}

FileStatus ReadAll(int descriptor, uint64_t length, std::string& out, uint64_t maxBytes) {
  constexpr size_t kRoom = 16384;
  out.clear();
  if (length > maxBytes) return FileStatus::TooLarge;
  FileReader reader(descriptor, length);
  FileStatus status = FileStatus::Ok;
  size_t used = 0;
  for (size_t room = length != 0 ? length : kRoom; room != 0;) {
    Resize(out, used + room);
    const int64_t count = reader.Read(out.data() + used, room);
    if (count < 0) status = FailedBySystem(FileStatus::Unreadable);
    if (count > 0) used += static_cast<size_t>(count);
    if (used > maxBytes) status = FileStatus::TooLarge;
    const bool more = status == FileStatus::Ok && length == 0 && used == out.size();
    room = more ? std::max(used / 2, kRoom) : 0;
  }
  out.resize(status == FileStatus::Ok ? used : 0);
  return status;
}

FileStatus ReadFile(const Place& place, std::string& out, uint64_t maxBytes) {
  out.clear();
  Descriptor file;
  uint64_t size = 0;
  const FileStatus status = OpenRegular(place, file, size);
  return status == FileStatus::Ok ? ReadAll(file.Get(), size, out, maxBytes) : status;
}

ReplacedFile::~ReplacedFile() {
  if (file_.IsOpen()) ::unlinkat(dir_.Get(), temporary_.c_str(), 0);
}

FileStatus ReplacedFile::Open(const Place& place, Mode mode, std::optional<uint32_t> newMode) {
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
    return FailedBySystem(FileStatus::Unwritable);
  }
  permissions_ = newMode;
  if (exists_) {
    permissions_ = old.st_mode & 07777;
    owner_ = old.st_uid;
    group_ = old.st_gid;
  }
  // What will have permissions of its own must not be open to all until it has them.
  file_ = CreateBeside(dir_.Get(), name_, permissions_ ? kOwnerOnly : kUsual, temporary_);
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
  }
  // After the owner, whose change takes the set-user bits away.
  if (permissions_) good = good && ::fchmod(file_.Get(), *permissions_) == 0;
  good = good && (!flush || ::fsync(file_.Get()) == 0);
  good = file_.Close() && good;
  FileStatus status = good ? FileStatus::Ok : FailedBySystem(FileStatus::Unwritable);
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
  return file.Write(bytes) ? file.Commit() : FailedBySystem(FileStatus::Unwritable);
}

}  // namespace kel
