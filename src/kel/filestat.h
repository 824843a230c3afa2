#pragma once

#include <cstdint>
#include <string>

#include "kel/filepolicy.h"
#include "kel/filestatus.h"

namespace kel {

enum class FileKind { Missing, Regular, Directory, Other };

/// Tells whether a file is still the one that it was, and unchanged.
struct FileVersion {
  uint64_t device = 0;
  uint64_t inode = 0;
  uint64_t size = 0;
  int64_t modified = 0;  ///< nanoseconds since 1970
  int64_t changed = 0;   ///< the same; of the contents or of what the system knows about it

  bool operator==(const FileVersion&) const = default;
  /// False for a file that was written so lately that another change may leave no trace here:
  /// clocks of file systems are coarse.
  bool IsSettled() const;
};

/// What the system knows about a file; links are followed.
struct FileStat {
  FileKind kind = FileKind::Missing;
  uint64_t size = 0;
  uint32_t mode = 0;     ///< permission bits, 07777
  int64_t modified = 0;  ///< seconds since 1970
  int64_t created = 0;   ///< the same; where the file system does not know it, `modified`

  FileVersion version;

  bool IsFile() const { return kind == FileKind::Regular || kind == FileKind::Other; }
};

FileStat GetFileStat(const Place& place);

/// Whether the process may write to it, and its permissions are not all against it.
bool IsWritable(const Place& place);

/// Replaces the permission bits of a file or directory.
FileStatus SetFileMode(const Place& place, uint32_t mode);

/// The same by descriptor, one that was opened without reading or writing too; 0, or -1 with errno.
int ChangeMode(int descriptor, uint32_t mode);

/// A moment in local time, as clocks show it: months from 1, the whole year.
struct LocalTime {
  int32_t year = 0;
  int32_t month = 0;
  int32_t day = 0;
  int32_t hour = 0;
  int32_t minute = 0;
  int32_t second = 0;
};
LocalTime ToLocalTime(int64_t seconds);

/// Makes an empty file; Exists when the name is taken.
FileStatus CreateFile(const Place& place);
/// Removes a file or a symbolic link. One that is write-protected stays unless forced.
FileStatus DeleteFile(const Place& place, bool force);
/// Adds bytes at the end of a file that is made when it is not there. All or nothing.
FileStatus AppendToFile(const Place& place, std::string_view bytes);

}  // namespace kel
