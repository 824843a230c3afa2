#include "frontend/scripttext.h"

#include <algorithm>

#include "kel/bytes.h"
#include "kel/cipher.h"
#include "kel/fileio.h"
#include "kel/filestat.h"
#include "kel/kelascii.h"
#include "kel/pathparser.h"
#include "kel/stop.h"

namespace tamber {

namespace {

ScriptText::Status StatusOf(kel::FileStatus read, const kel::Place& place) {
  switch (read) {
    case kel::FileStatus::Ok:
      return ScriptText::Status::Ok;
    case kel::FileStatus::Missing:
      return ScriptText::Status::Missing;
    case kel::FileStatus::Unreadable:
      return ScriptText::Status::Unreadable;
    default:
      return kel::GetFileStat(place).kind == kel::FileKind::Directory
                 ? ScriptText::Status::Directory
                 : ScriptText::Status::NotRegular;
  }
}

}  // namespace

KelString ScriptText::LogFileOf(const KelString& name) {
  PathParser path(name);
  path.SetFileExt(KelString("log"));
  return path.GetPath();
}

ScriptText::ScriptText(const KelString& name, std::string text, uint32_t firstLine)
    : name_(name),
      logFile_(LogFileOf(name)),
      text_(std::move(text)),
      firstLine_(std::clamp(firstLine, uint32_t{1}, kMaxFirstLine)) {
  kel::StopPoll poll(kel::kElementsPerLook);
  for (size_t start = 0; start < text_.size();) {
    poll.Step();
    starts_.push_back(static_cast<uint32_t>(start));
    const size_t end = text_.find('\n', start);
    start = end == std::string::npos ? text_.size() : end + 1;
  }
  starts_.shrink_to_fit();
}

std::shared_ptr<const ScriptText> ScriptText::FromFile(const KelString& path, std::string_view key,
                                                       Status& status) {
  return FromFile(path, kel::Place(path), key, status);
}

std::shared_ptr<const ScriptText> ScriptText::FromFile(const KelString& name,
                                                       const kel::Place& place,
                                                       std::string_view key, Status& status) {
  std::string raw;
  status = StatusOf(kel::ReadFile(place, raw, kMaxBytes), place);
  if (status != Status::Ok) return nullptr;
  if (kel::IsSealed(raw)) {
    std::string plain;
    status = Status::NotOpened;
    if (key.empty() || !kel::OpenSealed(raw, key, plain)) return nullptr;
    raw = std::move(plain);
  }
  std::shared_ptr<const ScriptText> text = FromBuffer(name, std::move(raw));
  status = text ? Status::Ok : Status::NoText;
  return text;
}

std::string_view ScriptText::Reason(Status status) {
  switch (status) {
    case Status::Directory:
      return " is a directory";
    case Status::NotRegular:
      return " is no regular file, or too large";
    case Status::Unreadable:
      return " cannot be read";
    case Status::NoText:
      return " holds NUL bytes, or too much text";
    case Status::NotOpened:
      return " is encrypted with another key";
    default:
      return "";
  }
}

std::shared_ptr<const ScriptText> ScriptText::FromBuffer(const KelString& name, std::string text,
                                                         uint32_t firstLine) {
  text = kel::DecodeScriptText(std::move(text));
  if (text.size() > kMaxBytes || text.find('\0') != std::string::npos) return nullptr;
  return std::shared_ptr<const ScriptText>(new ScriptText(name, std::move(text), firstLine));
}

std::string_view ScriptText::From(uint32_t number) const {
  if (!HasLine(number)) return {};
  return std::string_view(text_).substr(starts_[number - firstLine_]);
}

std::string_view ScriptText::Line(uint32_t number) const {
  if (!HasLine(number)) return {};
  const size_t at = number - firstLine_;
  const size_t end = at + 1 < starts_.size() ? starts_[at + 1] : text_.size();
  std::string_view line(text_.data() + starts_[at], end - starts_[at]);
  if (line.ends_with('\n')) line.remove_suffix(1);
  if (line.ends_with('\r')) line.remove_suffix(1);
  return line;
}

uint32_t ScriptText::LineAt(const char* position) const {
  const auto offset = static_cast<uint32_t>(position - text_.data());
  const auto next = std::upper_bound(starts_.begin(), starts_.end(), offset);
  return firstLine_ + static_cast<uint32_t>(next - starts_.begin()) - 1;
}

bool ScriptText::BeginsComment(std::string_view line) {
  return line.starts_with("//") || line.starts_with(';') || line.starts_with('#');
}

ScriptText::Place ScriptText::Locate(uint32_t line, uint32_t offset) const {
  if (!HasLine(line)) return {line, 0};
  bool begun = false;  // blanks at the start of the logical line are not in it
  while (true) {
    const std::string_view physical = Line(line);
    const std::string_view part = kel::Trimmed(physical);
    begun = begun || part != "\\";
    const auto size = static_cast<uint32_t>(begun ? part.size() : 0);
    const bool goesOn =
        part.ends_with('\\') && HasLine(line + 1) && !BeginsComment(kel::Trimmed(Line(line + 1)));
    if (offset < size || !goesOn) {
      const auto indent = static_cast<uint32_t>(part.empty() ? 0 : part.data() - physical.data());
      return {line, indent + std::min(offset, size) + 1};
    }
    offset -= size;
    ++line;
  }
}

void ScriptText::DumpSource(KelString& out, uint32_t line, int32_t span) const {
  if (span <= 0) return;
  out += "\r\nScript source dump:\r\n";
  const uint64_t half = static_cast<uint64_t>(span) / 2;
  const uint64_t first = line > half ? std::max<uint64_t>(line - half, firstLine_) : firstLine_;
  const uint64_t end = std::min<uint64_t>(line + half + 1, EndLine());
  for (uint64_t number = first; number < end; ++number) {
    out += number == line ? ">>>" : "   ";
    out += Line(static_cast<uint32_t>(number));
    out += "\r\n";
  }
}

}  // namespace tamber
