#include "frontend/compcall.h"

#include "frontend/compilehost.h"
#include "frontend/stmtcomp.h"
#include "statements/statcall.h"
#include "statements/statpopstack.h"
#include "values/errcodes.h"
#include "values/errhints.h"
#include "values/variable.h"

namespace tamber {

namespace {

bool CompileReturnValue(StatementCompiler& compiler, const TypeDesc& type) {
  ExpressionCompiler& expressions = compiler.Expressions();
  const std::string_view name = compiler.Procedure().GetName().View();
  if (!expressions.CompileAssigned(&compiler.Tokens(), ";", type, name)) {
    compiler.FailExpression();
    if (compiler.Host().Error() == ERR_EXPREMPTY)
      compiler.Host().Run().notes.Note("the procedure returns a value of type " + type.Word());
    return false;
  }
  if (!type.Accepts(*expressions.ResultType())) {
    const TypeRef value = expressions.ResultType();
    compiler.Fail(ERR_RETURNWRONGTYPE, "");
    compiler.Host().Run().notes.Note(MismatchText(type, *value));
    return false;
  }
  compiler.AppendExpression(StatementExpression::Use::Returned);
  return true;
}

bool CheckNoReturnValue(StatementCompiler& compiler) {
  Tokeniser& tokeniser = compiler.Tokens();
  tokeniser.ReadToken();
  if (tokeniser.GetLastError() != 0) return compiler.Fail(tokeniser.GetLastError(), "");
  if (tokeniser.GetTokenLength() == 0) return true;
  return compiler.Fail(ERR_RETURNNOTEMPTY, tokeniser.Token());
}

}  // namespace

bool CompileDiscarded(StatementCompiler& compiler) {
  compiler.Tokens().ResetLine();
  if (!compiler.Expressions().CompileDropped(&compiler.Tokens())) {
    return compiler.FailExpression();
  }
  compiler.AppendExpression(StatementExpression::Use::Dropped);
  compiler.Append<StatementPopStack>();
  return true;
}

bool CompileCall(StatementCompiler& compiler, uint32_t) {
  ExpressionCompiler& expressions = compiler.Expressions();
  ErrorNotes& notes = compiler.Host().Run().notes;
  if (!expressions.CompileExpression(&compiler.Tokens(), ";")) {
    compiler.FailExpression();
    if (compiler.Host().Error() == ERR_EXPRBADTOKEN) notes.Hint(kFileNameHint);
    return false;
  }
  if (expressions.ResultType()->TypeId() != Variable::String) {
    compiler.Fail(ERR_EXPRPARMMATCH, "");
    notes.Hint(kFileNameHint);
    return false;
  }
  compiler.AppendExpression(StatementExpression::Use::ScriptName);
  compiler.Append<StatementCallScript>();
  return true;
}

bool CompileReturn(StatementCompiler& compiler, uint32_t flags) {
  TamberProcedure& procedure = compiler.Procedure();
  if (const TypeRef& type = procedure.ReturnType()) {
    if (!CompileReturnValue(compiler, *type)) return false;
    if (flags == 0) procedure.SetReturnsOnMainPath();
  } else if (!CheckNoReturnValue(compiler)) {
    return false;
  }
  compiler.Append<StatementBase>(STATEMENT_RETURN);
  return true;
}

}  // namespace tamber
