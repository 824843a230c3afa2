#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "kel/export.h"
#include "kel/kelstring.h"

namespace kel {
class Place;
}

namespace tamber {

/// The source of one script, unchanging. Procedures, reports and the script itself share it, for
/// procedures outlive a script of which a later part failed to compile.
///
/// Lines are numbered as reports show them: from `FirstLine()`, which is 1 for files.
class TAMBER_API ScriptText {
 public:
  static constexpr uint64_t kMaxBytes = uint64_t{256} << 20;
  /// Larger first lines are taken as this one, so that no line number wraps.
  static constexpr uint32_t kMaxFirstLine = uint32_t{1} << 31;

  enum class Status {
    Ok,
    Missing,  ///< no file of that name
    // files that are no script
    Directory,
    NotRegular,  ///< a device, a pipe, or too large
    Unreadable,
    NoText,     ///< NUL bytes inside
    NotOpened,  ///< encrypted, and the key is missing or wrong
  };
  /// What is wrong with the file, to go behind its name in a message; "" for Ok and Missing.
  static std::string_view Reason(Status status);

  /// Reads a script file; one that was stored encrypted is opened with `key`.
  static std::shared_ptr<const ScriptText> FromFile(const KelString& path, std::string_view key,
                                                    Status& status);
  /// The same from a place that a policy has let through, under a name.
  static std::shared_ptr<const ScriptText> FromFile(const KelString& name, const kel::Place& place,
                                                    std::string_view key, Status& status);
  /// Takes source text under a name or label. Null when it is too large or has a NUL byte inside.
  static std::shared_ptr<const ScriptText> FromBuffer(const KelString& name, std::string text,
                                                      uint32_t firstLine = 1);

  const KelString& Name() const { return name_; }
  /// The report file that belongs to it: its name with the extension "log".
  const KelString& LogFile() const { return logFile_; }
  /// The same for a script of that name.
  static KelString LogFileOf(const KelString& name);
  uint32_t FirstLine() const { return firstLine_; }
  uint32_t LineCount() const { return static_cast<uint32_t>(starts_.size()); }
  /// Number behind that of the last line.
  uint32_t EndLine() const { return firstLine_ + LineCount(); }
  bool HasLine(uint32_t number) const { return number - firstLine_ < LineCount(); }
  /// Whether a line, without the white space before it, is a comment; such a line ends a statement
  /// that would go on there.
  static bool BeginsComment(std::string_view line);
  /// The line without its end; "" for a number that does not exist.
  std::string_view Line(uint32_t number) const;
  /// Everything from the start of a line on; "" for a number that does not exist.
  std::string_view From(uint32_t number) const;
  /// Number of the line that holds the byte at `position`, a pointer into this text.
  uint32_t LineAt(const char* position) const;

  /// A byte of the script as an editor shows it.
  struct Place {
    uint32_t line = 0;
    uint32_t column = 0;  ///< from 1; 0 for a line that does not exist
  };
  /// The place of a byte of the logical line that begins on a physical line: `offset` is counted
  /// from 0 without the white space around the physical lines and with each "\" as a blank.
  Place Locate(uint32_t line, uint32_t offset) const;

  /// Appends the source dump of a report: `span` / 2 lines before and behind `line`, which is
  /// marked. A span of 0 or less writes nothing.
  void DumpSource(KelString& out, uint32_t line, int32_t span) const;

 private:
  ScriptText(const KelString& name, std::string text, uint32_t firstLine);

  KelString name_;
  KelString logFile_;
  std::string text_;
  uint32_t firstLine_;
  std::vector<uint32_t> starts_;  // offset of each line
};

}  // namespace tamber
