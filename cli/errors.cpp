#include "errors.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <string_view>

#include "output.h"
#include "shownline.h"

namespace {

std::string Where(const TamberDiagnostic& error) {
  const std::string file = error.file.IsEmpty() ? "tamber" : Printable(error.file);
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
  return message + Printable(detail);
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
    calls += "  called by " + Printable(frame.procedure) + " at " + Printable(frame.file) + ":" +
             std::to_string(frame.line);
    if (next - i > 1) calls += " (" + std::to_string(next - i) + " times)";
    calls += "\n";
    i = next;
  }
  return calls;
}

std::string Notes(const TamberDiagnostic& error) {
  std::string notes;
  for (const TamberNote& note : error.notes) {
    notes += note.kind == TamberNote::Kind::Hint ? "hint: " : "note: ";
    notes += Printable(note.text) + "\n";
  }
  return notes;
}

/// How long a source line may be.
size_t LineWidth() {
  constexpr size_t kUsual = 120;
  constexpr size_t kLeast = 40;
  winsize size{};
  if (::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return kUsual;
  return std::max<size_t>(size.ws_col, kLeast);
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
    const ShownLine line = ShowLine(error.sourceLine, error.column, LineWidth());
    report += line.text + "\n";
    if (error.column != 0) {
      std::string mark = "^ column " + std::to_string(error.column);
      if (error.sourceLineNumber != error.line) {
        mark.insert(2, "line " + std::to_string(error.sourceLineNumber) + ", ");
      }
      report += line.indent + Styled(Style::kMark, mark) + "\n";
    }
  }
  report += Notes(error);
  return report + Calls(error);
}

void ErrorDisplay::Show(const TamberDiagnostic& error, void* user) {
  // Only the command stops a script, and it says why.
  constexpr int32_t kStopped = 20120;
  if (error.code == kStopped) return;
  const std::string report = static_cast<const ErrorDisplay*>(user)->Report(error);
  Output::ShowError(report);
}
