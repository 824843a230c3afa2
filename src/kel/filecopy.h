#pragma once

#include <cstdint>
#include <string>

#include "kel/filepolicy.h"
#include "kel/filestatus.h"

namespace kel {

/// Copies a regular file with its permissions; the destination gets the name when it is whole.
/// Exists unless `force` when there is a destination; Same when both are one file.
PairStatus CopyFile(const Place& from, const Place& to, bool force);

/// Copies an open file that was `length` bytes long behind another; false when reading or writing
/// fails, with `status` saying which.
bool CopyContents(int from, uint64_t length, int to, FileStatus& status);

/// Whether two files hold the same bytes.
PairStatus CompareFiles(const Place& first, const Place& second, bool& equal);
/// The same for open files, up to the length that both had; 0 is up to their ends.
bool SameContents(int first, int second, uint64_t length, FileStatus& status);

/// MD5 of a file's bytes, in lower-case hexadecimal.
FileStatus Md5OfFile(const Place& place, std::string& digest);

}  // namespace kel
