#include "modules/ee_var.h"

#include <string>

#include "context/tambctxt.h"
#include "machine/machine.h"
#include "modules/builtin.h"
#include "modules/ee_var_array.h"
#include "values/varholder.h"
#include "values/varref.h"

namespace tamber {
namespace {

constexpr uint32_t kReadScopes = VARLIST_LOCAL | VARLIST_GLOBAL | VARLIST_CONSTANT;
constexpr uint32_t kWriteScopes = VARLIST_LOCAL | VARLIST_GLOBAL;
/// `VarGetType` adds this to the element type of an array.
constexpr int32_t kArrayOf = 1000;

template <class T>
constexpr Kind kKindOf = Kind::None;
template <>
constexpr Kind kKindOf<bool> = Kind::Bool;
template <>
constexpr Kind kKindOf<char> = Kind::Char;
template <>
constexpr Kind kKindOf<int32_t> = Kind::Int;
template <>
constexpr Kind kKindOf<float> = Kind::Float;
template <>
constexpr Kind kKindOf<double> = Kind::Double;
template <>
constexpr Kind kKindOf<std::string_view> = Kind::String;

int32_t Defined(Call& call, std::string_view name) {
  TamberContext& context = call.Context();
  const bool known = context.FindVariable(name, kReadScopes) >= 0 ||
                     context.FindFunction(name) != 0 || context.FindProcedure(name) != 0;
  return known ? 1 : 0;
}

// --- Export ---

const Variable* TargetOf(const Variable* variable) {
  const Variable* target = variable->Dereference();
  return target != nullptr ? target : variable;
}

/// The global that takes the local's value, on loan; null when one of that name cannot.
Variable* GlobalFor(TamberContext& context, Variable* local, const KelString& name) {
  Variable* global = context.GetVariable(name, VARLIST_GLOBAL);
  if (global != nullptr) return global->Assign(local) != 0 ? global : nullptr;
  VarHolder copy(local->Clone());
  global = copy.get();
  global->SetOwnName(local->OwnName());
  global->SetVarFlags(0);
  AddOwned(context, std::move(copy), VARLIST_GLOBAL);
  return global;
}

int32_t Export(Call& call, std::string_view varName) {
  TamberContext& context = call.Context();
  const KelString name(varName);
  const int32_t index = context.FindVariable(name, VARLIST_LOCAL);
  Variable* local = context.GetVariable(name, VARLIST_LOCAL);
  // A text that is evaluated comes too late: the procedure runs without objects for its locals.
  const bool canReplace =
      local != nullptr && context.GetMachine().CanReplaceLocal(static_cast<uint32_t>(index));
  if (!canReplace) {
    call.Fail(ERR_FUNCFAILED, varName);
    return 0;
  }
  const Variable* present = context.GetVariable(name, VARLIST_GLOBAL);
  if (present != nullptr && TargetOf(local) == TargetOf(present)) return 1;
  const Variable* global = GlobalFor(context, local, name);
  if (global == nullptr) {
    call.Fail(ERR_FUNCFAILED, varName);
    return 0;
  }
  context.ReplaceVariable(static_cast<uint32_t>(index), new VarReference(local->OwnName(), global),
                          VARLIST_LOCAL);
  return 1;
}

// --- VarGet... ---

int32_t VarGetType(Call& call, std::string_view name) {
  const Variable* variable = call.Context().GetVariable(name, kReadScopes);
  if (variable == nullptr) return 0;
  const TypeRef type = TypeOf(*variable);
  if (!type->IsArray()) return type->TypeId();
  return kArrayOf + (type->Element() ? type->Element()->TypeId() : type->TypeId());
}

template <class T>
T ReadAs(Kind kind, Cell cell) {
  if constexpr (std::is_same_v<T, bool>) {
    return CellToBool(kind, cell) != 0;
  } else if constexpr (std::is_same_v<T, char>) {
    return static_cast<char>(CellToChar(kind, cell));
  } else if constexpr (std::is_same_v<T, int32_t>) {
    return CellToInt(kind, cell);
  } else if constexpr (std::is_same_v<T, float>) {
    return CellToFloat(kind, cell);
  } else {
    return CellToDouble(kind, cell);
  }
}

template <class T>
T VarGet(Call& call, std::string_view name) {
  Variable* variable = call.Context().GetVariable(name, kReadScopes);
  return variable != nullptr ? ReadAs<T>(KindOf(*variable), *CellOf(*variable)) : T();
}

/// Numbers become the text that "+" would join to a string.
Text VarGetString(Call& call, std::string_view name) {
  Variable* variable = call.Context().GetVariable(name, kReadScopes);
  if (variable == nullptr) return Text();
  const Operand value{KindOf(*variable), *CellOf(*variable)};
  if (!IsNumeric(value.kind) && value.kind != Kind::Handle) return Text(value.AsText());
  std::string text;
  AppendCellText(text, value.kind, value.cell);
  return Text(text);
}

// --- VarCreate, VarSet... ---

/// Whether a global of this name may be made. What the context has to say about the name is this
/// function's to report, so its error is taken back.
bool IsFreeName(TamberContext& context, const KelString& name) {
  const int32_t code = context.GetContextError();
  const KelString text = context.GetContextErrorText();
  const bool free = !name.IsEmpty() && context.CheckUniqueVar(name, VARLIST_GLOBAL) != 0;
  if (!free) context.SetContextError(code, text);
  return free;
}

bool CreateGlobal(TamberContext& context, const KelString& name, int32_t type) {
  constexpr Kind kKinds[] = {Kind::Bool,  Kind::Char,   Kind::Int,
                             Kind::Float, Kind::Double, Kind::String};
  if (type < Variable::Boolean || type > Variable::String) return false;
  const Variable* present = context.GetVariable(name, VARLIST_GLOBAL);
  if (present != nullptr) return present->GetTypeId() == type;
  if (!IsFreeName(context, name)) return false;
  const TypeRef& made = TypeDesc::Of(kKinds[type - Variable::Boolean]);
  AddOwned(context, VarHolder(MakeVariable(made, Name(name.View()))), VARLIST_GLOBAL);
  return true;
}

bool VarCreate(Call& call, std::string_view name, int32_t type) {
  const bool created = CreateGlobal(call.Context(), KelString(name), type);
  if (!created) call.Fail(ERR_FUNCFAILED, name);
  return created;
}

using tamber::ToCell;
Cell ToCell(std::string_view value) { return Text(value).TakeCell(); }

template <class T>
bool VarSet(Call& call, std::string_view name, T value) {
  Variable* variable = call.Context().GetVariable(name, kWriteScopes);
  bool assigned = false;
  if (variable != nullptr) {
    Variable* source = MakeVariable(TypeDesc::Of(kKindOf<T>), Name(), ToCell(value));
    assigned = variable->Assign(source) != 0;
    Variable::Delete(source);
  }
  if (!assigned) call.Fail(ERR_FUNCFAILED, name);
  return assigned;
}

// --- errors ---

KelString GetErrorName(Call& call, int32_t code) { return call.Context().GetErrorName(code); }
KelString GetErrorText(Call& call, int32_t code) { return call.Context().GetErrorText(code); }

constexpr FunctionTraits kByName{.exactResult = true, .namesVariable = true};
constexpr FunctionTraits kReplaces{.exactResult = true, .usesLocals = true, .namesVariable = true};
constexpr FunctionTraits kBlind{.exactResult = true, .localsBlind = true};
/// The declared result is any array, what is pushed is one of the argument's type.
constexpr FunctionTraits kArray{.exactResult = false, .localsBlind = true};

const FUNCMOD_FUNCTION* Functions() {
  static const FUNCMOD_FUNCTION functions[] = {
      {"int Defined (string Name)", Wrap<Defined>,
       "1 if a variable, constant, function or procedure of this name exists, else 0.", kByName},
      {"int Export (string VarName)", Wrap<Export>,
       "Makes a local variable global; the local goes on as a reference to the global.", kReplaces},
      {"int VarGetType (string VarName)", Wrap<VarGetType>,
       "The VARTYPE_ number of a variable's type, 0 when there is no such variable.", kByName},
      {"bool VarGetBooleanValue (string VarName)", Wrap<VarGet<bool>>,
       "A variable's value as a bool, FALSE when there is no such variable.", kByName},
      {"char VarGetCharValue (string VarName)", Wrap<VarGet<char>>,
       "A variable's value as a char, 0 when there is no such variable.", kByName},
      {"int VarGetIntegerValue (string VarName)", Wrap<VarGet<int32_t>>,
       "A variable's value as an integer, 0 when there is no such variable.", kByName},
      {"float VarGetFloatValue (string VarName)", Wrap<VarGet<float>>,
       "A variable's value as a float, 0 when there is no such variable.", kByName},
      {"double VarGetDoubleValue (string VarName)", Wrap<VarGet<double>>,
       "A variable's value as a double, 0 when there is no such variable.", kByName},
      {"string VarGetStringValue (string VarName)", Wrap<VarGetString>,
       "A variable's value as a string, empty when there is no such variable.", kByName},
      {"bool VarCreate (string VarName, int Type)", Wrap<VarCreate>,
       "Makes a global variable of a scalar type unless one of that type is there.", kByName},
      {"bool VarSetBooleanValue (string VarName, bool Value)", Wrap<VarSet<bool>>,
       "Assigns a bool to a local or global variable.", kByName},
      {"bool VarSetCharValue (string VarName, char Value)", Wrap<VarSet<char>>,
       "Assigns a char to a local or global variable.", kByName},
      {"bool VarSetIntegerValue (string VarName, int Value)", Wrap<VarSet<int32_t>>,
       "Assigns an integer to a local or global variable.", kByName},
      {"bool VarSetFloatValue (string VarName, float Value)", Wrap<VarSet<float>>,
       "Assigns a float to a local or global variable.", kByName},
      {"bool VarSetDoubleValue (string VarName, double Value)", Wrap<VarSet<double>>,
       "Assigns a double to a local or global variable.", kByName},
      {"bool VarSetStringValue (string VarName, string Value)", Wrap<VarSet<std::string_view>>,
       "Assigns a string to a local or global variable.", kByName},
      {"int ArrayGetSize (array Var)",
       {Wrap<ArrayGetSize>, Inlined::ArraySize},
       "Number of elements of an array.",
       kBlind},
      {"array ArraySetSize (array Var, int Size)", Wrap<ArraySetSize>,
       "A copy of an array with this number of elements; new ones are empty.", kArray},
      {"array ArraySort (array Var, string ElementName, bool Ascending)", Wrap<ArraySortMember>,
       "A sorted copy of an array; of structures, by a member.", kArray},
      {"array ArraySort (array Var, string ElementName, bool Ascending, bool CaseSensitive)",
       Wrap<ArraySortMemberCase>,
       "A copy of an array of structures sorted by a member, with the case rule for strings.",
       kArray},
      {"array ArraySort (array Var, bool Ascending)", Wrap<ArraySort>, "A sorted copy of an array.",
       kArray},
      {"array ArraySort (array Var, bool Ascending, bool CaseSensitive)", Wrap<ArraySortCase>,
       "A sorted copy of an array, with the case rule for strings.", kArray},
      {"array ArrayRemoveDup (array Var)", Wrap<ArrayRemoveDup>,
       "A copy of an array without elements that repeat an earlier one.", kArray},
      {"array ArrayRemoveDup (array Var, bool CaseSensitive)", Wrap<ArrayRemoveDupCase>,
       "A copy without elements that repeat an earlier one, with the case rule for strings.",
       kArray},
      {"int ArrayFind (array Var, string ElementName, string Value, int StartIndex)",
       Wrap<ArrayFindMember<std::string_view>>,
       "Index of the first element from StartIndex on that matches, by a member if one is named, "
       "or 0.",
       kBlind},
      {"int ArrayFind (array Var, string ElementName, double Value, int StartIndex)",
       Wrap<ArrayFindMember<double>>,
       "Index of the first structure from StartIndex on whose member equals a double, or 0.",
       kBlind},
      {"int ArrayFind (array Var, string ElementName, float Value, int StartIndex)",
       Wrap<ArrayFindMember<float>>,
       "Index of the first structure from StartIndex on whose member equals a float, or 0.",
       kBlind},
      {"int ArrayFind (array Var, string ElementName, int Value, int StartIndex)",
       Wrap<ArrayFindMember<int32_t>>,
       "Index of the first structure from StartIndex on whose member equals an integer, or 0.",
       kBlind},
      {"int ArrayFind (array Var, string Value, int StartIndex)", Wrap<ArrayFind<std::string_view>>,
       "Index of the first element from StartIndex on that equals a string, or 0.", kBlind},
      {"int ArrayFind (array Var, double Value, int StartIndex)", Wrap<ArrayFind<double>>,
       "Index of the first element from StartIndex on that equals a double, or 0.", kBlind},
      {"int ArrayFind (array Var, float Value, int StartIndex)", Wrap<ArrayFind<float>>,
       "Index of the first element from StartIndex on that equals a float, or 0.", kBlind},
      {"int ArrayFind (array Var, int Value, int StartIndex)", Wrap<ArrayFind<int32_t>>,
       "Index of the first element from StartIndex on that equals an integer, or 0.", kBlind},
      {"string GetErrorName (int ErrorCode)", Wrap<GetErrorName>,
       "The symbolic name of an error code, empty when there is none.", kBlind},
      {"string GetErrorText (int ErrorCode)", Wrap<GetErrorText>,
       "The message of an error code, empty when there is none.", kBlind},
      {"", nullptr, "", {}},
  };
  return functions;
}

const FUNCMOD_INTEGER* Constants() {
  static const FUNCMOD_INTEGER constants[] = {
      {"VARTYPE_BOOL", 2},
      {"VARTYPE_CHAR", 3},
      {"VARTYPE_INTEGER", 4},
      {"VARTYPE_FLOAT", 5},
      {"VARTYPE_DOUBLE", 6},
      {"VARTYPE_STRING", 7},
      {"VARTYPE_STRUCT", 9},
      {"VARTYPE_BOOLEAN_ARRAY", 1002},
      {"VARTYPE_CHAR_ARRAY", 1003},
      {"VARTYPE_INTEGER_ARRAY", 1004},
      {"VARTYPE_FLOAT_ARRAY", 1005},
      {"VARTYPE_DOUBLE_ARRAY", 1006},
      {"VARTYPE_STRING_ARRAY", 1007},
      {"VARTYPE_STRUCT_ARRAY", 1009},
      {"", 0},
  };
  return constants;
}

}  // namespace
}  // namespace tamber

const FUNCMOD_REGISTRATION* GetCoreModule() {
  static const FUNCMOD_REGISTRATION registration[] = {
      {FUNCMOD_INTEGERS, tamber::Constants()},
      {FUNCMOD_FUNCTIONS, tamber::Functions()},
      {FUNCMOD_END, nullptr},
  };
  return registration;
}
