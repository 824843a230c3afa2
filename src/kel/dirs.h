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

/// Removes an empty directory, or with `force` the whole tree, directories that are protected from
/// writing included. "/", "." and ".." are refused.
FileStatus DeleteDirectory(const Place& place, bool force);

/// Sum of the sizes of all files in the tree, in bytes; a directory counts once. What the policy
/// does not let be read is left out; what the system does not is too, and the status says so.
FileStatus TreeSize(const FilePolicy& policy, const Place& place, uint64_t& bytes);

/// The names in a directory that are no directories, sorted by byte.
FileStatus ListFileNames(const Place& place, std::vector<std::string>& names);

/// Gives a file or directory another name, which must be free. Across file systems it is copied,
/// the copy compared, and only then the source removed.
FileStatus Move(const Place& from, const Place& to);
/// What Move does across file systems: all of it with its links, permissions and times. On failure
/// nothing is left at the destination, unless it is only the source that could not be removed.
FileStatus MoveByCopy(const Place& from, const Place& to);

/// The current directory; "" when it is gone.
std::string CurrentDirectory();
/// For scripts; see hostpath.h.
FileStatus SetCurrentDirectory(const Place& place);

}  // namespace kel
