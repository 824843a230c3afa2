#include "errors.h"

#include <algorithm>
#include <string>
#include <string_view>

#include "output.h"

namespace {

/// Code points from `first` to `last` that a terminal shows `width` columns wide.
struct WidthRange {
  uint32_t first, last, width;
};
constexpr WidthRange kWidths[] = {
    {0x300, 0x36F, 0},   {0x1100, 0x115F, 2}, {0x200B, 0x200F, 0},   {0x2E80, 0xA4CF, 2},
    {0xAC00, 0xD7A3, 2}, {0xF900, 0xFAFF, 2}, {0xFE00, 0xFE0F, 0},   {0xFE30, 0xFE6F, 2},
    {0xFF00, 0xFF60, 2}, {0xFFE0, 0xFFE6, 2}, {0x1F300, 0x1FAFF, 2}, {0x20000, 0x3FFFD, 2},
};

uint32_t WidthOf(uint32_t code) {
  for (const WidthRange& range : kWidths) {
    if (code >= range.first && code <= range.last) return range.width;
  }
  return 1;
}

bool IsContinuation(char byte) { return (static_cast<unsigned char>(byte) & 0xC0) == 0x80; }

/// Under the column, whatever the width of the tabs and letters before it.
std::string Indent(std::string_view line, size_t column) {
  std::string indent;
  const size_t end = std::min(column - 1, line.size());
  for (size_t at = 0; at < end;) {
    const auto lead = static_cast<unsigned char>(line[at]);
    uint32_t code = lead < 0xC0   ? lead
                    : lead < 0xE0 ? lead & 0x1F
                    : lead < 0xF0 ? lead & 0xF
                                  : lead & 7;
    while (++at < end && lead >= 0xC0 && IsContinuation(line[at])) {
      code = code << 6 | (static_cast<unsigned char>(line[at]) & 0x3F);
    }
    indent.append(code == '\t' ? 1 : WidthOf(code), code == '\t' ? '\t' : ' ');
  }
  return indent;
}

std::string Where(const TamberDiagnostic& error) {
  const std::string file = error.file.IsEmpty() ? "tamber" : error.file.Str();
  return file + (error.line != 0 ? ":" + std::to_string(error.line) : "");
}

/// What the error means, and what it is about. One that is about the file as a whole names the file
/// again; it stands before the message already.
std::string Message(const TamberDiagnostic& error) {
  std::string_view detail = error.detail.View();
  if (error.line == 0 && !error.file.IsEmpty() && detail.starts_with(error.file.View())) {
    detail.remove_prefix(error.file.GetLength());
    if (detail.starts_with(' ')) detail.remove_prefix(1);
  }
  std::string message = error.text.Str();
  if (!message.empty() && !detail.empty()) message += ": ";
  return message.append(detail);
}

bool IsSameCall(const TamberCallFrame& a, const TamberCallFrame& b) {
  return a.line == b.line && a.procedure == b.procedure && a.file == b.file;
}

std::string Calls(const TamberDiagnostic& error) {
  std::string calls;
  for (size_t i = 1; i < error.callStack.size();) {
    const TamberCallFrame& frame = error.callStack[i];
    size_t next = i + 1;
    while (next < error.callStack.size() && IsSameCall(frame, error.callStack[next])) ++next;
    calls += "  called by " + frame.procedure.Str() + " at " + frame.file.Str() + ":" +
             std::to_string(frame.line);
    if (next - i > 1) calls += " (" + std::to_string(next - i) + " times)";
    calls += "\n";
    i = next;
  }
  return calls;
}

}  // namespace

std::string ErrorDisplay::Styled(Style style, const std::string& text) const {
  if (!colored_ || style == Style::kPlain) {
    return text;
  }
  return (style == Style::kError ? "\033[1;31m" : "\033[1;32m") + text + "\033[0m";
}

std::string ErrorDisplay::Report(const TamberDiagnostic& error) const {
  std::string kind = "error ";
  if (!error.name.IsEmpty()) {
    kind += error.name.Str() + " ";
  }
  kind += "(" + std::to_string(error.code) + "):";
  std::string report =
      Where(error) + ": " + Styled(Style::kError, kind) + " " + Message(error) + "\n";
  if (!error.sourceLine.IsEmpty()) {
    report += error.sourceLine.Str() + "\n";
    if (error.column != 0) {
      std::string mark = "^ column " + std::to_string(error.column);
      if (error.sourceLineNumber != error.line) {
        mark.insert(2, "line " + std::to_string(error.sourceLineNumber) + ", ");
      }
      report += Indent(error.sourceLine.View(), error.column) + Styled(Style::kMark, mark) + "\n";
    }
  }
  return report + Calls(error);
}

void ErrorDisplay::Show(const TamberDiagnostic& error, void* user) {
  // Only the command stops a script, and it says why.
  constexpr int32_t kStopped = 20120;
  if (error.code == kStopped) return;
  const std::string report = static_cast<const ErrorDisplay*>(user)->Report(error);
  Output::ShowError(report);
}
