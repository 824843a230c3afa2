#include "kel/pathparser.h"
#include "modules/ee_file_bodies.h"

namespace tamber::files {
namespace {

// What FileGetAttr gives, as the bits have always been numbered.
constexpr int32_t kReadOnly = 1;
constexpr int32_t kHidden = 2;
constexpr int32_t kDirectory = 16;
constexpr int32_t kArchive = 32;

constexpr uint32_t kAnyWrite = 0222;
constexpr uint32_t kOwnerWrite = 0200;

int32_t SizeIn(Call& call, std::string_view path, int shift) {
  const kel::FileStat info = StatOf(call, path);
  if (info.kind == kel::FileKind::Missing) return 0;
  if (info.kind != kel::FileKind::Regular) {
    call.Fail(ERR_FILENOTVALID, path);
    return 0;
  }
  return SizeResult(call, info.size >> shift, path);
}

bool ChangeMode(Call& call, std::string_view path, uint32_t mode) {
  const kel::Place place = PlaceOf(call, path, kel::Access::Write);
  return Succeeded(call, kel::SetFileMode(place, mode), path);
}

}  // namespace

kel::FileStat StatOf(Call& call, std::string_view path) {
  const kel::FileStat info = kel::GetFileStat(PlaceOf(call, path, kel::Access::Read));
  if (info.kind == kel::FileKind::Missing && !HasFailed(call)) call.Fail(ERR_FILENOTFOUND, path);
  return info;
}

bool IsWritable(Call& call, std::string_view path) {
  if (StatOf(call, path).kind == kel::FileKind::Missing) return false;
  // What the host's policy forbids is not writable either, and asking is no fault.
  return kel::IsWritable(PolicyOf(call).Find(path, kel::Access::Write));
}

bool Exists(Call& call, std::string_view path) {
  return kel::GetFileStat(PlaceOf(call, path, kel::Access::Read)).IsFile();
}

bool SetMode(Call& call, std::string_view path, int32_t mode) {
  if (mode < 0 || mode > 07777) {
    call.Fail(ERR_INVALIDPARAM, path);
    return false;
  }
  return ChangeMode(call, path, static_cast<uint32_t>(mode));
}

bool SetAttr(Call& call, std::string_view path, int32_t attributes) {
  const kel::FileStat info = StatOf(call, path);
  if (info.kind == kel::FileKind::Missing) return false;
  const bool readOnly = (attributes & kReadOnly) != 0;
  return ChangeMode(call, path, readOnly ? info.mode & ~kAnyWrite : info.mode | kOwnerWrite);
}

int32_t GetMode(Call& call, std::string_view path) {
  return static_cast<int32_t>(StatOf(call, path).mode);
}

int32_t GetAttr(Call& call, std::string_view path) {
  const kel::FileStat info = StatOf(call, path);
  if (info.kind == kel::FileKind::Missing) return 0;
  PathParser parts{KelString(path)};
  int32_t attributes = info.kind == kel::FileKind::Directory ? kDirectory : kArchive;
  if ((info.mode & kAnyWrite) == 0) attributes |= kReadOnly;
  if (parts.GetFileName().View().starts_with('.')) attributes |= kHidden;
  return attributes;
}

int32_t GetSize(Call& call, std::string_view path) { return SizeIn(call, path, 0); }
int32_t GetSizeKb(Call& call, std::string_view path) { return SizeIn(call, path, 10); }
int32_t GetSizeMb(Call& call, std::string_view path) { return SizeIn(call, path, 20); }

}  // namespace tamber::files
