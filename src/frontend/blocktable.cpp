#include "frontend/blocktable.h"

#include <algorithm>

#include "frontend/scrline.h"
#include "kel/kelascii.h"

namespace tamber {

struct BlockTable::Pending {
  std::vector<OpenIf> ifs;
  std::vector<size_t> whiles;
  std::vector<size_t> fors;
};

namespace {

bool Is(std::string_view word, std::string_view keyword) {
  return kel::EqualsNoCase(word, keyword);
}

}  // namespace

void BlockTable::Build(ScriptLine& script, const TypeWordTest& isTypeWord) {
  Pending pending;
  Tokeniser& tokeniser = script.GetTokeniser();
  while (script.ReadLogicalLine()) {
    const uint32_t line = script.GetStatementLine();
    tokeniser.ReadToken();
    const std::string_view word = tokeniser.Token();
    if (tokeniser.GetLastError() != 0) {
      faults_.push_back({line, tokeniser.GetLastError()});
    } else if (word == "/*") {
      if (!script.SkipBlockComment()) openCommentLine_ = line;
    } else if (Is(word, "endproc")) {
      endProcLine_ = line;
      return;
    } else if (Is(word, "proc") || FindTypeLine(tokeniser, isTypeWord) == TypeLine::Header) {
      if (nestedProcLine_ == 0) nestedProcLine_ = line;
    } else {
      Count(word, line, pending);
    }
  }
}

size_t BlockTable::AddOpener(uint32_t line) {
  openers_.push_back({line, 0});
  return openers_.size() - 1;
}

void BlockTable::Close(size_t opener, uint32_t line) {
  if (opener != kNone) openers_[opener].match = line;
}

void BlockTable::Count(std::string_view word, uint32_t line, Pending& pending) {
  const auto closeLast = [&](std::vector<size_t>& open) {
    if (open.empty()) return;
    Close(open.back(), line);
    open.pop_back();
  };
  if (Is(word, "if")) {
    pending.ifs.push_back({AddOpener(line), {}});
  } else if (Is(word, "while")) {
    pending.whiles.push_back(AddOpener(line));
  } else if (Is(word, "for")) {
    pending.fors.push_back(AddOpener(line));
  } else if (Is(word, "wend") || Is(word, "endwhile")) {
    closeLast(pending.whiles);
  } else if (Is(word, "endfor")) {
    closeLast(pending.fors);
  } else if (!pending.ifs.empty()) {
    CountBranch(word, line, pending);
  }
}

void BlockTable::CountBranch(std::string_view word, uint32_t line, Pending& pending) {
  const bool isElse = Is(word, "else");
  const bool isEnd = Is(word, "endif");
  if (!isElse && !isEnd && !Is(word, "elif") && !Is(word, "elseif")) return;
  OpenIf& open = pending.ifs.back();
  Close(open.branch, line);
  open.branch = kNone;
  if (isEnd) {
    for (const size_t elseLine : open.elseLines) Close(elseLine, line);
    pending.ifs.pop_back();
  } else if (isElse) {
    open.elseLines.push_back(AddOpener(line));
  } else {
    open.branch = AddOpener(line);
  }
}

BlockTable::Match BlockTable::Find(uint32_t openingLine) const {
  const auto byLine = [](const auto& entry, uint32_t line) { return entry.line < line; };
  const auto opener = std::lower_bound(openers_.begin(), openers_.end(), openingLine, byLine);
  Match match;
  if (opener != openers_.end() && opener->line == openingLine) match.line = opener->match;
  const auto fault = std::lower_bound(faults_.begin(), faults_.end(), openingLine + 1, byLine);
  if (fault != faults_.end() && (match.line == 0 || fault->line < match.line)) {
    match.error = fault->error;
    match.errorLine = fault->line;
  }
  return match;
}

}  // namespace tamber
