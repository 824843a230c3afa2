#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

#include "kel/filepolicy.h"
#include "kel/filestatus.h"

namespace kel {

/// A text file in memory, by line. Lines count from 1 and end with "\n" or "\r\n"; each keeps the
/// end that it came with, and a last line without one stays so.
class LineFile {
 public:
  /// A text file of at most 1 GiB is taken, and of so many lines that what is known about each does
  /// not need more memory than twice that.
  static constexpr uint64_t kMaxBytes = uint64_t{1} << 30;
  static constexpr uint64_t kMaxLines = uint64_t{1} << 27;

  /// What a single look at a file needs, without knowing all of its lines.
  static FileStatus CountLines(const Place& place, uint64_t& count);
  static FileStatus GetLine(const Place& place, int32_t line, std::string& text, bool& found);

  static FileStatus Load(const Place& place, LineFile& out);
  /// Takes a text apart.
  explicit LineFile(std::string text = {});

  uint32_t Count() const { return static_cast<uint32_t>(lines_.size()); }
  /// The line without its end, good until the next change; false when there is no such line.
  bool Get(int32_t line, std::string_view& text) const;
  /// Puts a text before a line; one behind the last adds it. The ends that it needs are of the
  /// file's own style. A text with line ends inside becomes several lines.
  bool Insert(int32_t line, std::string_view text);
  bool Add(std::string_view text);
  /// Removes the line together with its end.
  bool Delete(int32_t line);

  bool IsChanged() const { return changed_; }
  /// The file's contents as they are now.
  std::string Text() const;
  /// Writes them in one step.
  FileStatus Save(const Place& place) const;

 private:
  struct Span {
    uint64_t start;
    uint64_t length;
  };
  std::string_view ViewOf(const Span& span) const {
    return std::string_view(text_).substr(span.start, span.length);
  }
  std::vector<Span> Append(std::string_view text);
  void DropGarbage();

  std::string text_;        // what was read, and behind it whatever has been added
  uint64_t garbage_ = 0;    // bytes of it that belong to no line any more
  std::deque<Span> lines_;  // so that lines are taken from the start as fast as from the end
  std::string end_;         // of the lines that are added
  bool changed_ = false;
};

}  // namespace kel
