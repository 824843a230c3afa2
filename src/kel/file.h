#pragma once

#include <cstdint>
#include <string>
#include <string_view>

/// Files and the standard streams, as far as the engine itself needs them.
///
/// Paths may use "\" for "/". A path with a NUL inside names nothing. Nothing here waits for
/// another process: pipes and devices are refused before they could block.
namespace kel {

/// What tells one state of a file from another.
struct FileStamp {
  uint64_t device = 0;
  uint64_t inode = 0;
  uint64_t size = 0;
  int64_t modified = 0;  ///< nanoseconds since 1970
  int64_t changed = 0;   ///< of the inode, nanoseconds since 1970
  bool operator==(const FileStamp&) const = default;
};

/// The stamp of what the path names; false when there is nothing to look at.
bool GetFileStamp(std::string_view path, FileStamp& stamp);

enum class ReadStatus {
  Ok,
  Missing,     ///< no such file
  NotValid,    ///< a directory, device, pipe or socket, or larger than allowed
  Unreadable,  ///< no permission, or the system failed while reading
};

/// Reads a whole regular file of at most `maxBytes` bytes; `out` is empty unless the status is Ok.
/// `stamp`, if given, is taken before the first byte: a file that changes later has another one.
ReadStatus ReadRegularFile(std::string_view path, std::string& out, uint64_t maxBytes,
                           FileStamp* stamp = nullptr);

/// Opens or creates a file for appending: a descriptor above 2, or -1. Regular files, the null
/// device and terminals only. Symbolic links are followed.
int OpenForAppend(std::string_view path);
/// Appends in one write, so that the reports of several processes do not mix. False: not all of it.
bool AppendAll(int descriptor, std::string_view text);
/// Closes what `OpenForAppend` gave; leaves -1 and the three standard streams alone.
void CloseFile(int descriptor);

/// Writes all bytes, with one write unless the system takes only a part. Errors are ignored.
void WriteStandardOutput(std::string_view text);
void WriteStandardError(std::string_view text);

/// Replaces a regular file, or creates it, so that at any moment either the old or the new bytes
/// stand under the name. Owner and permissions are kept, and a symbolic link goes on pointing at
/// the file; one that leads nowhere is replaced. False when that fails; the old file is then
/// untouched.
bool WriteFileAtomically(std::string_view path, std::string_view bytes);

}  // namespace kel
