#pragma once

namespace kel {

/// What became of an operation on a file.
enum class FileStatus {
  Ok,
  Missing,     ///< no such file
  NotValid,    ///< of another kind than the operation needs: a directory, pipe, device
  TooLarge,    ///< beyond the limit of the operation
  Exists,      ///< something stands where a new name was wanted
  Same,        ///< source and destination are one file
  Unreadable,  ///< no permission to read, or the system failed while reading
  Unwritable,  ///< no permission to write, no room, or the system failed while writing
  Damaged,     ///< the contents are not what they have to be
  Failed,      ///< the system refused for another reason
};

/// What became of an operation on two files, and which of them that is about.
struct PairStatus {
  FileStatus status = FileStatus::Ok;
  bool isSecond = false;
  operator FileStatus() const { return status; }
};

}  // namespace kel
