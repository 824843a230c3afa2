#include "frontend/compwhile.h"

#include "frontend/jumppatch.h"
#include "frontend/stmtcomp.h"
#include "values/errcodes.h"

namespace tamber {

// top: condition, jump if false to OUT, body, jump to top, OUT:
bool CompileWhile(StatementCompiler& compiler, uint32_t flags) {
  const uint32_t line = compiler.Line();
  uint32_t end = 0;
  if (!compiler.FindBlockEnd(end)) return false;
  if (end == 0) return compiler.FailNoEnd(ERR_WHILENOWEND, "wend");
  const uint32_t top = compiler.Count() + 1;
  uint32_t jump = 0;
  if (!compiler.CompileCondition(compiler.Tokens(), jump)) return false;
  if (!compiler.CompileBlock(end, flags | kInWhile)) return false;
  StatementList& statements = compiler.Statements();
  AppendJump(statements, line, top);
  const uint32_t out = compiler.Count() + 1;
  SetJumpTarget(statements, jump, out);
  ResolvePlaceholders(statements, jump, STATEMENT_BREAK, out);
  ResolvePlaceholders(statements, jump, STATEMENT_CONTINUE, top);
  compiler.Script().ReadLineAt(end);
  return true;
}

}  // namespace tamber
