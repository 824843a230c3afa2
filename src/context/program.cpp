#include "context/program.h"

#include <algorithm>
#include <mutex>
#include <stdexcept>
#include <utility>

#include "context/contextstate.h"
#include "context/defaults.h"
#include "context/handletable.h"
#include "context/modulehost.h"
#include "frontend/script.h"
#include "machine/machine.h"
#include "machine/runlimits.h"
#include "statements/lower.h"
#include "statements/procedure.h"
#include "values/errcodes.h"

namespace tamber {
namespace {

std::unique_ptr<VarList> SeparateIfAny(const std::unique_ptr<VarList>& list) {
  return list != nullptr ? SeparateScope(*list) : nullptr;
}

std::unique_ptr<VarList> SettledIfAny(const std::unique_ptr<VarList>& list) {
  std::unique_ptr<VarList> settled = SeparateIfAny(list);
  if (settled != nullptr) settled->Settle();
  return settled;
}

std::unique_ptr<VarList> CopyLaterIfAny(const std::unique_ptr<VarList>& list) {
  return list != nullptr ? std::make_unique<VarList>(VarList::CopyLater(*list)) : nullptr;
}

}  // namespace

std::shared_ptr<const TamberProgram> ContextState::Lender() const {
  const VarList* const constants = scopes.programConstants;
  if (constants == nullptr && modules->GetCount() == 0) return nullptr;
  std::shared_ptr<const TamberProgram> lender = program;
  while (lender != nullptr) {
    const ContextState& own = *lender->prepared_->state_;
    if (own.modules->OwnsAny() || (constants != nullptr && own.scopes.constants.get() == constants))
      break;
    lender = own.program;
  }
  return lender;
}

void ContextState::CopyPrepared(const ContextState& from) {
  errors.list = from.errors.list;
  CopySettings(from);
  session.store.reset();
  CopyListeners(from);
  if (const RunLimits* const limits = from.run.Limits()) {
    run.NeedLimits().Set(limits->Get());
    run.NeedLimits().SetProgress(limits->GetProgress());
  }
  run.stopFlag = from.run.stopFlag && !from.run.isInterrupted;
  modules = MakeModuleList(*this);
  scopes.sharedConstants = from.scopes.sharedConstants;
  scopes.sharedNames = from.scopes.sharedNames;
  for (uint32_t i = 0; i < from.context.GetScriptCount(); ++i) {
    context.AddScript(
        std::make_unique<TamberScript>(&context, from.context.GetScript(i)->GetText()));
  }
  run.ScopeChanged();
}

void ContextState::FreezeProcedures() {
  const std::vector<TamberProcedure*> all = context.SharePools();
  uint32_t number = 0;
  for (const TamberProcedure* procedure : all) number = std::max(number, procedure->FrozenNumber());
  for (TamberProcedure* procedure : all) {
    if (procedure->FrozenNumber() != 0) continue;
    std::unique_ptr<Code> code;
    if (procedure->GetState() == TamberProcedure::State::Compiled)
      code = LowerShared(*procedure, false).code;
    procedure->Freeze(++number, std::move(code));
  }
}

Lowered ContextState::LowerShared(const TamberProcedure& procedure, bool observed) {
  // Code is made of trees, which count references to strings.
  static std::mutex mutex;
  const std::lock_guard lock(mutex);
  Lowered lowered = LowerProcedure(procedure, observed);
  if (lowered.code) lowered.code->SeparateConstants();
  return lowered;
}

}  // namespace tamber

using tamber::ContextState;

TamberProgram::TamberProgram(std::unique_ptr<TamberContext> prepared)
    : prepared_(std::move(prepared)) {}

TamberProgram::~TamberProgram() = default;

TamberContext::TamberContext(const TamberContext& prepared, Prepared)
    : TamberOperators(prepared),
      ProcedureList(prepared),
      FunctionList(prepared),
      TypeList(prepared),
      ScriptList(),
      state_(std::make_unique<ContextState>(*this)) {
  state_->CopyPrepared(*prepared.state_);
}

TamberContext::TamberContext(TamberContext& prepared, Prepared tag)
    : TamberContext(std::as_const(prepared), tag) {
  const ContextState& from = *prepared.state_;
  state_->program = from.Lender();
  state_->scopes.programConstants = from.scopes.programConstants;
  state_->scopes.declared = from.scopes.declared.Whole();
  state_->scopes.constants = tamber::SettledIfAny(from.scopes.constants);
  state_->scopes.globals = tamber::SettledIfAny(from.scopes.globals);
  state_->scopes.externals = tamber::SettledIfAny(from.scopes.externals);
  state_->scopes.keptGlobals = tamber::SettledIfAny(from.scopes.keptGlobals);
  state_->modules->TakeOver(*from.modules);
}

TamberContext::TamberContext(std::shared_ptr<const TamberProgram> program)
    : TamberContext(program != nullptr ? *program->prepared_
                                       : throw std::invalid_argument("TamberContext: no program"),
                    Prepared::Program) {
  const ContextState& from = *program->prepared_->state_;
  state_->program = std::move(program);
  state_->scopes.declared.BeginBehind(from.scopes.declared);
  state_->scopes.globals = tamber::CopyLaterIfAny(from.scopes.globals);
  state_->scopes.externals = tamber::CopyLaterIfAny(from.scopes.externals);
  state_->scopes.keptGlobals = tamber::CopyLaterIfAny(from.scopes.keptGlobals);
  state_->scopes.programConstants =
      from.scopes.constants != nullptr ? from.scopes.constants.get() : from.scopes.programConstants;
  state_->modules->Borrow(*from.modules);
  if (state_->session.id != 0) SetSessionId(state_->session.id);
}

std::shared_ptr<const TamberProgram> TamberContext::Freeze() {
  if (state_->nested || state_->machine->IsRunning()) {
    SetContextError(ERR_FUNCFAILED, "A context cannot be made a program while it runs");
    return nullptr;
  }
  if (GetContextError() != ERR_SUCCESS) return nullptr;
  try {
    state_->ForgetCalls();
    state_->evaluatedTexts.Clear();
    state_->machine->ForgetFrozenCodes();
    state_->FreezeProcedures();
    ShareWithPrograms();
    LendFunctions(FunctionList::Prototypes::Read);
    std::unique_ptr<TamberContext> prepared(new TamberContext(*this, Prepared::Program));
    std::shared_ptr<const TamberProgram> program(new TamberProgram(std::move(prepared)));
    // What came from another program may go with that.
    tamber::Scopes& scopes = state_->scopes;
    scopes.declared.BeginBehind(program->prepared_->state_->scopes.declared);
    for (const auto* list :
         {&scopes.globals, &scopes.externals, &scopes.keptGlobals, &scopes.constants})
      if (*list != nullptr) (*list)->Complete();
    state_->program = program;
    return program;
  } catch (const std::bad_alloc&) {
    SetContextError(ERR_NOMEMORY, "");
    return nullptr;
  }
}
