#pragma once

#include <string>

#include "kel/filepolicy.h"
#include "kel/filestatus.h"

struct stat;

namespace kel {

/// What somebody does with the entries of a tree. Each call is given the open directory that holds
/// the entry; a status other than Ok ends the walk.
class TreeVisitor {
 public:
  virtual ~TreeVisitor() = default;
  /// Anything but a directory; links are not followed.
  virtual FileStatus Entry(int dir, const char* name, const struct stat& info) = 0;
  /// Before a directory is looked into. `skip` leaves it and what it holds out of the walk.
  virtual FileStatus Enter(int dir, const char* name, const struct stat& info, bool& skip) = 0;
  /// After all that a directory holds.
  virtual FileStatus Leave(int dir, const char* name, const struct stat& info) = 0;
  /// The system does not let a directory be looked into. Ok passes it over.
  virtual FileStatus Blocked() { return FileStatus::Unreadable; }
};

/// Walks the tree below the directory `name` in `dir`, which itself is entered and left last. A
/// single descriptor per walk is kept open whatever the depth; entries that vanish meanwhile are
/// passed over, and a tree that is moved under the walk ends it.
FileStatus WalkTree(int dir, const char* name, TreeVisitor& visitor);

/// Removes what has the name: a tree, or anything else.
FileStatus RemoveTree(int dir, const char* name);

/// Gives a file or a directory a name that nothing has; 0, or -1 with errno, EEXIST when it is
/// taken.
int RenameToFree(int fromDir, const char* from, int toDir, const char* to);

}  // namespace kel
