#include "context/defaults.h"

#include "context/contextstate.h"
#include "context/registration.h"
#include "engine/procedure.h"
#include "functions/modulelist.h"
#include "kel/kelascii.h"
#include "modules/builtinmodules.h"
#include "values/cellops.h"
#include "values/varint.h"
#include "values/varstring.h"

namespace tamber {
namespace {

constexpr int32_t kVersionHigh = 3;
constexpr int32_t kVersionLow = 5;
constexpr int32_t kVersionPatch = 0;

struct PredefinedInteger {
  const char* name;
  int32_t value;
};
constexpr PredefinedInteger kIntegers[] = {
    {"IntBase", 1}, {"StrCase", 0}, {"LogLevel", 1}, {"ErrLine", 0}, {"ErrCode", 0}};

struct PredefinedText {
  const char* name;
  const char* value;
};
constexpr PredefinedText kTexts[] = {
    {"LogFile", ""}, {"ScriptFile", ""}, {"ErrHandler", "DEFAULT_HANDLER"}};

void RegisterConstants(TamberContext& context) {
  auto integer = [&](const char* name, int32_t value) {
    context.RegisterInteger(KelString(name), static_cast<uint32_t>(value), VARLIST_CONSTANT);
  };
  integer("TAMBER_VERH", kVersionHigh);
  integer("TAMBER_VERL", kVersionLow);
  integer("TAMBER_VERP", kVersionPatch);
  for (const char* name : {"TRUE", "YES", "ON"})
    context.RegisterBoolean(KelString(name), 1, VARLIST_CONSTANT);
  for (const char* name : {"FALSE", "NO", "OFF"})
    context.RegisterBoolean(KelString(name), 0, VARLIST_CONSTANT);
  for (const char* name : {"DEFAULT_HANDLER", "INLINE_HANDLER"})
    context.RegisterString(KelString(name), KelString(name), VARLIST_CONSTANT);
}

void AddGlobals(TamberContext& context) {
  for (const PredefinedInteger& entry : kIntegers) {
    auto* variable = new VarInteger(KelString(entry.name), Variable::Predefined);
    variable->SetIntegerValue(entry.value);
    context.AddVariable(variable, VARLIST_GLOBAL);
  }
  for (const PredefinedText& entry : kTexts) {
    auto* variable = new VarString(KelString(entry.name), Variable::Predefined);
    variable->SetStringValue(KelString(entry.value));
    context.AddVariable(variable, VARLIST_GLOBAL);
  }
}

void RegisterErrorConstants(TamberContext& context) {
  context.RegisterInteger(KelString("ERR_SUCCESS"), 0, VARLIST_CONSTANT);
  ErrorList& errors = context.GetErrorList();
  for (int32_t code = errors.GetNextErrorCode(0); code != 0; code = errors.GetNextErrorCode(code))
    context.RegisterInteger(errors.GetErrorName(code), static_cast<uint32_t>(code),
                            VARLIST_CONSTANT);
}

/// The tables that every context starts with.
struct DefaultTables {
  FunctionList functions;
  std::shared_ptr<const TypeTable> types;
  ErrorList errors;
  std::shared_ptr<const VarList> constants;
};

/// Registers everything in a first context, step by step, and keeps its tables.
void Build(TamberContext& context, DefaultTables& tables) {
  ContextState& state = context.State();
  context.CreateDefaultTypes();
  RegisterConstants(context);
  state.errors.Initialise();
  RegisterErrorConstants(context);
  for (const FUNCMOD_REGISTRATION* module : BuiltInModules())
    RegisterBuiltInModule(context, module);
  tables.functions = context;
  tables.types = context.ShareTypes();
  tables.errors = state.errors;
  auto constants = std::make_shared<VarList>(*state.constants);
  for (uint32_t i = 0; i < constants->GetSize(); ++i) {
    Variable& constant = *constants->GetVariable(i);
    constant.SetVarFlags(state.constants->GetVariable(i)->GetVarFlags());
    KeepForever(KindOf(constant), *CellOf(constant));
  }
  // A list makes its index when it is first searched; other threads only ever read this one.
  constants->FindVariable(std::string_view("TRUE"));
  tables.constants = std::move(constants);
}

}  // namespace

void ApplyDefaults(TamberContext& context) {
  // Never destroyed: contexts of other threads may outlive the end of main.
  static const DefaultTables& kTables = *[&context] {
    auto tables = std::make_unique<DefaultTables>();
    Build(context, *tables);
    return tables.release();
  }();
  ContextState& state = context.State();
  static_cast<FunctionList&>(context) = kTables.functions;
  context.UseTypes(kTables.types);
  state.errors = kTables.errors;
  state.constants.reset();
  state.sharedConstants = kTables.constants;
  AddGlobals(context);
  state.ScopeChanged();
}

namespace {

std::unique_ptr<VarList> CloneScope(const VarList& list) {
  auto copy = std::make_unique<VarList>(list);
  for (uint32_t i = 0; i < copy->GetSize(); ++i)
    copy->GetVariable(i)->SetVarFlags(list.GetVariable(i)->GetVarFlags());
  return copy;
}

void NoteInherited(const VarList* list, std::set<std::string>& names) {
  for (uint32_t i = 0; list != nullptr && i < list->GetSize(); ++i) {
    const Variable& variable = *list->GetVariable(i);
    if ((variable.GetVarFlags() & Variable::Predefined) == 0)
      names.insert(kel::Lowered(variable.OwnName().View()));
  }
}

}  // namespace

void InheritScopes(ContextState& from, ContextState& to) {
  to.sharedConstants = from.sharedConstants;
  if (from.constants) to.constants = CloneScope(*from.constants);
  if (from.globals) to.globals = CloneScope(*from.globals);
  if (from.externals) to.externals = CloneScope(*from.externals);
  NoteInherited(to.globals.get(), to.inherited);
  NoteInherited(to.constants.get(), to.inherited);
  NoteInherited(to.externals.get(), to.inherited);
  for (uint32_t i = 1; i <= to.context.GetProcedureCount(); ++i) {
    const TamberProcedure* procedure =
        static_cast<const ProcedureList&>(to.context).GetProcedure(i);
    to.inherited.insert(kel::Lowered(procedure->GetName().View()));
  }
  const auto& types = static_cast<const TypeList&>(to.context);
  for (uint32_t i = 0; i < types.GetTypeCount(); ++i)
    if ((types.GetType(i)->GetTypeFlags() & 1) == 0)
      to.inherited.insert(kel::Lowered(types.GetTypeName(i).View()));
}

namespace {

void DropScriptVariables(VarList* list) {
  for (uint32_t i = list != nullptr ? list->GetSize() : 0; i-- > 0;)
    if ((list->GetVariable(i)->GetVarFlags() & Variable::Predefined) == 0) list->DeleteVariable(i);
}

}  // namespace

void ForgetScript(ContextState& state) {
  DropScriptVariables(state.globals.get());
  DropScriptVariables(state.constants.get());
  const auto& types = static_cast<const TypeList&>(state.context);
  for (uint32_t i = types.GetTypeCount(); i-- > 0;)
    if ((types.GetType(i)->GetTypeFlags() & 1) == 0) state.context.DeleteType(i);
}

void RestorePredefined(ContextState& state) {
  auto find = [&](const char* name) {
    return state.globals != nullptr ? state.globals->GetVariable(std::string_view(name)) : nullptr;
  };
  for (const PredefinedInteger& entry : kIntegers)
    if (Variable* variable = find(entry.name)) variable->SetIntegerValue(entry.value);
  for (const PredefinedText& entry : kTexts)
    if (Variable* variable = find(entry.name)) variable->SetStringValue(KelString(entry.value));
}

}  // namespace tamber
