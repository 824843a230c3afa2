#include "kel/dirs.h"
#include "kel/kelformat.h"
#include "kel/linefile.h"
#include "kel/pathparser.h"
#include "modules/ee_file_bodies.h"

namespace tamber::files {
namespace {

/// What a TextFileHandle stands for.
struct TextFile {
  static constexpr const char* kTypeName = "TextFileHandle";
  std::string givenPath;
  std::string fullPath;  // the current directory may be another one when it is closed
  kel::LineFile lines;
};

bool HasLine(Call& call, bool found, std::string_view path, int32_t line) {
  if (!found) call.Fail(ERR_INVALIDPARAM, kel::Format("%S: line %d", path, line));
  return found;
}

bool Load(Call& call, std::string_view path, kel::LineFile& lines) {
  const kel::Place place = PlaceOf(call, path, kel::Access::Read);
  return Succeeded(call, kel::LineFile::Load(place, lines), path);
}

bool Save(Call& call, std::string_view path, const kel::LineFile& lines) {
  const kel::Place place = PlaceOf(call, path, kel::Access::Write);
  return SucceededOr(call, lines.Save(place), ERR_FILEWRITEFAIL, path);
}

}  // namespace

Handle OpenText(Call& call, std::string_view path) {
  auto file = std::make_unique<TextFile>();
  if (!Load(call, path, file->lines)) return {0, TextFile::kTypeName};
  file->givenPath = path;
  // To the system, a drive is a directory like any other.
  file->fullPath = kel::IsSeparator(path.front()) ? std::string(path)
                                                  : kel::JoinPath(kel::CurrentDirectory(), path);
  return OpenHandle(call, std::move(file));
}

bool CloseText(Call& call, Handle handle) {
  const TextFile* file = ObjectOf<TextFile>(call, handle);
  if (file == nullptr) return false;
  const bool saved = !file->lines.IsChanged() || Save(call, file->fullPath, file->lines);
  call.Context().Handles().Release(handle.id, &TextFile::kTypeName);
  return saved;
}

std::string HandlePath(Call& call, Handle handle) {
  const TextFile* file = ObjectOf<TextFile>(call, handle);
  return file != nullptr ? file->givenPath : std::string();
}

int32_t HandleLineCount(Call& call, Handle handle) {
  const TextFile* file = ObjectOf<TextFile>(call, handle);
  return file != nullptr ? static_cast<int32_t>(file->lines.Count()) : 0;
}

std::string_view HandleLine(Call& call, Handle handle, int32_t line) {
  std::string_view text;
  if (const TextFile* file = ObjectOf<TextFile>(call, handle)) {
    HasLine(call, file->lines.Get(line, text), file->givenPath, line);
  }
  return text;
}

bool HandleDeleteLine(Call& call, Handle handle, int32_t line) {
  TextFile* file = ObjectOf<TextFile>(call, handle);
  return file != nullptr && HasLine(call, file->lines.Delete(line), file->givenPath, line);
}

bool HandleAddLine(Call& call, Handle handle, std::string_view text) {
  TextFile* file = ObjectOf<TextFile>(call, handle);
  return file != nullptr && file->lines.Add(text);
}

bool HandleInsertLine(Call& call, Handle handle, int32_t line, std::string_view text) {
  TextFile* file = ObjectOf<TextFile>(call, handle);
  return file != nullptr && HasLine(call, file->lines.Insert(line, text), file->givenPath, line);
}

/// Adds bytes, not a line: what is written is what was given, and a file that is not there is made.
bool PathAddLine(Call& call, std::string_view path, std::string_view text) {
  const kel::Place place = PlaceOf(call, path, kel::Access::Write);
  return SucceededOr(call, kel::AppendToFile(place, text), ERR_FUNCFAILED, path);
}

bool PathInsertLine(Call& call, std::string_view path, int32_t line, std::string_view text) {
  kel::LineFile lines;
  return Load(call, path, lines) && HasLine(call, lines.Insert(line, text), path, line) &&
         Save(call, path, lines);
}

bool PathDeleteLine(Call& call, std::string_view path, int32_t line) {
  kel::LineFile lines;
  return Load(call, path, lines) && HasLine(call, lines.Delete(line), path, line) &&
         Save(call, path, lines);
}

std::string PathLine(Call& call, std::string_view path, int32_t line) {
  const kel::Place place = PlaceOf(call, path, kel::Access::Read);
  std::string text;
  bool found = false;
  const kel::FileStatus status = kel::LineFile::GetLine(place, line, text, found);
  if (Succeeded(call, status, path)) HasLine(call, found, path, line);
  return text;
}

int32_t PathLineCount(Call& call, std::string_view path) {
  const kel::Place place = PlaceOf(call, path, kel::Access::Read);
  uint64_t count = 0;
  const kel::FileStatus status = kel::LineFile::CountLines(place, count);
  return Succeeded(call, status, path) ? static_cast<int32_t>(count) : 0;
}

}  // namespace tamber::files
