#pragma once

#include <cstdint>
#include <string>

#include "kel/filepolicy.h"
#include "kel/filestatus.h"

namespace kel {

/// Copies a regular file with its permissions; the destination gets the name when it is whole.
/// Exists unless `force` when there is a destination; Same when both are one file.
FileStatus CopyFile(const Place& from, const Place& to, bool force);

/// Copies the rest of one open file behind another; false when reading or writing fails, with
/// `status` saying which.
bool CopyContents(int from, int to, FileStatus& status);

/// Whether two files hold the same bytes.
FileStatus CompareFiles(const Place& first, const Place& second, bool& equal);
bool SameContents(int first, int second, FileStatus& status);

/// MD5 of a file's bytes, in lower-case hexadecimal.
FileStatus Md5OfFile(const Place& place, std::string& digest);

}  // namespace kel
