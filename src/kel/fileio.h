#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "kel/descriptor.h"
#include "kel/filepolicy.h"
#include "kel/filestatus.h"

/// Opening, reading and writing regular files by place.
namespace kel {

/// The status that the last failed system call of an operation stands for. Remembers the call's
/// error for TakeReason.
FileStatus StatusOfErrno(int error, FileStatus otherwise);
/// Gives the status, and remembers that the system's last error led to it.
FileStatus FailedBySystem(FileStatus status);
/// Keeps the system's error that was remembered, whatever cleaning up meets.
class KeptReason {
 public:
  KeptReason();
  KeptReason(const KeptReason&) = delete;
  KeptReason& operator=(const KeptReason&) = delete;
  ~KeptReason();

 private:
  int error_;
};

/// What the system said when the last operation of this thread failed, as ": Permission denied"; ""
/// when it was not the system that refused. Asking forgets it.
std::string TakeReason();

/// Whether the place holds a regular file: NotValid for anything else. Looks before anybody opens
/// it, for a pipe notices that, and a device may begin to work.
FileStatus CheckRegular(const Place& place);

/// Opens a regular file for reading and says how long it is now. Never blocks.
FileStatus OpenRegular(const Place& place, Descriptor& file, uint64_t& size);

/// The permissions for a copy of an open file, which acts for nobody but who runs it.
uint32_t CopiedPermissions(int descriptor);

/// Reads up to `size` bytes, fewer only at the end of the file; -1 on an error.
int64_t ReadFull(int descriptor, char* buffer, size_t size);
/// The same from a position; the descriptor's own position stays.
int64_t ReadFullAt(int descriptor, uint64_t offset, char* buffer, size_t size);
/// Writes everything, waiting where it must; false on an error. `written`, if wanted, is how much
/// was.
bool WriteFull(int descriptor, std::string_view bytes, size_t* written = nullptr);

/// Reads an open file from where it stands to the end that it had when it was opened: one that
/// somebody goes on writing to would else be read for as long as that lasts.
class FileReader {
 public:
  /// A `length` of 0 is believed only once nothing comes: the system's own files, made up as they
  /// are read, all claim it. Those are read as far as 1 GiB, beyond which they fail.
  FileReader(int descriptor, uint64_t length)
      : descriptor_(descriptor), isKnown_(length != 0), left_(isKnown_ ? length : kMaxUnknown) {}
  /// Reads up to `size` bytes, fewer only at the end; -1 on an error.
  int64_t Read(char* buffer, size_t size);

 private:
  static constexpr uint64_t kMaxUnknown = uint64_t{1} << 30;
  int descriptor_;
  bool isKnown_;
  uint64_t left_;
};

/// Reads what is left of an open file that was `length` bytes long; at most `maxBytes`. `out` is
/// empty unless the status is Ok.
FileStatus ReadAll(int descriptor, uint64_t length, std::string& out, uint64_t maxBytes);
/// The same for a regular file by place.
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
  /// A file that is not there yet gets the permissions `newMode` if given, else the usual ones.
  FileStatus Open(const Place& place, Mode mode = Mode::Replace,
                  std::optional<uint32_t> newMode = std::nullopt);
  int Get() const { return file_.Get(); }
  bool Write(std::string_view bytes) { return WriteFull(file_.Get(), bytes); }
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
  uint32_t owner_ = 0;
  uint32_t group_ = 0;
  std::optional<uint32_t> permissions_;
};

/// Puts the bytes under the name in one step.
FileStatus ReplaceFile(const Place& place, std::string_view bytes);

}  // namespace kel
