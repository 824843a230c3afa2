#include "errors.h"

#include <cstdio>
#include <string>

namespace {

/// Under the column, whatever the width of the tabs before it.
std::string Indent(const std::string& line, size_t column) {
  std::string indent = line.substr(0, column - 1);
  for (char& c : indent) {
    c = c == '\t' ? '\t' : ' ';
  }
  indent.resize(column - 1, ' ');
  return indent;
}

std::string Calls(const TamberDiagnostic& error) {
  std::string calls;
  for (size_t i = 1; i < error.callStack.size(); ++i) {
    const TamberCallFrame& frame = error.callStack[i];
    calls += "  called by " + frame.procedure.Str() + " at " + frame.file.Str() + ":" +
             std::to_string(frame.line) + "\n";
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
  std::string report = error.file.Str() + ":" + std::to_string(error.line) + ": " +
                       Styled(Style::kError, kind) + " " + error.text.Str();
  if (!error.detail.IsEmpty()) {
    report += ": " + error.detail.Str();
  }
  report += "\n";
  if (!error.sourceLine.IsEmpty()) {
    report += error.sourceLine.Str() + "\n";
    if (error.column != 0) {
      report += Indent(error.sourceLine.Str(), error.column) +
                Styled(Style::kMark, "^ column " + std::to_string(error.column)) + "\n";
    }
  }
  return report + Calls(error);
}

void ErrorDisplay::Show(const TamberDiagnostic& error, void* user) {
  const std::string report = static_cast<const ErrorDisplay*>(user)->Report(error);
  std::fwrite(report.data(), 1, report.size(), stderr);
}
