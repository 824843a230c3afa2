#include "frontend/scrline.h"

#include <new>

#include "kel/kelascii.h"
#include "kel/stop.h"
#include "values/errcodes.h"

// The tokeniser knows no list of errors; what it leaves is reported by these numbers.
static_assert(Tokeniser::kNoMemory == ERR_NOMEMORY && Tokeniser::kBadQuote == ERR_SCRBADQUOTE &&
              Tokeniser::kNoQuote == ERR_SCRNOQUOTE);

namespace {

bool IsNameByte(char c) { return kel::IsAlnum(c) || c == '_'; }

/// The last place at or before `from` where the line has this token; npos when there is none.
size_t FindToken(std::string_view line, std::string_view token, size_t from) {
  if (token.empty()) return std::string_view::npos;
  const bool isName = IsNameByte(token.front());
  size_t at = line.rfind(token, from);
  while (isName && at != std::string_view::npos) {
    const size_t end = at + token.size();
    if ((at == 0 || !IsNameByte(line[at - 1])) && (end == line.size() || !IsNameByte(line[end])))
      break;
    at = at == 0 ? std::string_view::npos : line.rfind(token, at - 1);
  }
  return at;
}

}  // namespace

ScriptLine::ScriptLine(std::shared_ptr<const tamber::ScriptText> text, uint32_t origin)
    : text_(std::move(text)), nextLine_(text_->FirstLine()), statementLine_(nextLine_) {
  tokeniser_.SetOrigin(origin);
}

ScriptLine::~ScriptLine() = default;

bool ScriptLine::ReadLogicalLine() {
  kel::CheckStop();
  statementLine_ = nextLine_;
  if (!text_->HasLine(nextLine_)) {
    tokeniser_.SetLine("");
    tokeniser_.SetLastError(ERR_SCRNOMORELINES);
    return false;
  }
  const std::string_view line = kel::Trimmed(text_->Line(nextLine_++));
  if (tamber::ScriptText::BeginsComment(line)) {
    tokeniser_.SetWholeLine({});
  } else if (line.ends_with('\\')) {
    ReadContinued(line);
  } else {
    tokeniser_.SetWholeLine(line);
  }
  // A line that is not there must not look like an empty one.
  if (tokeniser_.GetLastError() == Tokeniser::kNoMemory) throw std::bad_alloc();
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
    if (tamber::ScriptText::BeginsComment(line)) break;
  }
  tokeniser_.SetLine(kel::Trimmed(joined));
}

bool ScriptLine::ReadLineAt(uint32_t line) {
  nextLine_ = line;
  return ReadLogicalLine();
}

uint32_t ScriptLine::GetOffset(std::string_view name) const {
  if (tokeniser_.LineStart() == nullptr || tokeniser_.LineEnd() == nullptr)
    return tokeniser_.Origin();
  const std::string_view logical(
      tokeniser_.LineStart(), static_cast<size_t>(tokeniser_.LineEnd() - tokeniser_.LineStart()));
  const auto read = static_cast<size_t>(tokeniser_.TokenStart() - tokeniser_.LineStart());
  const size_t named = FindToken(logical, name, read);
  const size_t at = named != std::string_view::npos ? named : read;
  return tokeniser_.OffsetOf(tokeniser_.LineStart() + at);
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
