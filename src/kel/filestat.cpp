#include "kel/filestat.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>

#include "kel/fileio.h"
#include "kel/kelformat.h"
#include "kel/stop.h"

namespace kel {
namespace {

constexpr uint32_t kAnyWrite = 0222;
constexpr int64_t kNanoseconds = 1'000'000'000;
/// Some file systems count in steps of two seconds.
constexpr int64_t kCoarsestClock = 2 * kNanoseconds;

int64_t NanosecondsOf(const statx_timestamp& time) {
  return time.tv_sec * kNanoseconds + time.tv_nsec;
}

int FollowFlag(const Place& place) { return place.IsConfined() ? AT_SYMLINK_NOFOLLOW : 0; }

FileKind KindOfMode(uint32_t mode) {
  if (S_ISREG(mode)) return FileKind::Regular;
  return S_ISDIR(mode) ? FileKind::Directory : FileKind::Other;
}

}  // namespace

bool FileVersion::IsSettled() const {
  timespec now{};
  ::clock_gettime(CLOCK_REALTIME, &now);
  return modified + kCoarsestClock < now.tv_sec * kNanoseconds + now.tv_nsec;
}

FileStat GetFileStat(const Place& place) {
  FileStat result;
  struct statx info;
  if (!place.IsFound() || ::statx(place.Dir(), place.Name(), FollowFlag(place),
                                  STATX_BASIC_STATS | STATX_BTIME, &info) != 0) {
    return result;
  }
  result.kind = KindOfMode(info.stx_mode);
  result.size = info.stx_size;
  result.mode = info.stx_mode & 07777;
  result.modified = info.stx_mtime.tv_sec;
  result.created =
      (info.stx_mask & STATX_BTIME) != 0 ? info.stx_btime.tv_sec : info.stx_mtime.tv_sec;
  result.version = {uint64_t{info.stx_dev_major} << 32 | info.stx_dev_minor, info.stx_ino,
                    info.stx_size, NanosecondsOf(info.stx_mtime), NanosecondsOf(info.stx_ctime)};
  return result;
}

bool IsWritable(const Place& place) {
  const FileStat info = GetFileStat(place);
  return info.kind != FileKind::Missing && (info.mode & kAnyWrite) != 0 &&
         ::faccessat(place.Dir(), place.Name(), W_OK, AT_EACCESS) == 0;
}

FileStatus SetFileMode(const Place& place, uint32_t mode) {
  if (!place.IsFound()) return FileStatus::Missing;
  // The name is opened without reading, so that a confined one is not swapped for a link between
  // the look at it and the change.
  const Descriptor file(::openat(place.Dir(), place.Name(),
                                 O_PATH | O_CLOEXEC | (place.IsConfined() ? O_NOFOLLOW : 0)));
  if (!file.IsOpen()) return StatusOfErrno(errno, FileStatus::Failed);
  struct stat info;
  if (::fstat(file.Get(), &info) != 0 || S_ISLNK(info.st_mode)) return FileStatus::NotValid;
  return ChangeMode(file.Get(), mode & 07777) == 0 ? FileStatus::Ok
                                                   : StatusOfErrno(errno, FileStatus::Failed);
}

int ChangeMode(int descriptor, uint32_t mode) {
  return ::chmod(Format("/proc/self/fd/%d", descriptor).c_str(), mode);
}

LocalTime ToLocalTime(int64_t seconds) {
  const time_t time = seconds;
  tm parts{};
  if (::localtime_r(&time, &parts) == nullptr) return {};
  // The last years of the clock's range do not fit.
  const int64_t year = std::min<int64_t>(int64_t{parts.tm_year} + 1900, INT32_MAX);
  return {static_cast<int32_t>(year),
          parts.tm_mon + 1,
          parts.tm_mday,
          parts.tm_hour,
          parts.tm_min,
          parts.tm_sec};
}

FileStatus CreateFile(const Place& place) {
  if (!place.IsFound()) return FileStatus::Missing;
  const Descriptor file(
      ::openat(place.Dir(), place.Name(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
  return file.IsOpen() ? FileStatus::Ok : StatusOfErrno(errno, FileStatus::Unwritable);
}

FileStatus DeleteFile(const Place& place, bool force) {
  if (!place.IsFound()) return FileStatus::Missing;
  struct stat info;
  if (::fstatat(place.Dir(), place.Name(), &info, AT_SYMLINK_NOFOLLOW) != 0) {
    return StatusOfErrno(errno, FileStatus::Failed);
  }
  if (S_ISDIR(info.st_mode)) return FileStatus::NotValid;
  if (!force && !S_ISLNK(info.st_mode) && (info.st_mode & kAnyWrite) == 0) {
    return FileStatus::Unwritable;
  }
  return ::unlinkat(place.Dir(), place.Name(), 0) == 0 ? FileStatus::Ok
                                                       : StatusOfErrno(errno, FileStatus::Failed);
}

namespace {

/// What was appended in part would be half a line to whoever reads the file next. It goes again
/// unless somebody has appended behind it; what others appended before it stays.
bool TakeBack(int descriptor, size_t written) {
  if (written == 0) return true;
  struct stat info;
  const off_t end = ::lseek(descriptor, 0, SEEK_CUR);
  const bool isLast = ::fstat(descriptor, &info) == 0 && info.st_size == end;
  return isLast && ::ftruncate(descriptor, end - static_cast<off_t>(written)) == 0;
}

}  // namespace

FileStatus AppendToFile(const Place& place, std::string_view bytes) {
  if (!place.IsFound()) return FileStatus::Missing;
  if (CheckRegular(place) == FileStatus::NotValid) return FileStatus::NotValid;
  const int follow = place.IsConfined() ? O_NOFOLLOW : 0;
  const Descriptor file(
      ::openat(place.Dir(), place.Name(),
               O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NONBLOCK | O_NOCTTY | follow, 0666));
  if (!file.IsOpen()) return StatusOfErrno(errno, FileStatus::Unwritable);
  struct stat info;
  if (::fstat(file.Get(), &info) != 0 || !S_ISREG(info.st_mode)) return FileStatus::NotValid;
  size_t written = 0;
  try {
    if (WriteFull(file.Get(), bytes, &written)) return FileStatus::Ok;
  } catch (const Interrupted&) {
    TakeBack(file.Get(), written);
    throw;
  }
  const FileStatus status = FailedBySystem(FileStatus::Unwritable);
  return TakeBack(file.Get(), written) ? status : FileStatus::Failed;
}

}  // namespace kel
