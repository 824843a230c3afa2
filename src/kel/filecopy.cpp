#include "kel/filecopy.h"

#include <fcntl.h>
#include <nettle/md5.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <memory>

#include "kel/codec.h"
#include "kel/fileio.h"
#include "kel/lazylibrary.h"
#include "kel/stop.h"

namespace kel {
namespace {

LazyLibrary nettle(KEL_SONAME_NETTLE);
KEL_LAZY(nettle, md5_init);
KEL_LAZY(nettle, md5_update);
KEL_LAZY(nettle, md5_digest);

constexpr size_t kBlock = size_t{256} * 1024;

std::unique_ptr<char[]> NewBlock() { return std::make_unique_for_overwrite<char[]>(kBlock); }

void ReadAhead(int descriptor) { ::posix_fadvise(descriptor, 0, 0, POSIX_FADV_SEQUENTIAL); }

/// Lets the system copy as much as it can by itself. False when it cannot and nothing was copied.
bool CopyInSystem(int from, uint64_t length, int to, bool& failed) {
  constexpr uint64_t kStep = uint64_t{16} << 20;  // between two looks for a stop
  bool any = false;
  while (length > 0) {
    CheckStop();
    const ssize_t count = ::copy_file_range(from, nullptr, to, nullptr, std::min(kStep, length), 0);
    // Some systems report files that they generate as empty: those are read instead.
    if (count == 0) return any;
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) {
      failed = any;
      return any;
    }
    any = true;
    length -= static_cast<uint64_t>(count);
  }
  return any;
}

}  // namespace

bool CopyContents(int from, uint64_t length, int to, FileStatus& status) {
  bool failed = false;
  if (CopyInSystem(from, length, to, failed)) {
    if (failed) status = FailedBySystem(FileStatus::Unwritable);
    return !failed;
  }
  const auto block = NewBlock();
  FileReader reader(from, length);
  while (true) {
    const int64_t count = reader.Read(block.get(), kBlock);
    if (count == 0) return true;
    if (count < 0) {
      status = FailedBySystem(FileStatus::Unreadable);
      return false;
    }
    if (!WriteFull(to, {block.get(), static_cast<size_t>(count)})) {
      status = FailedBySystem(FileStatus::Unwritable);
      return false;
    }
  }
}

PairStatus CopyFile(const Place& from, const Place& to, bool force) {
  Descriptor source;
  uint64_t size = 0;
  FileStatus status = OpenRegular(from, source, size);
  if (status != FileStatus::Ok) return {status};
  struct stat info;
  struct stat other;
  const int follow = to.IsConfined() ? AT_SYMLINK_NOFOLLOW : 0;
  if (::fstat(source.Get(), &info) != 0) return {FailedBySystem(FileStatus::Unreadable)};
  if (to.IsFound() && ::fstatat(to.Dir(), to.Name(), &other, follow) == 0) {
    if (info.st_dev == other.st_dev && info.st_ino == other.st_ino) return {FileStatus::Same, true};
    if (!force) return {FileStatus::Exists, true};
  }
  ReplacedFile target;
  status = target.Open(to, force ? ReplacedFile::Mode::Force : ReplacedFile::Mode::CreateNew,
                       CopiedPermissions(source.Get()));
  if (status != FileStatus::Ok) return {status, true};
  if (CopyContents(source.Get(), size, target.Get(), status)) return {target.Commit(false), true};
  return {status, status == FileStatus::Unwritable};
}

bool SameContents(int first, int second, uint64_t length, FileStatus& status) {
  ReadAhead(first);
  ReadAhead(second);
  const auto left = NewBlock();
  const auto right = NewBlock();
  FileReader reader(first, length);
  FileReader otherReader(second, length);
  while (true) {
    const int64_t count = reader.Read(left.get(), kBlock);
    const int64_t other = otherReader.Read(right.get(), kBlock);
    if (count < 0 || other < 0) {
      status = FailedBySystem(FileStatus::Unreadable);
      return false;
    }
    if (count != other || std::memcmp(left.get(), right.get(), static_cast<size_t>(count)) != 0) {
      return false;
    }
    if (count == 0) return true;
  }
}

PairStatus CompareFiles(const Place& first, const Place& second, bool& equal) {
  equal = false;
  Descriptor left;
  Descriptor right;
  uint64_t leftSize = 0;
  uint64_t rightSize = 0;
  FileStatus status = OpenRegular(first, left, leftSize);
  if (status != FileStatus::Ok) return {status};
  status = OpenRegular(second, right, rightSize);
  if (status != FileStatus::Ok) return {status, true};
  // Files that the system makes up as they are read claim to be empty, so 0 decides nothing.
  if (leftSize != rightSize && leftSize != 0 && rightSize != 0) return {};
  const uint64_t length = leftSize == rightSize ? leftSize : 0;
  equal = SameContents(left.Get(), right.Get(), length, status);
  return {status};
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
  FileReader reader(file.Get(), size);
  while (true) {
    const int64_t count = reader.Read(block.get(), kBlock);
    if (count < 0) return FailedBySystem(FileStatus::Unreadable);
    if (count == 0) break;
    md5_update(&state, static_cast<size_t>(count), reinterpret_cast<const uint8_t*>(block.get()));
  }
  std::array<uint8_t, MD5_DIGEST_SIZE> bytes;
  md5_digest(&state, bytes.size(), bytes.data());
  digest = EncodeHex({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
  return FileStatus::Ok;
}

}  // namespace kel
