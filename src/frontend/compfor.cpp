#include "frontend/compfor.h"

#include <new>

#include "frontend/jumppatch.h"
#include "frontend/stmtcomp.h"
#include "kel/kelascii.h"
#include "values/errcodes.h"

namespace tamber {

namespace {

struct ForPart {
  std::string text;
  uint32_t offset = 0;  ///< in the logical line
};

struct ForHeader {
  ForPart init;
  ForPart condition;
  ForPart step;
};

/// Cuts the header as text: quotes and nested parentheses mean nothing here, and what follows the
/// first ")" behind the second ";" is ignored. False when a separator is missing.
bool SplitHeader(Tokeniser& tokeniser, ForHeader& header) {
  tokeniser.ReadToken();
  if (tokeniser.Token() != "(") return false;
  std::string_view rest = tokeniser.Rest();
  const auto cut = [&](char separator, ForPart& part) {
    const size_t end = rest.find(separator);
    if (end == rest.npos) return false;
    const std::string_view text = kel::Trimmed(rest.substr(0, end));
    part = {std::string(text), tokeniser.OffsetOf(text.data())};
    rest.remove_prefix(end + 1);
    return true;
  };
  return cut(';', header.init) && cut(';', header.condition) && cut(')', header.step);
}

}  // namespace

// init, top: condition, jump if false to OUT, body, next: step, jump to top, OUT:
bool CompileFor(StatementCompiler& compiler, uint32_t flags) {
  const uint32_t line = compiler.Line();
  const KelString keyword(compiler.Tokens().Token());
  uint32_t end = 0;
  if (!compiler.FindBlockEnd(end)) return false;
  if (end == 0) return compiler.FailNoEnd(ERR_FORNOENDFOR, "endfor");
  ForHeader header;
  if (!SplitHeader(compiler.Tokens(), header)) return compiler.Fail(ERR_FORBADSYNTAX, keyword);

  // Without an init the condition is ignored on purpose: the loop runs until something leaves it.
  const bool hasCondition = !header.init.text.empty();
  if (hasCondition && !compiler.CompilePart(header.init.text, header.init.offset, 0)) return false;
  const uint32_t top = compiler.Count() + 1;
  uint32_t jump = 0;
  Tokeniser condition(header.condition.text.c_str());
  if (condition.GetLastError() == Tokeniser::kNoMemory) throw std::bad_alloc();
  condition.SetOrigin(header.condition.offset);
  if (hasCondition && !compiler.CompileCondition(condition, jump)) return false;
  if (!compiler.CompileBlock(end, flags | kInFor)) return false;
  const uint32_t next = compiler.Count() + 1;
  compiler.Script().ReadLineAt(line);  // errors of the step are those of the for line
  const bool hasStep = !header.step.text.empty();
  if (hasStep && !compiler.CompilePart(header.step.text, header.step.offset, 0)) return false;
  StatementList& statements = compiler.Statements();
  AppendJump(statements, line, top);
  const uint32_t out = compiler.Count() + 1;
  if (hasCondition) SetJumpTarget(statements, jump, out);
  ResolvePlaceholders(statements, top, STATEMENT_BREAK, out);
  ResolvePlaceholders(statements, top, STATEMENT_CONTINUE, next);
  compiler.Script().ReadLineAt(end);
  return true;
}

}  // namespace tamber
