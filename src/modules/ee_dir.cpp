#include "modules/ee_dir.h"

#include "kel/dirs.h"
#include "kel/pathparser.h"
#include "kel/tempfile.h"
#include "modules/fileaccess.h"

namespace tamber::directories {
namespace {

constexpr size_t kMaxPath = 260;

/// The name without one separator at its end, unless it is as short as a root is.
std::string_view WithoutSeparator(std::string_view name) {
  if (name.size() > 3 && kel::IsSeparator(name.back())) name.remove_suffix(1);
  return name;
}

bool IsDirectory(Call& call, std::string_view name) {
  const kel::Place place = PlaceOf(call, name, kel::Access::Read);
  return kel::GetFileStat(place).kind == kel::FileKind::Directory;
}

bool Create(Call& call, std::string_view name) {
  name = WithoutSeparator(name);
  const kel::Place place = PlaceOf(call, name, kel::Access::Write);
  // Whatever has the name already will do, a file included.
  if (kel::GetFileStat(place).kind != kel::FileKind::Missing) return true;
  return SucceededOr(call, kel::CreateDirectory(place), ERR_FUNCFAILED, name);
}

bool DeleteForced(Call& call, std::string_view name, bool force) {
  if (name.empty()) {
    call.Fail(ERR_INVALIDPARAM, {});
    return false;
  }
  name = WithoutSeparator(name);
  const kel::Place place = PlaceOf(call, name, kel::Access::Write, kel::Links::Keep);
  if (HasFailed(call)) return false;
  const kel::Place followed = PlaceOf(call, name, kel::Access::Read);
  if (HasFailed(call)) return false;
  if (kel::GetFileStat(followed).kind != kel::FileKind::Directory) return true;
  return SucceededOr(call, kel::DeleteDirectory(place, force), ERR_FUNCFAILED, name);
}

bool Delete(Call& call, std::string_view name) { return DeleteForced(call, name, false); }

bool Exists(Call& call, std::string_view name) { return IsDirectory(call, WithoutSeparator(name)); }

/// Whether the script may learn where it is.
bool ShowsCurrent(Call& call) {
  if (PolicyOf(call).ShowsDirectoryName()) return true;
  FailRefused(call, "the name of the current directory");
  return false;
}

std::string GetCurrent(Call& call) {
  if (!ShowsCurrent(call)) return {};
  std::string current = kel::CurrentDirectory();
  if (!current.empty() && current.size() <= kMaxPath) return current;
  call.Fail(current.empty() ? ERR_FUNCFAILED : ERR_STRINGTOOBIG, {});
  return {};
}

bool SetCurrent(Call& call, std::string_view name) {
  const kel::Place place = PlaceOf(call, name, kel::Access::Read);
  return SucceededOr(call, kel::SetCurrentDirectory(place), ERR_FUNCFAILED, name);
}

int32_t GetSize(Call& call, std::string_view name) {
  uint64_t bytes = 0;
  const kel::Place place = PlaceOf(call, WithoutSeparator(name), kel::Access::Read);
  SucceededOr(call, kel::TreeSize(PolicyOf(call), place, bytes), ERR_FUNCFAILED, name);
  return static_cast<int32_t>(static_cast<uint32_t>(bytes >> 10));
}

bool CreatePath(Call& call, std::string_view path) {
  if (!PolicyOf(call).Allows(path, kel::Access::Write)) FailRefused(call, path);
  return SucceededOr(call, kel::CreatePath(PolicyOf(call), path), ERR_FUNCFAILED, path);
}

/// Takes a path apart, unless it is too long for the functions that give parts of it.
bool TakeApart(Call& call, std::string_view path, PathParser& parts) {
  if (path.size() > kMaxPath) {
    call.Fail(ERR_STRINGTOOBIG, {});
    return false;
  }
  parts.SetPath(path);
  return true;
}

KelString GetDrive(Call& call, std::string_view path) {
  PathParser parts;
  return TakeApart(call, path, parts) ? parts.GetDrive().Left(1) : KelString();
}

KelString GetDir(Call& call, std::string_view path) {
  PathParser parts;
  if (!TakeApart(call, path, parts)) return {};
  const KelString& dir = parts.GetDir();
  return dir.GetLength() > 1 ? dir.Left(dir.GetLength() - 1) : dir;
}

KelString GetFileName(Call& call, std::string_view path) {
  PathParser parts;
  return TakeApart(call, path, parts) ? parts.GetFileName() : KelString();
}

KelString GetFileRoot(Call& call, std::string_view path) {
  PathParser parts;
  return TakeApart(call, path, parts) ? parts.GetFileRoot() : KelString();
}

KelString GetFileExt(Call& call, std::string_view path) {
  PathParser parts;
  return TakeApart(call, path, parts) ? parts.GetFileExt().Mid(1) : KelString();
}

std::string GetTemp() { return kel::TemporaryDirectory(); }

/// There are no short names here: each path is its own.
std::string GetShort(Call& call, std::string_view path) {
  if (path.size() <= kMaxPath) return std::string(path);
  call.Fail(ERR_STRINGTOOBIG, {});
  return {};
}

std::string Complete(Call& call, std::string_view path) {
  if (kel::PathIsRelative(path) && !ShowsCurrent(call)) return {};
  std::string complete = kel::CompletePath(path);
  if (!kel::PathIsRelative(complete)) return complete;
  // The current directory has been deleted: there is nothing to put in front.
  call.Fail(ERR_FUNCFAILED, path);
  return {};
}

std::string Resolve(std::string_view path) { return kel::ResolvePath(path); }

constexpr FunctionTraits kPlain{true, true, 0};

const FUNCMOD_FUNCTION* Functions() {
  static const FUNCMOD_FUNCTION list[] = {
      {"bool DirCreate (string Directory)", Wrap<Create>,
       "Creates a directory; a directory or file of that name will do.", kPlain},
      {"bool DirDelete (string Directory)", Wrap<Delete>, "Deletes an empty directory.", kPlain},
      {"bool DirDelete (string Directory, bool ForceDelete)", Wrap<DeleteForced>,
       "Deletes a directory, with ForceDelete together with all that is in it.", kPlain},
      {"bool DirExists (string Directory)", Wrap<Exists>, "Whether there is such a directory.",
       kPlain},
      {"bool DirFind (string Directory)", Wrap<Exists>, "The same as DirExists.", kPlain},
      {"bool DirMove (string SrcDir, string DstDir)", Wrap<MovePath>,
       "Moves or renames a directory or a file.", kPlain},
      {"bool DirRename (string SrcDir, string DstDir)", Wrap<MovePath>, "The same as DirMove.",
       kPlain},
      {"string DirGetCurrent ()", Wrap<GetCurrent>, "The current directory of the process.",
       kPlain},
      {"bool DirSetCurrent (string Directory)", Wrap<SetCurrent>,
       "Makes a directory the current one of the process.", kPlain},
      {"int DirGetSize (string Dir)", Wrap<GetSize>,
       "Size of all files in a directory and below it, in units of 1024 bytes.", kPlain},
      {"bool PathCreate (string Path)", Wrap<CreatePath>,
       "Creates a directory and every level above it that is missing.", kPlain},
      {"bool PathExists (string Path)", Wrap<Exists>, "The same as DirExists.", kPlain},
      {"bool PathFind (string Path)", Wrap<Exists>, "The same as DirExists.", kPlain},
      {"string PathGetDrive (string Path)", Wrap<GetDrive>, "The drive letter of a path.", kPlain},
      {"string PathGetDir (string Path)", Wrap<GetDir>,
       "The directory of a path, without drive and closing separator.", kPlain},
      {"string PathGetFileName (string Path)", Wrap<GetFileName>,
       "The file name of a path, with its extension.", kPlain},
      {"string PathGetFileRoot (string Path)", Wrap<GetFileRoot>,
       "The file name of a path, without its extension.", kPlain},
      {"string PathGetFileExt (string Path)", Wrap<GetFileExt>,
       "The extension of a path, without the dot.", kPlain},
      {"string PathGetTemp ()", Wrap<GetTemp>, "The directory for temporary files.", kPlain},
      {"string PathGetShort (string Path)", Wrap<GetShort>,
       "The short form of a path: the path itself where the system has none.", kPlain},
      {"string CompletePath (string Path)", Wrap<Complete>,
       "A relative path behind the current directory, resolved.", kPlain},
      {"string ResolvePath (string Path)", Wrap<Resolve>,
       "A path without \".\", \"..\" and doubled separators.", kPlain},
      {"", nullptr, "", {}},
  };
  return list;
}

}  // namespace
}  // namespace tamber::directories

const FUNCMOD_REGISTRATION* GetDirectoryModule() {
  static const FUNCMOD_REGISTRATION record[] = {
      {FUNCMOD_FUNCTIONS, tamber::directories::Functions()},
      {FUNCMOD_END, nullptr},
  };
  return record;
}
