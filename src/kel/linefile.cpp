#include "kel/linefile.h"

#include <algorithm>
#include <utility>

#include "kel/fileio.h"
#include "kel/longstring.h"
#include "kel/stop.h"

namespace kel {
namespace {

/// Length of the line end that closes the text: 0, 1 or 2.
size_t EndLength(std::string_view text) {
  if (text.ends_with("\r\n")) return 2;
  return text.ends_with('\n') ? 1 : 0;
}

std::string_view WithoutEnd(std::string_view line) {
  line.remove_suffix(EndLength(line));
  return line;
}

/// Where the line behind the one at `at` begins.
size_t NextLine(std::string_view text, size_t at) {
  const size_t end = text.find('\n', at);
  return end == std::string_view::npos ? text.size() : end + 1;
}

uint64_t LinesIn(std::string_view text) {
  uint64_t ends = 0;
  ForSteps(0, text.size(), kBytesPerStep, [&](uint64_t from, uint64_t to) {
    const std::string_view part = text.substr(from, to - from);
    ends += static_cast<uint64_t>(std::count(part.begin(), part.end(), '\n'));
    return true;
  });
  return text.empty() || text.back() == '\n' ? ends : ends + 1;
}

}  // namespace

FileStatus LineFile::CountLines(const Place& place, uint64_t& count) {
  std::string text;
  const FileStatus status = ReadFile(place, text, kMaxBytes);
  count = LinesIn(text);
  return status;
}

FileStatus LineFile::GetLine(const Place& place, int32_t line, std::string& text, bool& found) {
  std::string bytes;
  const FileStatus status = ReadFile(place, bytes, kMaxBytes);
  size_t at = 0;
  StopPoll poll(kElementsPerLook);
  for (int32_t i = 1; i < line && at < bytes.size(); ++i) {
    poll.Step();
    at = NextLine(bytes, at);
  }
  found = line >= 1 && at < bytes.size();
  text.clear();
  if (found) text = WithoutEnd(std::string_view(bytes).substr(at, NextLine(bytes, at) - at));
  return status;
}

FileStatus LineFile::Load(const Place& place, LineFile& out) {
  std::string text;
  const FileStatus status = ReadFile(place, text, kMaxBytes);
  if (status != FileStatus::Ok) return status;
  if (LinesIn(text) > kMaxLines) return FileStatus::TooLarge;
  out = LineFile(std::move(text));
  return status;
}

LineFile::LineFile(std::string text) : text_(std::move(text)) {
  StopPoll poll(kElementsPerLook);
  for (size_t at = 0; at < text_.size();) {
    poll.Step();
    const size_t next = NextLine(text_, at);
    lines_.push_back({at, next - at});
    at = next;
  }
  const bool windows = !lines_.empty() && EndLength(ViewOf(lines_.front())) == 2;
  end_ = windows ? "\r\n" : "\n";
}

bool LineFile::Get(int32_t line, std::string_view& text) const {
  if (line < 1 || static_cast<uint32_t>(line) > Count()) return false;
  text = WithoutEnd(ViewOf(lines_[static_cast<size_t>(line) - 1]));
  return true;
}

/// Puts a text behind the buffer and gives its lines, the last one without an end if the text has
/// none.
std::vector<LineFile::Span> LineFile::Append(std::string_view text) {
  std::vector<Span> added;
  const size_t first = text_.size();
  kel::Append(text_, text);
  StopPoll poll(kElementsPerLook);
  for (size_t at = first; at < text_.size();) {
    poll.Step();
    const size_t next = NextLine(text_, at);
    added.push_back({at, next - at});
    at = next;
  }
  return added;
}

bool LineFile::Insert(int32_t line, std::string_view text) {
  if (line < 1 || static_cast<uint32_t>(line) > Count() + 1) return false;
  if (static_cast<uint32_t>(line) == Count() + 1) return Add(text);
  const auto added = Append(std::string(text) + end_);
  lines_.insert(lines_.begin() + (line - 1), added.begin(), added.end());
  changed_ = true;
  return true;
}

bool LineFile::Add(std::string_view text) {
  // A file whose last line has no end goes on having none: the end moves before the new line.
  const bool open = !lines_.empty() && EndLength(ViewOf(lines_.back())) == 0;
  std::vector<Span> last;
  if (open) last = Append(std::string(ViewOf(lines_.back())) + end_);
  // An empty line is its end and nothing else: without one it would be lost.
  const bool needsEnd = !open || text.empty() || text.back() == '\n';
  const auto added = Append(needsEnd ? std::string(text) + end_ : std::string(text));
  if (open) {
    garbage_ += lines_.back().length;
    lines_.back() = last.front();
  }
  lines_.insert(lines_.end(), added.begin(), added.end());
  changed_ = true;
  return true;
}

bool LineFile::Delete(int32_t line) {
  if (line < 1 || static_cast<uint32_t>(line) > Count()) return false;
  const auto removed = lines_.begin() + (line - 1);
  garbage_ += removed->length;
  lines_.erase(removed);
  DropGarbage();
  changed_ = true;
  return true;
}

/// A file that lines are added to and taken from for ever holds little more than what is left.
void LineFile::DropGarbage() {
  constexpr uint64_t kWorthIt = 65536;
  if (garbage_ < kWorthIt || garbage_ < text_.size() / 2) return;
  text_ = Text();
  garbage_ = 0;
  uint64_t at = 0;
  for (Span& line : lines_) line.start = std::exchange(at, at + line.length);
}

std::string LineFile::Text() const {
  std::string text;
  text.reserve(text_.size() - garbage_);
  StopPoll poll(kElementsPerLook);
  for (const Span& line : lines_) {
    poll.Step();
    kel::Append(text, ViewOf(line));
  }
  return text;
}

FileStatus LineFile::Save(const Place& place) const { return ReplaceFile(place, Text()); }

}  // namespace kel
