#include "frontend/evaluate.h"

#include "engine/stack.h"
#include "expr/exprcomp.h"
#include "frontend/compilehost.h"
#include "frontend/compsession.h"
#include "frontend/scrline.h"
#include "values/cellops.h"
#include "values/errcodes.h"

namespace tamber {
namespace {

std::optional<double> EvaluateAsDouble(CompileHost& host, ExpressionCompiler& compiler) {
  if (!compiler.BecomeDouble()) return std::nullopt;
  Stack stack;
  if (compiler.EvaluateExpression(&stack) && host.Error() == ERR_SUCCESS) {
    return VarHolder(stack.PopVariable())->GetDoubleValue();
  }
  // Only as doubles the digits cancel out below a division: the float is all there is.
  host.SetError(ERR_SUCCESS, KelString());
  return std::nullopt;
}

}  // namespace

VarHolder Evaluate(CompileSession& session, ScriptLine& script, const KelString& terminators,
                   const TypeDesc* target, std::optional<double>* exact) {
  CompileHost& host = session.Host();
  ExpressionCompiler compiler(host);
  Tokeniser* const tokeniser = &script.GetTokeniser();
  const int32_t compiled = target ? compiler.CompileAssigned(tokeniser, terminators, *target)
                                  : compiler.CompileExpression(tokeniser, terminators);
  if (!compiled) {
    host.SetError(compiler.GetError(), compiler.GetErrorText());
    session.FailHere(script, compiler.GetErrorOffset());
    return nullptr;
  }
  Stack stack;
  const bool evaluated = compiler.EvaluateExpression(&stack) != 0;
  if (!evaluated && host.Run().stopFlag && host.Error() == 0) {
    // What it called has ended the script: there is no value, and nothing will run any more.
    return VarHolder(MakeVariable(compiler.ResultType(), Name()));
  }
  if (!evaluated || host.Error() >= kFirstFatalError || stack.GetSize() == 0) {
    session.FailHere(script, compiler.GetErrorOffset());
    return nullptr;
  }
  if (host.Error() != ERR_SUCCESS) {
    session.NoteLeftError(script, compiler.GetErrorOffset());
  } else if (exact != nullptr) {
    *exact = EvaluateAsDouble(host, compiler);
  }
  return VarHolder(stack.PopVariable());
}

}  // namespace tamber
