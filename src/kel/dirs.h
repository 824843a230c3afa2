#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "kel/filepolicy.h"
#include "kel/filestatus.h"

/// Directories. Trees are walked from directory to directory, not by path: no symbolic link leads
/// out of them, and no depth is too deep.
namespace kel {

/// Whether anything has the name, a link that leads nowhere included.
bool Exists(const Place& place);

FileStatus CreateDirectory(const Place& place);
/// Creates every missing level of the path.
FileStatus CreatePath(const FilePolicy& policy, std::string_view path);

/// Removes an empty directory, or with `force` the whole tree. "/", "." and ".." are refused.
FileStatus DeleteDirectory(const Place& place, bool force);

/// Sum of the sizes of all files in the tree, in bytes; a directory counts once.
FileStatus TreeSize(const Place& place, uint64_t& bytes);

/// The names in a directory that are no directories, sorted by byte.
FileStatus ListFileNames(const Place& place, std::vector<std::string>& names);

/// Copies a file or a tree with its links, permissions and times to a name that is free; nothing is
/// left there on failure.
FileStatus CopyTree(const Place& from, const Place& to);

/// Gives a file or directory another name, which must be free. Across file systems it is copied,
/// the copy compared, and only then the source removed.
FileStatus Move(const Place& from, const Place& to);

/// The current directory; "" when it is gone.
std::string CurrentDirectory();
FileStatus SetCurrentDirectory(const Place& place);

}  // namespace kel
