#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "kel/descriptor.h"
#include "kel/filepolicy.h"
#include "kel/filestatus.h"

/// Opening, reading and writing regular files by place.
namespace kel {

/// The status that the last failed system call of an operation stands for.
FileStatus StatusOfErrno(int error, FileStatus otherwise);

/// Opens a regular file for reading and says how long it is now. Never blocks.
FileStatus OpenRegular(const Place& place, Descriptor& file, uint64_t& size);

/// Reads up to `size` bytes, fewer only at the end of the file; -1 on an error.
int64_t ReadFull(int descriptor, char* buffer, size_t size);
/// The same from a position; the descriptor's own position stays.
int64_t ReadFullAt(int descriptor, uint64_t offset, char* buffer, size_t size);
/// Writes everything, waiting where it must; false on an error.
bool WriteFull(int descriptor, std::string_view bytes);

/// Reads a whole regular file of at most `maxBytes`; `out` is empty unless the status is Ok.
FileStatus ReadFile(const Place& place, std::string& out, uint64_t maxBytes);

/// A file that comes into being beside its destination and takes the name only when it is whole.
///
/// Until `Commit` the destination stays as it is; without it, nothing is left behind. A file that
/// is replaced hands its owner and permissions on, and a symbolic link goes on pointing at it.
class ReplacedFile {
 public:
  /// What may stand under the name: a file that may be written, any file, nothing.
  enum class Mode { Replace, Force, CreateNew };

  ReplacedFile() = default;
  ReplacedFile(const ReplacedFile&) = delete;
  ReplacedFile& operator=(const ReplacedFile&) = delete;
  ~ReplacedFile();

  /// Exists: with CreateNew, when the name is taken. NotValid: the destination is no regular file.
  FileStatus Open(const Place& place, Mode mode = Mode::Replace);
  int Get() const { return file_.Get(); }
  bool Write(std::string_view bytes) { return WriteFull(file_.Get(), bytes); }
  /// Permissions of a file that was not there before, instead of the usual ones.
  void SetMode(uint32_t mode) { newMode_ = mode; }
  /// With `flush`, the bytes are on the disk before the name is: a machine that stops in between
  /// has either file whole. A copy, whose source is still there, may do without.
  FileStatus Commit(bool flush = true);

 private:
  Descriptor dir_;
  std::string name_;
  std::string temporary_;
  Descriptor file_;
  Mode mode_ = Mode::Replace;
  bool exists_ = false;
  uint32_t oldMode_ = 0;
  uint32_t owner_ = 0;
  uint32_t group_ = 0;
  uint32_t newMode_ = 0;
};

/// Puts the bytes under the name in one step.
FileStatus ReplaceFile(const Place& place, std::string_view bytes);

}  // namespace kel
