// What the machine and the compiler of expressions ask of their context.
#include "context/contextstate.h"
#include "expr/exprcomp.h"
#include "frontend/compsession.h"
#include "machine/code.h"
#include "statements/lower.h"
#include "statements/procedure.h"
#include "values/errcodes.h"

namespace tamber {

TamberOperators& ContextState::Operators() { return context; }
FunctionList& ContextState::Functions() { return context; }

Variable* ContextState::FindVariable(const KelString& name, uint32_t scopes) {
  return context.GetVariable(name, scopes);
}

const Variable* ContextState::FindConstant(std::string_view name) {
  return context.PeekConstant(name);
}

Callable* ContextState::FindCallable(std::string_view name) { return context.GetProcedure(name); }

Variable* ContextState::FindOuter(const Name& name) {
  for (enum_VarListType scope : {VARLIST_GLOBAL, VARLIST_EXTERNAL, VARLIST_CONSTANT}) {
    const bool known = scope != VARLIST_CONSTANT || context.PeekConstant(name.View()) != nullptr;
    const VarList* list = known ? Scope(scope) : nullptr;
    if (list == nullptr) continue;
    const uint32_t at = list->FindVariable(name);
    if (at != VarList::kNotFound) return list->GetVariable(at);
  }
  return nullptr;
}

int32_t ContextState::SwitchValue(std::string_view name) { return context.GetSwitch(name); }

std::unique_ptr<Code> ContextState::MakeCode(Callable& procedure, bool observed) {
  // All that a context can call comes from scripts.
  auto& compiled = static_cast<TamberProcedure&>(procedure);
  if (!EnsureCompiled(context, compiled)) return nullptr;
  std::unique_ptr<Code> code = LowerProcedure(compiled, observed);
  if (!code) run.SetError(ERR_NOMEMORY, procedure.GetName());
  return code;
}

void ContextState::Trace(KelString text) { ProcessOutputBuffer(text, KelString("TamberDebug")); }

}  // namespace tamber

ExpressionCompiler::ExpressionCompiler(TamberContext* context, const tamber::LocalTable* locals,
                                       bool runtimeLocals)
    : ExpressionCompiler(context->State(), locals, runtimeLocals) {}
