// What the machine and the compilers ask of their context.
#include "context/calledscript.h"
#include "context/contextstate.h"
#include "context/session.h"
#include "expr/exprcomp.h"
#include "expr/exprnotes.h"
#include "frontend/compsession.h"
#include "kel/kelascii.h"
#include "kel/nearestname.h"
#include "kel/stop.h"
#include "machine/code.h"
#include "statements/lower.h"
#include "statements/procedure.h"
#include "values/cellops.h"
#include "values/errcodes.h"

namespace tamber {

TamberOperators& ContextState::Operators() { return context; }
FunctionList& ContextState::Functions() { return context; }

TypeList& ContextState::Types() { return context; }
ProcedureList& ContextState::Procedures() { return context; }
ScriptList& ContextState::Scripts() { return context; }

Variable* ContextState::FindVariable(const KelString& name, uint32_t mask) {
  Variable* variable = context.GetVariable(name, mask);
  if (variablesSeen != nullptr)
    variablesSeen->push_back({name, mask, variable != nullptr ? TypeOf(*variable) : TypeRef()});
  return variable;
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

void ContextState::OfferNames(kel::NearestName& nearest, bool callable) {
  if (!run.wantsNotes) return;
  if (callable) {
    for (uint32_t i = 1; i <= context.GetProcedureCount(); ++i)
      nearest.Offer(context.ProcedureList::GetProcedure(i)->GetName());
    for (uint32_t i = 1; i <= context.GetFunctionCount(); ++i)
      nearest.Offer(context.GetFunction(i)->GetName());
    return;
  }
  const VarList* const lists[] = {scopes.globals.get(), scopes.externals.get(), Constants()};
  for (const VarList* list : lists) {
    for (uint32_t i = 0; list != nullptr && i < list->GetSize(); ++i)
      nearest.Offer(list->GetVariable(i)->OwnName().View());
  }
}

void ContextState::NoteUnknownProcedure(std::string_view name) {
  if (!run.wantsNotes) return;
  kel::NearestName nearest(name);
  for (uint32_t i = 1; i <= context.GetProcedureCount(); ++i)
    nearest.Offer(context.ProcedureList::GetProcedure(i)->GetName());
  NoteNearest(nearest, run.notes);
}

int32_t ContextState::SwitchValue(std::string_view name) { return context.GetSwitch(name); }

std::unique_ptr<Code> ContextState::MakeCode(Callable& procedure, bool observed) {
  // All that a context can call comes from scripts.
  auto& compiled = static_cast<TamberProcedure&>(procedure);
  if (!EnsureCompiled(*this, compiled)) return nullptr;
  Lowered lowered = compiled.FrozenNumber() != 0 ? LowerShared(compiled, observed)
                                                 : LowerProcedure(compiled, observed);
  if (!lowered.code) run.SetError(ERR_INTERNAL, procedure.GetName() + ": " + lowered.exceeded);
  return std::move(lowered.code);
}

void ContextState::AddVariable(Variable* variable, enum_VarListType scope) {
  context.AddVariable(variable, scope);
}

void ContextState::LoadSessionValue(Variable& variable) {
  if (inputs != nullptr) inputs->hasEffects = true;
  if (session.id != 0 && session.store) LoadSessionVariable(*this, variable);
}

int32_t ContextState::CheckUniqueVar(const KelString& name, uint32_t mask) {
  return context.CheckUniqueVar(name, mask);
}

void ContextState::ForgetInherited(const KelString& name) {
  if (scopes.inherited.empty() || scopes.inherited.erase(kel::Lowered(name)) == 0) return;
  for (const enum_VarListType scope : {VARLIST_GLOBAL, VARLIST_CONSTANT, VARLIST_EXTERNAL}) {
    Variable::Delete(context.RemoveVariable(name, scope));
  }
  context.DeleteProcedure(name);
  for (const KelString& word : {name, name + "[]"}) {
    const uint32_t type = context.FindType(word);
    if (type != TypeList::kNotFound) context.DeleteType(type);
  }
}

std::shared_ptr<const ScriptText> ContextState::ReadScript(const KelString& path,
                                                           ScriptText::Status& status) {
  const kel::Place place = config.filePolicy.Find(path, kel::Access::Read);
  if (inputs != nullptr) inputs->sources.push_back({path, kel::GetFileStat(place).version});
  return ScriptText::FromFile(path, place, config.scriptKey, status);
}

bool ContextState::LoadModule(const KelString& file, const KelString& callingScript) {
  const kel::Interruptible interruptible(false);  // a module's own code runs
  if (inputs != nullptr) inputs->hasEffects = true;
  void* handle = nullptr;
  return context.LoadFunctionModule(file, callingScript, &handle);
}

void ContextState::Trace(KelString text) {
  const kel::Interruptible interruptible(false);  // a frame is being made or left
  ProcessOutputBuffer(text, KelString("TamberDebug"));
}

}  // namespace tamber

ExpressionCompiler::ExpressionCompiler(TamberContext* context, const tamber::LocalTable* locals,
                                       bool runtimeLocals)
    : ExpressionCompiler(context->State(), locals, runtimeLocals) {}
