#include "context/defaults.h"

#include "context/builtinmodules.h"
#include "context/contextstate.h"
#include "context/registration.h"
#include "functions/modulelist.h"
#include "kel/kelascii.h"
#include "statements/procedure.h"
#include "values/cellops.h"
#include "values/varholder.h"
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

constexpr PredefinedInteger kVersion[] = {
    {"TAMBER_VERH", kVersionHigh}, {"TAMBER_VERL", kVersionLow}, {"TAMBER_VERP", kVersionPatch}};
constexpr const char* kTrueWords[] = {"TRUE", "YES", "ON"};
constexpr const char* kFalseWords[] = {"FALSE", "NO", "OFF"};
constexpr const char* kHandlers[] = {"DEFAULT_HANDLER", "INLINE_HANDLER"};
constexpr const char* kSuccess = "ERR_SUCCESS";

void RegisterConstants(TamberContext& context) {
  for (const PredefinedInteger& entry : kVersion)
    context.RegisterInteger(entry.name, static_cast<uint32_t>(entry.value), VARLIST_CONSTANT);
  for (const char* name : kTrueWords) context.RegisterBoolean(name, 1, VARLIST_CONSTANT);
  for (const char* name : kFalseWords) context.RegisterBoolean(name, 0, VARLIST_CONSTANT);
  for (const char* name : kHandlers) context.RegisterString(name, name, VARLIST_CONSTANT);
}

void AddGlobals(TamberContext& context) {
  for (const PredefinedInteger& entry : kIntegers) {
    VarHolder variable(new VarInteger(KelString(entry.name), Variable::Predefined));
    variable->SetIntegerValue(entry.value);
    AddOwned(context, std::move(variable), VARLIST_GLOBAL);
  }
  for (const PredefinedText& entry : kTexts) {
    VarHolder variable(new VarString(KelString(entry.name), Variable::Predefined));
    variable->SetStringValue(KelString(entry.value));
    AddOwned(context, std::move(variable), VARLIST_GLOBAL);
  }
}

void RegisterErrorConstants(TamberContext& context) {
  context.RegisterInteger(kSuccess, 0, VARLIST_CONSTANT);
  ErrorList& errors = context.GetErrorList();
  for (int32_t code = errors.GetNextErrorCode(0); code != 0; code = errors.GetNextErrorCode(code))
    context.RegisterInteger(errors.GetErrorName(code), static_cast<uint32_t>(code),
                            VARLIST_CONSTANT);
}

// The tables that every context starts with are made once, each when a script first needs something
// of its kind, and never destroyed: contexts of other threads may outlive the end of main.

/// Made in the first context while that is being created; null gives them to those who come later.
const TypeList& DefaultTypes(TamberContext* first) {
  static const TypeList& types = *[first] {
    first->CreateDefaultTypes();
    for (const FUNCMOD_REGISTRATION* module : BuiltInModules())
      RegisterBuiltInTypes(*first, module);
    auto made = std::make_unique<TypeList>();
    made->UseTypes(first->ShareTypes());
    return made.release();
  }();
  return types;
}

const ErrorList& DefaultErrors() {
  static const ErrorList& errors = *[] {
    auto made = std::make_unique<ErrorList>();
    made->Initialise();
    for (const FUNCMOD_REGISTRATION* module : BuiltInModules())
      RegisterBuiltInErrors(*made, module);
    return made.release();
  }();
  return errors;
}

/// Registers the constants in a context made for that, and takes its list.
std::unique_ptr<const VarList> MakeDefaultConstants() {
  TamberContext maker(nullptr);
  ContextState& state = maker.State();
  state.scopes.sharedConstants = nullptr;
  RegisterConstants(maker);
  RegisterErrorConstants(maker);
  for (const FUNCMOD_REGISTRATION* module : BuiltInModules())
    RegisterBuiltInConstants(maker, module);
  std::unique_ptr<const VarList> constants = std::move(state.scopes.constants);
  for (uint32_t i = 0; i < constants->GetSize(); ++i) {
    Variable& constant = *constants->GetVariable(i);
    KeepForever(KindOf(constant), *CellOf(constant));
  }
  // A list makes its index when it is first searched; other threads only ever read this one.
  constants->FindVariable(std::string_view("TRUE"));
  return constants;
}

const VarList& DefaultConstants() {
  static const VarList& constants = *MakeDefaultConstants().release();
  return constants;
}

/// The names of all constants and functions. Procedures and variables of a script are compared with
/// them, which alone is no reason to make the tables.
const kel::NameFilter& GetDefaultNameFilter() {
  static const kel::NameFilter& filter = *[] {
    auto names = std::make_unique<kel::NameFilter>();
    for (const PredefinedInteger& entry : kVersion) names->Add(entry.name);
    for (const char* name : kTrueWords) names->Add(name);
    for (const char* name : kFalseWords) names->Add(name);
    for (const char* name : kHandlers) names->Add(name);
    names->Add(kSuccess);
    ErrorList::AddBuiltInNames(*names);
    for (const FUNCMOD_REGISTRATION* module : BuiltInModules()) AddBuiltInNames(*names, module);
    return names.release();
  }();
  return filter;
}

const FunctionList& DefaultFunctions() {
  static const FunctionList& functions = *[] {
    const TypeList& types = DefaultTypes(nullptr);
    auto made = std::make_unique<FunctionList>();
    for (const FUNCMOD_REGISTRATION* module : BuiltInModules())
      RegisterBuiltInFunctions(*made, module, types);
    made->LendFunctions(FunctionList::Prototypes::Later);
    return made.release();
  }();
  return functions;
}

}  // namespace

void ApplyDefaults(TamberContext& context) {
  ContextState& state = context.State();
  static_cast<TypeList&>(context) = DefaultTypes(&context);
  static_cast<FunctionList&>(context) =
      FunctionList::Deferred<DefaultFunctions>(GetDefaultNameFilter());
  state.errors.list = ErrorList::Deferred<DefaultErrors>();
  state.scopes.sharedConstants = DefaultConstants;
  state.scopes.sharedNames = &GetDefaultNameFilter();
  AddGlobals(context);
  state.run.ScopeChanged();
}

void RestoreBuiltIns(TamberContext& context) {
  const TypeList& types = DefaultTypes(nullptr);
  for (uint32_t i = 0; i < types.GetTypeCount(); ++i) {
    const KelString name = types.GetTypeName(i);
    const TamberType* type = types.Lookup(name.View());
    if (context.FindType(name) == TypeList::kNotFound)
      context.AddType(name, type->GetVariable()->Clone(), type->GetTypeFlags());
  }
  const VarList& constants = DefaultConstants();
  for (uint32_t i = 0; i < constants.GetSize(); ++i) {
    const Variable& constant = *constants.GetVariable(i);
    if (context.PeekConstant(constant.OwnName().View()) != nullptr) continue;
    VarHolder copy(constant.Clone());
    copy->SetVarFlags(constant.GetVarFlags());
    AddOwned(context, std::move(copy), VARLIST_CONSTANT);
  }
  const FunctionList& functions = DefaultFunctions();
  for (uint32_t i = 1; i <= functions.GetFunctionCount(); ++i)
    context.AddFunction(functions.ShareFunction(i), false);
}

/// Copies lose the mark that makes a variable survive a reset.
std::unique_ptr<VarList> CloneScope(const VarList& list) {
  auto copy = std::make_unique<VarList>(list);
  for (uint32_t i = 0; i < copy->GetSize(); ++i)
    copy->GetVariable(i)->SetVarFlags(list.GetVariable(i)->GetVarFlags());
  return copy;
}

std::unique_ptr<VarList> SeparateScope(const VarList& list) {
  auto copy = std::make_unique<VarList>(list.GetAutoSort());
  copy->Reserve(list.GetSize());
  for (uint32_t i = 0; i < list.GetSize(); ++i) {
    const Variable& variable = *list.GetVariable(i);
    copy->AddLast(SeparateVariable(variable, variable.OwnName()));
  }
  return copy;
}

namespace {

void NoteInherited(const VarList* list, std::set<std::string>& names) {
  for (uint32_t i = 0; list != nullptr && i < list->GetSize(); ++i) {
    const Variable& variable = *list->GetVariable(i);
    if ((variable.GetVarFlags() & Variable::Predefined) == 0)
      names.insert(kel::Lowered(variable.OwnName().View()));
  }
}

}  // namespace

void InheritScopes(ContextState& from, ContextState& to) {
  to.scopes.sharedConstants = from.scopes.sharedConstants;
  to.scopes.programConstants = from.scopes.programConstants;
  to.scopes.sharedNames = from.scopes.sharedNames;
  if (from.scopes.constants) to.scopes.constants = CloneScope(*from.scopes.constants);
  if (from.scopes.globals) to.scopes.globals = CloneScope(*from.scopes.globals);
  if (from.scopes.externals) to.scopes.externals = CloneScope(*from.scopes.externals);
  NoteInherited(to.scopes.globals.get(), to.scopes.inherited);
  NoteInherited(to.scopes.constants ? to.scopes.constants.get() : to.scopes.programConstants,
                to.scopes.inherited);
  NoteInherited(to.scopes.externals.get(), to.scopes.inherited);
  for (uint32_t i = 1; i <= to.context.GetProcedureCount(); ++i) {
    const TamberProcedure* procedure =
        static_cast<const ProcedureList&>(to.context).GetProcedure(i);
    to.scopes.inherited.insert(kel::Lowered(procedure->GetName().View()));
  }
  const auto& types = static_cast<const TypeList&>(to.context);
  for (uint32_t i = 0; i < types.GetTypeCount(); ++i)
    if ((types.GetType(i)->GetTypeFlags() & 1) == 0)
      to.scopes.inherited.insert(kel::Lowered(types.GetTypeName(i).View()));
}

namespace {

void DropScriptVariables(VarList* list) {
  for (uint32_t i = list != nullptr ? list->GetSize() : 0; i-- > 0;)
    if ((list->GetVariable(i)->GetVarFlags() & Variable::Predefined) == 0) list->DeleteVariable(i);
}

}  // namespace

void ForgetScript(ContextState& state) {
  DropScriptVariables(state.scopes.globals.get());
  // Those of a program stay its own: the context has to have copies before it can drop any.
  if (state.scopes.programConstants != nullptr) state.OwnConstants();
  DropScriptVariables(state.scopes.constants.get());
  const auto& types = static_cast<const TypeList&>(state.context);
  for (uint32_t i = types.GetTypeCount(); i-- > 0;)
    if ((types.GetType(i)->GetTypeFlags() & 1) == 0) state.context.DeleteType(i);
}

void RestorePredefined(ContextState& state) {
  auto find = [&](const char* name) {
    return state.scopes.globals != nullptr
               ? state.scopes.globals->GetVariable(std::string_view(name))
               : nullptr;
  };
  for (const PredefinedInteger& entry : kIntegers)
    if (Variable* variable = find(entry.name)) variable->SetIntegerValue(entry.value);
  for (const PredefinedText& entry : kTexts)
    if (Variable* variable = find(entry.name)) variable->SetStringValue(KelString(entry.value));
}

}  // namespace tamber
