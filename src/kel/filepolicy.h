#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "kel/descriptor.h"
#include "kel/export.h"

namespace kel {

/// What may be done with files; each level includes the one before it.
enum class Access { None, Read, Write };

/// Whether the name that ends a path is looked through when it is a symbolic link.
enum class Links { Follow, Keep };

/// Where a path leads, after the host's policy has let it through: a directory and a name in it.
///
/// File functions take places, not paths, so that none of them can fail to ask. Where the policy
/// confines scripts to directories, the directory is open already and was reached without a single
/// symbolic link: what another process changes in between cannot lead out.
class TAMBER_API Place {
 public:
  enum class State { Found, Missing, Refused };

  /// A path that no policy stands before.
  explicit Place(std::string_view path);

  bool IsFound() const { return state_ == State::Found; }
  bool IsRefused() const { return state_ == State::Refused; }
  /// For the system's calls that take a directory and a name.
  int Dir() const { return dir_.IsOpen() ? dir_.Get() : kCurrentDirectory; }
  const char* Name() const { return name_.c_str(); }
  /// True when a link under this name must not be followed by whoever opens it.
  bool IsConfined() const { return dir_.IsOpen(); }
  /// The path as the script passed it.
  const std::string& Path() const { return path_; }
  /// Of a confined place: the path without links, "." and "..".
  const std::string& RealPath() const { return realPath_; }

 private:
  friend class FilePolicy;
  static constexpr int kCurrentDirectory = -100;  // AT_FDCWD
  Place() = default;

  State state_ = State::Missing;
  Descriptor dir_;
  std::string path_;
  std::string name_;
  std::string realPath_;
};

/// Opens the directory that holds the last name of a path relative to an open directory, one level
/// at a time and through no link; `name` gets that last name. Not open when it cannot be reached
/// so.
Descriptor OpenParent(int root, std::string_view relative, std::string& name);

/// What a host allows its scripts to do with files and with the network, and what of its process
/// they may see. The default allows all.
///
/// A directory's own level counts below it, whatever is allowed elsewhere; of nested directories
/// the innermost counts.
class TAMBER_API FilePolicy {
 public:
  FilePolicy();
  FilePolicy(const FilePolicy& other);
  FilePolicy& operator=(const FilePolicy& other);
  ~FilePolicy();

  /// What is allowed outside the directories that are named below.
  void SetAccess(Access access) { elsewhere_ = access; }
  /// Allows this much in a directory and below it; false when there is no such directory. It is
  /// the directory itself that is remembered, not its name.
  bool AddDirectory(std::string_view path, Access access);
  void SetNetwork(bool allowed) { network_ = allowed; }
  /// Whether scripts see the environment of the process; if not, they find no variable in it.
  void SetEnvironment(bool visible) { environment_ = visible; }
  /// Whether scripts learn which directory is the current one.
  void SetDirectoryName(bool visible) { directoryName_ = visible; }
  /// Whether scripts see "/proc", what other processes are and do. It is hidden with the two above
  /// as well, for it tells of them too. A directory in there that is allowed by name is allowed all
  /// the same.
  void SetProcesses(bool visible) { processes_ = visible; }

  bool AllowsNetwork() const { return network_; }
  bool ShowsEnvironment() const { return environment_; }
  bool ShowsDirectoryName() const { return directoryName_; }
  bool ShowsProcesses() const { return processes_ && environment_ && directoryName_; }
  /// Whether nothing at all is forbidden.
  bool AllowsAll() const { return AllowsEveryFile(Access::Write) && network_; }
  bool Allows(std::string_view path, Access wanted) const;
  /// Whether this is one of the directories named above, and nothing below it may be read.
  bool Hides(uint64_t device, uint64_t inode) const;
  /// Finds out where a path leads and whether the wanted access is allowed there.
  Place Find(std::string_view path, Access wanted, Links links = Links::Follow) const;
  /// Whether scripts can decide what a path leads to: they may write the file, or put another one,
  /// or a link, into its place or into that of a directory on the way.
  bool CanReplace(std::string_view path) const;
  /// Where a path of the host's own leads: wherever the host likes, but where scripts can decide
  /// it, no further than they may go themselves.
  Place FindForHost(std::string_view path, Access wanted) const;

 private:
  struct Root;
  bool AllowsEveryFile(Access wanted) const {
    return roots_.empty() && elsewhere_ >= wanted && ShowsProcesses();
  }
  TAMBER_LOCAL const Root* RootOf(std::string_view canonical) const;
  /// Whether this is what other processes are and do, and scripts may not see that.
  TAMBER_LOCAL bool HidesProcesses(std::string_view canonical) const;
  TAMBER_LOCAL bool Permits(std::string_view canonical, Access wanted) const;
  /// Whether one of the directories named is this one or below it.
  TAMBER_LOCAL bool IsAboveRoot(std::string_view canonical) const;

  Access elsewhere_ = Access::Write;
  bool network_ = true;
  bool environment_ = true;
  bool directoryName_ = true;
  bool processes_ = true;
  std::vector<std::shared_ptr<const Root>> roots_;
};

}  // namespace kel
