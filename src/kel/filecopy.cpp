#include "kel/filecopy.h"

#include <fcntl.h>
#include <nettle/md5.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <memory>

#include "kel/codec.h"
#include "kel/fileio.h"

namespace kel {
namespace {

constexpr size_t kBlock = size_t{256} * 1024;

std::unique_ptr<char[]> NewBlock() { return std::make_unique_for_overwrite<char[]>(kBlock); }

void ReadAhead(int descriptor) { ::posix_fadvise(descriptor, 0, 0, POSIX_FADV_SEQUENTIAL); }

/// Lets the system copy as much as it can by itself. False when it cannot and nothing was copied.
bool CopyInSystem(int from, int to, bool& failed) {
  constexpr size_t kStep = size_t{1} << 30;
  bool any = false;
  while (true) {
    const ssize_t count = ::copy_file_range(from, nullptr, to, nullptr, kStep, 0);
    // Some systems report files that they generate as empty: those are read instead.
    if (count == 0) return any;
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) {
      failed = any;
      return any;
    }
    any = true;
  }
}

}  // namespace

bool CopyContents(int from, int to, FileStatus& status) {
  bool failed = false;
  if (CopyInSystem(from, to, failed)) {
    if (failed) status = FileStatus::Unwritable;
    return !failed;
  }
  const auto block = NewBlock();
  while (true) {
    const int64_t count = ReadFull(from, block.get(), kBlock);
    if (count == 0) return true;
    if (count < 0) {
      status = FileStatus::Unreadable;
      return false;
    }
    if (!WriteFull(to, {block.get(), static_cast<size_t>(count)})) {
      status = FileStatus::Unwritable;
      return false;
    }
  }
}

FileStatus CopyFile(const Place& from, const Place& to, bool force) {
  Descriptor source;
  uint64_t size = 0;
  FileStatus status = OpenRegular(from, source, size);
  if (status != FileStatus::Ok) return status;
  struct stat info;
  struct stat other;
  const int follow = to.IsConfined() ? AT_SYMLINK_NOFOLLOW : 0;
  if (::fstat(source.Get(), &info) != 0) return FileStatus::Unreadable;
  if (to.IsFound() && ::fstatat(to.Dir(), to.Name(), &other, follow) == 0) {
    if (info.st_dev == other.st_dev && info.st_ino == other.st_ino) return FileStatus::Same;
    if (!force) return FileStatus::Exists;
  }
  ReplacedFile target;
  status = target.Open(to, force ? ReplacedFile::Mode::Force : ReplacedFile::Mode::CreateNew);
  if (status != FileStatus::Ok) return status;
  target.SetMode(info.st_mode & 07777 & ~uint32_t{06000});
  if (!CopyContents(source.Get(), target.Get(), status)) return status;
  return target.Commit(false);
}

bool SameContents(int first, int second, FileStatus& status) {
  ReadAhead(first);
  ReadAhead(second);
  const auto left = NewBlock();
  const auto right = NewBlock();
  while (true) {
    const int64_t count = ReadFull(first, left.get(), kBlock);
    const int64_t other = ReadFull(second, right.get(), kBlock);
    if (count < 0 || other < 0) {
      status = FileStatus::Unreadable;
      return false;
    }
    if (count != other || std::memcmp(left.get(), right.get(), static_cast<size_t>(count)) != 0) {
      return false;
    }
    if (count == 0) return true;
  }
}

FileStatus CompareFiles(const Place& first, const Place& second, bool& equal) {
  equal = false;
  Descriptor left;
  Descriptor right;
  uint64_t leftSize = 0;
  uint64_t rightSize = 0;
  FileStatus status = OpenRegular(first, left, leftSize);
  if (status == FileStatus::Ok) status = OpenRegular(second, right, rightSize);
  // Files that the system makes up as they are read claim to be empty, so 0 decides nothing.
  if (status != FileStatus::Ok || (leftSize != rightSize && leftSize != 0 && rightSize != 0)) {
    return status;
  }
  equal = SameContents(left.Get(), right.Get(), status);
  return status;
}

FileStatus Md5OfFile(const Place& place, std::string& digest) {
  Descriptor file;
  uint64_t size = 0;
  const FileStatus status = OpenRegular(place, file, size);
  if (status != FileStatus::Ok) return status;
  ReadAhead(file.Get());
  md5_ctx state;
  md5_init(&state);
  const auto block = NewBlock();
  while (true) {
    const int64_t count = ReadFull(file.Get(), block.get(), kBlock);
    if (count < 0) return FileStatus::Unreadable;
    if (count == 0) break;
    md5_update(&state, static_cast<size_t>(count), reinterpret_cast<const uint8_t*>(block.get()));
  }
  std::array<uint8_t, MD5_DIGEST_SIZE> bytes;
  md5_digest(&state, bytes.size(), bytes.data());
  digest = EncodeHex({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
  return FileStatus::Ok;
}

}  // namespace kel
