#include "frontend/evaluate.h"

#include "context/contextstate.h"
#include "engine/stack.h"
#include "expr/exprcomp.h"
#include "frontend/compsession.h"
#include "frontend/scrline.h"
#include "values/cellops.h"
#include "values/errcodes.h"

namespace tamber {
namespace {

std::optional<double> EvaluateAsDouble(TamberContext& context, ExpressionCompiler& compiler) {
  if (!compiler.BecomeDouble()) return std::nullopt;
  Stack stack;
  if (compiler.EvaluateExpression(&stack) && context.GetContextError() == ERR_SUCCESS) {
    return VarHolder(stack.PopVariable())->GetDoubleValue();
  }
  // Only as doubles the digits cancel out below a division: the float is all there is.
  context.SetContextError(ERR_SUCCESS, KelString());
  return std::nullopt;
}

}  // namespace

VarHolder Evaluate(CompileSession& session, ScriptLine& script, const KelString& terminators,
                   const TypeDesc* target, std::optional<double>* exact) {
  TamberContext& context = session.Context();
  ExpressionCompiler compiler(&context);
  Tokeniser* const tokeniser = &script.GetTokeniser();
  const int32_t compiled = target ? compiler.CompileAssigned(tokeniser, terminators, *target)
                                  : compiler.CompileExpression(tokeniser, terminators);
  if (!compiled) {
    context.SetContextError(compiler.GetError(), compiler.GetErrorText());
    session.FailHere(script, compiler.GetErrorOffset());
    return nullptr;
  }
  Stack stack;
  const bool evaluated = compiler.EvaluateExpression(&stack) != 0;
  if (!evaluated && context.State().run.stopFlag && context.GetContextError() == 0) {
    // What it called has ended the script: there is no value, and nothing will run any more.
    return VarHolder(MakeVariable(compiler.ResultType(), Name()));
  }
  if (!evaluated || context.GetContextError() >= kFirstFatalError || stack.GetSize() == 0) {
    session.FailHere(script, compiler.GetErrorOffset());
    return nullptr;
  }
  if (context.GetContextError() != ERR_SUCCESS) {
    session.NoteLeftError(script, compiler.GetErrorOffset());
  } else if (exact != nullptr) {
    *exact = EvaluateAsDouble(context, compiler);
  }
  return VarHolder(stack.PopVariable());
}

}  // namespace tamber
