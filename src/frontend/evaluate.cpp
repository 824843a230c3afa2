#include "frontend/evaluate.h"

#include <utility>

#include "engine/stack.h"
#include "expr/exprcomp.h"
#include "frontend/compilehost.h"
#include "frontend/compsession.h"
#include "frontend/declread.h"
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

/// Tells what runs that it computes a value of a declaration.
class Declaring {
 public:
  explicit Declaring(RunState& run) : run_(run), before_(std::exchange(run.isDeclaring, true)) {}
  Declaring(const Declaring&) = delete;
  Declaring& operator=(const Declaring&) = delete;
  ~Declaring() { run_.isDeclaring = before_; }

 private:
  RunState& run_;
  bool before_;
};

}  // namespace

VarHolder Evaluate(CompileSession& session, ScriptLine& script, const KelString& terminators,
                   const DeclaredName* target, std::optional<double>* exact) {
  CompileHost& host = session.Host();
  ExpressionCompiler compiler(host);
  Tokeniser* const tokeniser = &script.GetTokeniser();
  const int32_t compiled =
      target ? compiler.CompileAssigned(tokeniser, terminators, *target->type, target->name)
             : compiler.CompileExpression(tokeniser, terminators);
  if (!compiled) {
    host.SetError(compiler.GetError(), compiler.GetErrorText());
    host.Run().notes = compiler.Notes();
    session.FailHere(script, compiler.GetErrorOffset());
    return nullptr;
  }
  const Declaring declaring(host.Run());
  Stack stack;
  const bool evaluated = compiler.EvaluateExpression(&stack) != 0 && stack.GetSize() != 0;
  const bool stopped = host.Run().stopFlag && host.Error() == ERR_SUCCESS;
  // What it called may have ended the script: nothing will run any more.
  const uint32_t offset = compiler.GetErrorOffset();
  if (!evaluated && !stopped && !session.RestoreReported()) {
    session.FailHere(script, offset);
    return nullptr;
  }
  VarHolder value(evaluated ? stack.PopVariable() : MakeVariable(compiler.ResultType(), Name()));
  if (exact != nullptr && evaluated && host.Error() == ERR_SUCCESS) {
    *exact = EvaluateAsDouble(host, compiler);
  }
  return session.GoOn(script, offset) ? std::move(value) : nullptr;
}

}  // namespace tamber
