#include "frontend/scrline.h"

#include "context/errcodes.h"
#include "kel/kelascii.h"

namespace {

bool BeginsComment(std::string_view line) {
  return line.starts_with("//") || line.starts_with(';') || line.starts_with('#');
}

}  // namespace

ScriptLine::ScriptLine(std::shared_ptr<const tamber::ScriptText> text)
    : text_(std::move(text)), nextLine_(text_->FirstLine()), statementLine_(nextLine_) {}

ScriptLine::~ScriptLine() = default;

bool ScriptLine::ReadLogicalLine() {
  statementLine_ = nextLine_;
  if (!text_->HasLine(nextLine_)) {
    tokeniser_.SetLine("");
    tokeniser_.SetLastError(ERR_SCRNOMORELINES);
    return false;
  }
  const std::string_view line = kel::Trimmed(text_->Line(nextLine_++));
  if (BeginsComment(line)) {
    tokeniser_.SetLine("");
  } else if (line.ends_with('\\')) {
    ReadContinued(line);
  } else {
    tokeniser_.SetLine(line);
  }
  return true;
}

/// Joins the lines of a continued statement, of which `line` is the first. The script's end, a
/// blank line and a comment line end the statement too.
void ScriptLine::ReadContinued(std::string_view line) {
  std::string joined;
  for (;;) {
    joined += line;
    if (!joined.ends_with('\\')) break;
    joined.back() = ' ';
    if (!text_->HasLine(nextLine_)) break;
    line = kel::Trimmed(text_->Line(nextLine_++));
    if (BeginsComment(line)) break;
  }
  tokeniser_.SetLine(kel::Trimmed(joined));
}

bool ScriptLine::ReadLineAt(uint32_t line) {
  nextLine_ = line;
  return ReadLogicalLine();
}

void ScriptLine::SetPosition(const Position& position) {
  ReadLineAt(position.statementLine);
  nextLine_ = position.nextLine;
}

KelString ScriptLine::GetLogicalLine() const {
  const char* const start = tokeniser_.LineStart();
  return start ? KelString(start, static_cast<size_t>(tokeniser_.LineEnd() - start)) : KelString();
}

bool ScriptLine::SkipBlockComment() {
  // The raw text is searched: quotes and comment marks inside a comment mean nothing.
  const std::string_view text = text_->From(statementLine_);
  const size_t open = text.find("/*");
  const size_t close = open == text.npos ? text.npos : text.find("*/", open + 2);
  nextLine_ = close == text.npos ? text_->EndLine() : text_->LineAt(text.data() + close) + 1;
  return close != text.npos;
}
