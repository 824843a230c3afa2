#pragma once

#include <string>
#include <string_view>

#include "kel/kelstring.h"

/// Takes a path apart into drive, directory, file root and extension and puts it together again.
///
/// Both "\" and "/" separate, and a letter with ":" in front is a drive, whatever system wrote the
/// path. The separators that stand in the path are kept; nothing here looks at the disk.
class PathParser {
 public:
  PathParser() = default;
  explicit PathParser(const KelString& path) { SetPath(path); }

  void SetPath(const KelString& path);
  KelString GetPath() const { return drive_ + dir_ + root_ + ext_; }

  /// "C:" or "".
  const KelString& GetDrive() const { return drive_; }
  /// The directory with its closing separator, or "".
  const KelString& GetDir() const { return dir_; }
  KelString GetDriveDir() const { return drive_ + dir_; }
  /// The file name up to its last "."; "" for ".rc".
  const KelString& GetFileRoot() const { return root_; }
  /// From the last "." of the file name on, with it, or "".
  const KelString& GetFileExt() const { return ext_; }
  KelString GetFileName() const { return root_ + ext_; }

  /// Takes "C", "C:" or "".
  void SetDrive(const KelString& drive);
  /// Adds the closing separator when it is missing: "\" behind a directory that has only those.
  void SetDir(const KelString& dir);
  /// Replaces drive and directory by those of a directory's path.
  void SetDriveDir(const KelString& dir);
  void SetFileName(const KelString& name);
  void SetFileRoot(const KelString& root) { root_ = root; }
  /// Adds the "." when it is missing; "" takes the extension away.
  void SetFileExt(const KelString& ext);

 private:
  KelString drive_;
  KelString dir_;
  KelString root_;
  KelString ext_;
};

namespace kel {

class FilePolicy;

/// Whether the byte separates the parts of a path: "\" or "/".
constexpr bool IsSeparator(char c) { return c == '/' || c == '\\'; }

/// The path as the system is to see it: every "\" becomes "/", the rest stays as it is.
std::string SystemPath(std::string_view path);

/// Neither a separator nor a drive in front.
bool PathIsRelative(std::string_view path);

/// Removes ".", ".." and doubled separators from the text alone, with "/" between the parts;
/// symbolic links are not looked at. ".." that begin a relative path stay. A path of which nothing
/// is left is
/// ".", the empty path stays empty, a closing separator is kept. "./" stays before a name that
/// would else read as a drive.
std::string ResolvePath(std::string_view path);

/// The resolved path; a relative one is put behind the current directory.
std::string CompletePath(std::string_view path);

/// Puts a name behind a directory with one "/" between them, without resolving anything.
std::string JoinPath(std::string_view dir, std::string_view name);

/// Looks for a file in the directories of a list separated by ";", in order; blanks around an entry
/// and empty entries do not count. A name that is not relative is tried as it is. Gives the
/// completed path of the first one that exists and is no directory, or "". Where the policy does
/// not let anything be read, nothing is looked for; `refused` tells that this was everywhere.
std::string PathSearch(std::string_view name, std::string_view directories,
                       const FilePolicy& policy, bool& refused);

}  // namespace kel
