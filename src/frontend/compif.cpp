#include "frontend/compif.h"

#include "frontend/jumppatch.h"
#include "frontend/stmtcomp.h"
#include "values/errcodes.h"

namespace tamber {

namespace {

bool IsElif(const Tokeniser& tokeniser) {
  return tokeniser.TokenIs("elif") || tokeniser.TokenIs("elseif");
}

/// Compiles condition and body of an if or elif. The next branch line has then been read, and its
/// keyword is the current token.
bool CompileBranch(StatementCompiler& compiler, uint32_t flags) {
  const bool first = compiler.Tokens().TokenIs("if");
  uint32_t next = 0;
  if (!compiler.FindBlockEnd(next)) return false;
  if (next == 0) return compiler.FailNoEnd(ERR_ENDIFUNMATCHED, "endif");
  uint32_t jump = 0;
  if (!compiler.CompileCondition(compiler.Tokens(), jump)) return false;
  if (!compiler.CompileBlock(next, flags | kInIf)) return false;
  compiler.Script().ReadLineAt(next);
  Tokeniser& tokeniser = compiler.Tokens();
  tokeniser.ReadToken();
  // Only an if without any other branch has nothing to jump over.
  if (!first || !tokeniser.TokenIs("endif")) compiler.Append<StatementBase>(STATEMENT_ENDBRANCH);
  SetJumpTarget(compiler.Statements(), jump, compiler.Count() + 1);
  return true;
}

bool CompileElse(StatementCompiler& compiler, uint32_t flags) {
  uint32_t end = 0;
  if (!compiler.FindBlockEnd(end)) return false;
  if (end == 0) return compiler.FailNoEnd(ERR_ELSENOEND, "endif");
  if (!compiler.CompileBlock(end, flags | kInIf)) return false;
  compiler.Script().ReadLineAt(end);
  return true;
}

}  // namespace

bool CompileIf(StatementCompiler& compiler, uint32_t flags) {
  const uint32_t first = compiler.Count() + 1;
  do {
    if (!CompileBranch(compiler, flags)) return false;
  } while (IsElif(compiler.Tokens()));
  if (compiler.Tokens().TokenIs("else") && !CompileElse(compiler, flags)) return false;
  ResolvePlaceholders(compiler.Statements(), first, STATEMENT_ENDBRANCH, compiler.Count() + 1);
  return true;
}

}  // namespace tamber
