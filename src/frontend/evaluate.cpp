#include "frontend/evaluate.h"

#include "context/errcodes.h"
#include "context/tambctxt.h"
#include "engine/stack.h"
#include "expr/exprcomp.h"
#include "frontend/compsession.h"
#include "frontend/scrline.h"

namespace tamber {

VarHolder Evaluate(CompileSession& session, ScriptLine& script, const KelString& terminators,
                   const TypeDesc* target) {
  TamberContext& context = session.Context();
  ExpressionCompiler compiler(&context);
  Tokeniser* const tokeniser = &script.GetTokeniser();
  const int32_t compiled = target ? compiler.CompileAssigned(tokeniser, terminators, *target)
                                  : compiler.CompileExpression(tokeniser, terminators);
  if (!compiled) {
    session.Fail(script, compiler.GetError(), compiler.GetErrorText());
    return nullptr;
  }
  Stack stack;
  if (!compiler.EvaluateExpression(&stack) || context.GetContextError() >= kFirstFatalError ||
      stack.GetSize() == 0) {
    session.FailHere(script);
    return nullptr;
  }
  return VarHolder(stack.PopVariable());
}

}  // namespace tamber
