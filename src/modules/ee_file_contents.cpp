#include "kel/codepage.h"
#include "kel/filecopy.h"
#include "kel/fileio.h"
#include "kel/gzip.h"
#include "modules/ee_file_bodies.h"

namespace tamber::files {
namespace {

constexpr uint64_t kMaxTextBytes = uint64_t{1} << 30;
constexpr size_t kTextProbeBytes = 8192;
constexpr std::string_view kUtf8 = "UTF-8";
constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";

bool ReadWhole(Call& call, std::string_view path, std::string& bytes) {
  const kel::Place place = PlaceOf(call, path, kel::Access::Read);
  return Succeeded(call, kel::ReadFile(place, bytes, kMaxTextBytes), path);
}

Text WithBlanksForLineEnds(std::string_view text) {
  TextBuilder builder(text.size());
  while (!text.empty()) {
    const size_t end = text.find('\n');
    std::string_view line = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    if (end == std::string_view::npos) {
      builder.Append(line);
      break;
    }
    if (line.ends_with('\r')) line.remove_suffix(1);
    builder.Append(line);
    builder.Append(' ');
  }
  return builder.Finish();
}

/// Writes a file anew in another code page, or leaves it as it is.
bool Convert(Call& call, std::string_view path, std::string_view page, bool toPage) {
  const std::string other = kel::CodePageName(page);
  if (other.empty()) {
    call.Fail(ERR_INVALIDPARAM, page);
    return false;
  }
  const std::string from(toPage ? kUtf8 : std::string_view(other));
  const std::string to(toPage ? std::string_view(other) : kUtf8);
  std::string bytes;
  if (!ReadWhole(call, path, bytes)) return false;
  std::string_view text = bytes;
  // A mark tells readers of UTF-8 what they have; in any other code page it would be text.
  if (from == kUtf8 && text.starts_with(kUtf8Mark)) text.remove_prefix(kUtf8Mark.size());
  std::string converted;
  if (!kel::ConvertCodePage(text, from, to, converted)) {
    call.Fail(ERR_FUNCFAILED, path);
    return false;
  }
  if (to == kUtf8 && converted.starts_with(kUtf8Mark)) converted.erase(0, kUtf8Mark.size());
  const kel::Place place = PlaceOf(call, path, kel::Access::Write);
  return SucceededOr(call, kel::ReplaceFile(place, converted), ERR_FILEWRITEFAIL, path);
}

using Pack = kel::PairStatus (*)(const kel::Place&, const kel::Place&, uint64_t&);

int32_t Repack(Call& call, std::string_view source, std::string_view target, Pack pack) {
  const kel::Place from = PlaceOf(call, source, kel::Access::Read);
  const kel::Place to = PlaceOf(call, target, kel::Access::Write);
  if (HasFailed(call)) return -1;
  uint64_t written = 0;
  const kel::PairStatus status = pack(from, to, written);
  const bool bomb = status == kel::FileStatus::TooLarge;
  const int32_t code = bomb ? ERR_STRINGTOOBIG : ERR_FUNCFAILED;
  if (!SucceededOr(call, status, code, status.isSecond ? target : source)) return -1;
  return SizeResult(call, written, target);
}

}  // namespace

std::string Md5(Call& call, std::string_view path) {
  std::string digest;
  Succeeded(call, kel::Md5OfFile(PlaceOf(call, path, kel::Access::Read), digest), path);
  return digest;
}

Text ToText(Call& call, std::string_view path, bool singleLine) {
  std::string bytes;
  if (!ReadWhole(call, path, bytes)) return {};
  return singleLine ? WithBlanksForLineEnds(bytes) : Text(bytes);
}

bool ToCodePage(Call& call, std::string_view path, std::string_view page) {
  return Convert(call, path, page, true);
}

bool ToUtf8(Call& call, std::string_view path, std::string_view page) {
  return Convert(call, path, page, false);
}

bool Compare(Call& call, std::string_view first, std::string_view second) {
  const kel::Place left = PlaceOf(call, first, kel::Access::Read);
  const kel::Place right = PlaceOf(call, second, kel::Access::Read);
  bool equal = false;
  const kel::PairStatus status = kel::CompareFiles(left, right, equal);
  return Succeeded(call, status, status.isSecond ? second : first) && equal;
}

int32_t Compress(Call& call, std::string_view source, std::string_view target) {
  return Repack(call, source, target, &kel::CompressFile);
}

int32_t Decompress(Call& call, std::string_view source, std::string_view target) {
  return Repack(call, source, target,
                [](const kel::Place& from, const kel::Place& to, uint64_t& written) {
                  return kel::DecompressFile(from, to, written);
                });
}

bool IsText(Call& call, std::string_view path) {
  kel::Descriptor file;
  uint64_t size = 0;
  const kel::Place place = PlaceOf(call, path, kel::Access::Read);
  if (!Succeeded(call, kel::OpenRegular(place, file, size), path)) return false;
  std::string start(kTextProbeBytes, '\0');
  const int64_t count = kel::ReadFull(file.Get(), start.data(), start.size());
  if (count < 0) {
    call.Fail(ERR_FILEREADFAIL, path);
    return false;
  }
  return start.substr(0, static_cast<size_t>(count)).find('\0') == std::string::npos;
}

}  // namespace tamber::files
