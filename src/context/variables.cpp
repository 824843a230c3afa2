#include <algorithm>

#include "context/contextstate.h"
#include "frontend/declread.h"
#include "frontend/reservedwords.h"
#include "frontend/scripttext.h"
#include "kel/kelascii.h"
#include "statements/procedure.h"
#include "text/tokenise.h"
#include "values/cellops.h"
#include "values/errcodes.h"

namespace {

/// The scopes in the order in which a lookup searches them.
constexpr enum_VarListType kScopes[] = {VARLIST_LOCAL, VARLIST_GLOBAL, VARLIST_CONSTANT,
                                        VARLIST_EXTERNAL};

bool IsReservedWord(std::string_view word) {
  for (std::string_view known : tamber::kReservedWords)
    if (kel::EqualsNoCase(known, word)) return true;
  return false;
}

bool HasBadCharacter(std::string_view name) {
  for (char c : name)
    if (!kel::IsAlnum(c) && c != '_') return true;
  return false;
}

std::unique_ptr<VarList>* ListOf(tamber::ContextState& state, enum_VarListType scope) {
  return scope == VARLIST_GLOBAL     ? &state.scopes.globals
         : scope == VARLIST_CONSTANT ? &state.scopes.constants
                                     : &state.scopes.externals;
}

/// What has the name already, and where that is.
std::string ClashOf(TamberContext& context, const KelString& name, int32_t error) {
  switch (error) {
    case ERR_VAREXISTS: {
      std::string what = "it is a type";
      const Variable* variable = context.PeekConstant(name.View());
      if (variable != nullptr) {
        what = "it is a constant";
      } else {
        variable = context.GetVariable(name, VARLIST_GLOBAL | VARLIST_EXTERNAL);
        if (variable != nullptr) what = "it is a variable";
      }
      const std::string place = context.State().scopes.declared.Find(name.View());
      if (!place.empty()) return what + " of " + place;
      if (variable == nullptr || (variable->GetVarFlags() & Variable::Predefined) != 0)
        return what + " that every script has";
      return what + " of the host";
    }
    case ERR_VARISFUNC:
      return "it is the function " + context.PrototypeText(context.FindFunction(name.View())).Str();
    case ERR_VARISSTATEMENT:
      return "it is a word of the language";
    case ERR_VARISPROC: {
      const TamberProcedure& procedure = *context.ProcedureList::GetProcedure(name.View());
      const auto& text = procedure.GetScript();
      if (text == nullptr) return "it is a procedure";
      return "it is the procedure of " + text->Name().Str() + ", line " +
             std::to_string(std::max(procedure.GetStartLine(), 2U) - 1);
    }
    default:
      return {};
  }
}

/// The scope that the lowest bit names; false: none.
bool LowestScope(uint32_t mask, enum_VarListType& scope) {
  for (enum_VarListType candidate : kScopes) {
    if ((mask & candidate) == 0) continue;
    scope = candidate;
    return true;
  }
  return false;
}

}  // namespace

int32_t TamberContext::FindVariable(const KelString& name, uint32_t mask) {
  tamber::ContextState& state = State();
  if ((mask & VARLIST_LOCAL) != 0) {
    if (int32_t at = state.machine->FindLocal(name.View()); at >= 0) return at;
  }
  for (enum_VarListType scope : {VARLIST_GLOBAL, VARLIST_CONSTANT, VARLIST_EXTERNAL}) {
    if ((mask & scope) == 0) continue;
    const VarList* list =
        scope == VARLIST_CONSTANT ? state.ConstantsFor(name.View()) : ListOf(state, scope)->get();
    uint32_t at = list != nullptr ? list->FindVariable(name.View()) : VarList::kNotFound;
    if (at != VarList::kNotFound) return static_cast<int32_t>(at);
  }
  return -1;
}

Variable* TamberContext::GetVariable(const KelString& name, uint32_t mask) {
  for (enum_VarListType scope : kScopes) {
    if ((mask & scope) == 0) continue;
    int32_t at = FindVariable(name, scope);
    if (at >= 0) return GetVariable(static_cast<uint32_t>(at), scope);
  }
  return nullptr;
}

const Variable* TamberContext::PeekConstant(std::string_view name) const {
  const VarList* list = state_->ConstantsFor(name);
  return list != nullptr ? list->GetVariable(name) : nullptr;
}

Variable* TamberContext::GetVariable(uint32_t index, enum_VarListType scope) {
  enum_VarListType lowest;
  if (!LowestScope(scope, lowest)) return nullptr;
  if (lowest == VARLIST_LOCAL) return State().machine->GetLocal(index);
  VarList* list = State().Scope(lowest);
  return list != nullptr ? list->GetVariable(index) : nullptr;
}

uint32_t TamberContext::AddVariable(Variable* variable, enum_VarListType scope) {
  enum_VarListType lowest;
  if (variable == nullptr || !LowestScope(scope, lowest)) return 0;
  State().run.ScopeChanged();
  if (lowest == VARLIST_LOCAL) return State().machine->AddLocal(variable);
  if (lowest == VARLIST_CONSTANT) return State().OwnConstants().AddVariable(variable);
  std::unique_ptr<VarList>& list = *ListOf(State(), lowest);
  if (!list) list = std::make_unique<VarList>(true);
  return list->AddVariable(variable);
}

Variable* TamberContext::RemoveVariable(const KelString& name, enum_VarListType scope) {
  enum_VarListType lowest;
  if (!LowestScope(scope, lowest) || FindVariable(name, lowest) < 0) return nullptr;
  State().run.ScopeChanged();
  if (lowest == VARLIST_LOCAL) return State().machine->RemoveLocal(name.View());
  return State().Scope(lowest)->RemoveVariable(name.View());
}

void TamberContext::ReplaceVariable(uint32_t index, Variable* variable, enum_VarListType scope) {
  enum_VarListType lowest;
  bool taken = false;
  if (LowestScope(scope, lowest) && variable != nullptr) {
    State().run.ScopeChanged();
    VarList* list = lowest != VARLIST_LOCAL ? State().Scope(lowest) : nullptr;
    taken = list != nullptr
                ? list->ReplaceVariable(index, variable)
                : lowest == VARLIST_LOCAL && State().machine->ReplaceLocal(index, variable);
  }
  if (!taken) Variable::Delete(variable);
}

void TamberContext::ClearVarList(uint32_t mask) {
  State().run.ScopeChanged();
  // A host that compiles and clears over and over must not gather places.
  if ((mask & VARLIST_GLOBAL) != 0) State().scopes.declared.Clear();
  if ((mask & VARLIST_LOCAL) != 0) State().machine->ClearLocals();
  if ((mask & VARLIST_CONSTANT) != 0) {
    State().scopes.sharedConstants = nullptr;
    State().scopes.programConstants = nullptr;
  }
  for (enum_VarListType scope : {VARLIST_GLOBAL, VARLIST_CONSTANT, VARLIST_EXTERNAL})
    if ((mask & scope) != 0) ListOf(State(), scope)->reset();
}

void TamberContext::CreateLocalContext() {
  State().run.ScopeChanged();
  State().machine->CreateLocalScope();
}

void TamberContext::RemoveLocalContext() {
  if (State().machine->RemoveLocalScope()) State().run.ScopeChanged();
}

int32_t TamberContext::CheckUniqueVar(const KelString& name, uint32_t mask) {
  int32_t error = 0;
  // Types that a script defines refuse a variable only in the very same spelling, so that
  // `Point point` can be written; the words of the language refuse it in any.
  const TamberType* type = Lookup(name.View());
  bool isType = type != nullptr && ((type->GetTypeFlags() & 1) != 0 || type->GetTypeName() == name);
  if (HasBadCharacter(name.View()))
    error = ERR_VARBADNAME;
  else if (isType || FindVariable(name, VARLIST_CONSTANT) >= 0)
    error = ERR_VAREXISTS;
  else if (FindVariable(name, mask & (VARLIST_LOCAL | VARLIST_GLOBAL | VARLIST_EXTERNAL)) >= 0)
    error = ERR_VAREXISTS;
  else if (FindFunction(name.View()) != 0)
    error = ERR_VARISFUNC;
  else if (IsReservedWord(name.View()))
    error = ERR_VARISSTATEMENT;
  else if (FindProcedure(name.View()) != 0)
    error = ERR_VARISPROC;
  if (error == 0) return 1;
  SetContextError(error, name);
  const std::string clash = ClashOf(*this, name, error);
  if (!clash.empty()) State().run.notes.Note(clash);
  return 0;
}

Variable* TamberContext::CreateVariable(Tokeniser* tokeniser, const KelString& name) {
  if (tokeniser == nullptr) {
    SetContextError(ERR_INVALIDPARAM, name);
    return nullptr;
  }
  try {
    tokeniser->ReadToken();
    const std::string word(tokeniser->Token());
    tamber::DeclarationReader reader(*state_, *tokeniser);
    int32_t error = tokeniser->GetLastError();
    KelString text;
    if (error == ERR_SUCCESS) {
      error = reader.ReadType(word);
      text = reader.ErrorText();
    }
    if (error != ERR_SUCCESS) {
      SetContextError(error, text);
      return nullptr;
    }
    Variable* variable = tamber::MakeVariable(reader.Type(), tamber::Name(name.View()));
    variable->SetArraySize(reader.ArraySize());
    if (variable->GetElementCount() >= reader.ArraySize()) return variable;
    Variable::Delete(variable);
  } catch (const std::bad_alloc&) {
  }
  SetContextError(ERR_NOMEMORY, name);
  return nullptr;
}
