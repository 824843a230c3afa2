#include "kel/file.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>

#include "kel/fileio.h"
#include "kel/pathparser.h"
#include "kel/stop.h"

namespace kel {
namespace {

bool HoldsNul(std::string_view path) { return path.find('\0') != std::string_view::npos; }

bool GetStat(std::string_view path, struct stat& info) {
  return !HoldsNul(path) && ::stat(SystemPath(path).c_str(), &info) == 0;
}

int64_t Nanoseconds(const timespec& time) {
  return static_cast<int64_t>(time.tv_sec) * 1'000'000'000 + time.tv_nsec;
}

FileStamp StampOf(const struct stat& info) {
  return {info.st_dev, info.st_ino, static_cast<uint64_t>(info.st_size), Nanoseconds(info.st_mtim),
          Nanoseconds(info.st_ctim)};
}

ReadStatus ReadStatusOf(FileStatus status) {
  switch (status) {
    case FileStatus::Ok:
      return ReadStatus::Ok;
    case FileStatus::Missing:
      return ReadStatus::Missing;
    case FileStatus::NotValid:
    case FileStatus::TooLarge:
      return ReadStatus::NotValid;
    default:
      return ReadStatus::Unreadable;
  }
}

bool IsNullDevice(const struct stat& info) {
  struct stat null;
  return ::stat("/dev/null", &null) == 0 && S_ISCHR(null.st_mode) && info.st_rdev == null.st_rdev;
}

bool MayAppendTo(int descriptor) {
  struct stat info;
  if (::fstat(descriptor, &info) != 0) return false;
  if (S_ISREG(info.st_mode)) return true;
  return S_ISCHR(info.st_mode) && (IsNullDevice(info) || ::isatty(descriptor) == 1);
}

}  // namespace

bool GetFileStamp(std::string_view path, FileStamp& stamp) {
  struct stat info;
  if (!GetStat(path, info)) return false;
  stamp = StampOf(info);
  return true;
}

ReadStatus ReadRegularFile(std::string_view path, std::string& out, uint64_t maxBytes,
                           FileStamp* stamp) {
  out.clear();
  Descriptor file;
  uint64_t size = 0;
  FileStatus status = OpenRegular(Place(path), file, size);
  if (status == FileStatus::Ok && stamp != nullptr) {
    struct stat info;
    if (::fstat(file.Get(), &info) != 0) return ReadStatus::Unreadable;
    *stamp = StampOf(info);
    size = stamp->size;  // what is read is what the stamp is about
  }
  if (status == FileStatus::Ok) status = ReadAll(file.Get(), size, out, maxBytes);
  return ReadStatusOf(status);
}

int OpenForAppend(std::string_view path) {
  if (HoldsNul(path)) return -1;
  Descriptor file(::open(SystemPath(path).c_str(),
                         O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, 0666));
  if (!file.IsOpen() || !MayAppendTo(file.Get())) return -1;
  if (file.Get() > STDERR_FILENO) return file.Release();
  // A host that closed a standard stream must not find reports where it writes its own output.
  return ::fcntl(file.Get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
}

bool AppendAll(int descriptor, std::string_view text) { return WriteFull(descriptor, text); }

void CloseFile(int descriptor) {
  if (descriptor > STDERR_FILENO) ::close(descriptor);
}

namespace {

/// Writes some of the bytes without waiting for whoever reads them, where the system can tell that
/// before: 0 when they have to be waited for, -1 on an error.
ssize_t WriteNow(int descriptor, std::string_view bytes) {
  const iovec piece{const_cast<char*>(bytes.data()), std::min(bytes.size(), kBytesPerStep)};
  ssize_t count = ::pwritev2(descriptor, &piece, 1, -1, RWF_NOWAIT);
  if (count >= 0) return count;
  const bool cannot = errno == EOPNOTSUPP || errno == EINVAL || errno == ENOSYS;
  if (!cannot && errno != EAGAIN && errno != EINTR) return -1;
  struct stat info;
  const bool isFile = ::fstat(descriptor, &info) == 0 && S_ISREG(info.st_mode);
  pollfd output{descriptor, POLLOUT, 0};
  constexpr int kMillisecondsPerLook = 10;
  if (!isFile && ::poll(&output, 1, kMillisecondsPerLook) == 0) return 0;
  // What has room for anything takes this much.
  count = ::write(descriptor, bytes.data(),
                  isFile ? piece.iov_len : std::min(bytes.size(), size_t{PIPE_BUF}));
  return count < 0 && (errno == EINTR || errno == EAGAIN) ? 0 : count;
}

}  // namespace

void WriteStandardOutput(std::string_view text) {
  while (!text.empty()) {
    CheckStop();
    const ssize_t count = WriteNow(STDOUT_FILENO, text);
    if (count < 0) return;
    text.remove_prefix(static_cast<size_t>(count));
  }
}

void WriteStandardError(std::string_view text) { WriteFull(STDERR_FILENO, text); }

bool WriteFileAtomically(std::string_view path, std::string_view bytes) {
  return ReplaceFile(Place(path), bytes) == FileStatus::Ok;
}

}  // namespace kel
