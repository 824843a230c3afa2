#include "functions/funclist.h"

#include <algorithm>
#include <iterator>
#include <new>
#include <utility>

#include "kel/dumpselection.h"
#include "values/cellops.h"
#include "values/epoch.h"
#include "values/errcodes.h"
#include "values/varholder.h"
#include "values/varlist.h"

using tamber::Kind;
using tamber::TypeDesc;
using tamber::TypeRef;

namespace {

using Arguments = std::span<const TypeDesc* const>;

/// What one argument is to one parameter.
enum class Match { Refused, Accepted, Exact };

bool IsGenericArray(const TypeDesc& type) { return type.IsArray() && !type.Element(); }

/// With `anyForArray` the generic array takes arguments that are no arrays: functions on arrays of
/// any type answer for a scalar that it has no elements.
Match MatchArgument(const TypeDesc* argument, const TypeDesc& parameter, bool anyForArray) {
  if (argument == nullptr) return Match::Refused;
  if (argument->GetKind() == Kind::Any) return Match::Accepted;  // known only when it runs
  if (IsGenericArray(parameter) && argument->IsArray()) return Match::Exact;
  if (argument->IsSame(parameter)) return Match::Exact;
  // Meant so: the argument is asked, as if the parameter were assigned to it.
  if (argument->Accepts(parameter)) return Match::Accepted;
  return anyForArray && IsGenericArray(parameter) ? Match::Accepted : Match::Refused;
}

/// Number of exact positions; -1 when an argument is refused.
int32_t Score(const TamberFunction& function, Arguments arguments, bool anyForArray) {
  int32_t exact = 0;
  for (size_t i = 0; i < arguments.size(); ++i) {
    const Match match = MatchArgument(arguments[i], *function.ParameterTypes()[i], anyForArray);
    if (match == Match::Refused) return -1;
    if (match == Match::Exact) ++exact;
  }
  return exact;
}

bool HasSignature(const TamberFunction& function, const std::vector<TypeRef>& parameters) {
  const std::vector<TypeRef>& own = function.ParameterTypes();
  if (own.size() != parameters.size()) return false;
  for (size_t i = 0; i < own.size(); ++i) {
    if (!parameters[i]->IsSame(*own[i])) return false;
  }
  return true;
}

void AppendWord(std::string& out, const TypeDesc& type) {
  switch (type.GetKind()) {
    case Kind::Bool:
      out += "bool";
      break;
    case Kind::Char:
      out += "char";
      break;
    case Kind::Int:
      out += "int";
      break;
    case Kind::Float:
      out += "float";
      break;
    case Kind::Double:
      out += "double";
      break;
    case Kind::String:
      out += "string";
      break;
    case Kind::EString:
      out += "estring";
      break;
    case Kind::Handle:
      out += type.HandleName().View();
      break;
    case Kind::Struct:
      out += type.Layout()->GetName().View();
      break;
    case Kind::Array:
      if (type.Element()) {
        AppendWord(out, *type.Element());
      } else {
        out += "array";
      }
      break;
    default:
      break;
  }
}

const char* Brackets(const TypeDesc& type) { return type.IsArray() && type.Element() ? "[]" : ""; }

std::string PrototypeOf(const TamberFunction& function) {
  std::string text;
  AppendWord(text, *function.ReturnType());
  text += Brackets(*function.ReturnType());
  text += ' ';
  text += function.GetName().View();
  text += " (";
  const std::vector<TypeRef>& types = function.ParameterTypes();
  // Registration puts the hidden parameter in by itself.
  const size_t first = function.GetFunctionType() == FunctionList::FUNCTYPE_HIDDEN ? 1 : 0;
  for (size_t i = first; i < types.size(); ++i) {
    if (i > first) text += ", ";
    AppendWord(text, *types[i]);
    const KelString name =
        function.GetParameterList()->GetVariable(static_cast<uint32_t>(i))->GetVarName();
    if (!name.IsEmpty()) text += ' ';
    text += name.View();
    text += Brackets(*types[i]);
  }
  text += ')';
  return text;
}

/// Takes over the return value and the parameters; null without memory.
template <class Implementation>
std::shared_ptr<const TamberFunction> MakeFunction(const KelString& name, Variable* returnValue,
                                                   Implementation implementation,
                                                   VarList* parameters, uint16_t type) {
  tamber::VarHolder value(returnValue);
  std::unique_ptr<VarList> list(parameters);
  try {
    auto function = std::make_shared<TamberFunction>(name, value.get(), list.get(), type);
    static_cast<void>(value.release());
    static_cast<void>(list.release());
    function->SetImplementation(implementation);
    return function;
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

}  // namespace

int32_t FunctionList::SortCompare(const TamberFunction* a, const TamberFunction* b) const {
  if (b == nullptr) return 1;
  if (a == nullptr) return -1;
  return kel::CompareNoCase(a->GetName(), b->GetName());
}

uint32_t FunctionList::AddFunction(const KelString& name, Variable* returnValue,
                                   TamberFunctionPtr implementation, VarList* parameters,
                                   uint16_t type, bool replace) {
  return AddFunction(MakeFunction(name, returnValue, implementation, parameters, type), replace);
}

uint32_t FunctionList::AddFunction(const KelString& name, Variable* returnValue,
                                   TamberFunctionExPtr implementation, VarList* parameters,
                                   uint16_t type, bool replace) {
  return AddFunction(MakeFunction(name, returnValue, implementation, parameters, type), replace);
}

uint32_t FunctionList::AddFunction(std::shared_ptr<const TamberFunction> function, bool replace) {
  if (!function || function->GetName().IsEmpty()) return 0;
  const std::string_view name = function->GetName();
  const uint32_t existing = FindFunctionFromSig(name, *function);
  // What goes may belong to a host that uses the context once more: the table is whole by then.
  std::shared_ptr<const TamberFunction> former;
  if (existing != 0) {
    if (!replace) return existing;
    auto& functions = OwnFunctions().functions;
    former = std::move(functions[existing - 1]);
    functions.erase(functions.begin() + (existing - 1));
  }
  return AddOverload(std::move(function));
}

void FunctionList::AddLater(std::shared_ptr<const TamberFunction> function) {
  if (CannotHold(function->GetName())) {
    waiting_.push_back(std::move(function));
    version_ = tamber::NextEpoch();
  } else {
    AddFunction(std::move(function), false);
  }
}

void FunctionList::AddWaiting() {
  const uint64_t version = version_;
  for (auto& function : std::exchange(waiting_, {})) AddFunction(std::move(function), false);
  version_ = version;  // they counted when they began to wait
}

/// What waits comes in when somebody looks; that changes nothing that can be seen.
const FunctionList::Table& FunctionList::Functions() const {
  if (!waiting_.empty()) const_cast<FunctionList*>(this)->AddWaiting();
  return table_.Read();
}

FunctionList::Table& FunctionList::OwnFunctions() {
  if (!waiting_.empty()) AddWaiting();
  version_ = tamber::NextEpoch();
  return table_.Write();
}

bool FunctionList::CannotHold(std::string_view name) const {
  if (table_.IsMade() || names_->MayHold(name)) return false;
  return std::none_of(waiting_.begin(), waiting_.end(), [&](const auto& function) {
    return kel::EqualsNoCase(function->GetName(), name);
  });
}

uint32_t FunctionList::AddOverload(std::shared_ptr<const TamberFunction> function) {
  const uint32_t index = FindNearestFunction(function->GetName());
  auto& functions = OwnFunctions().functions;
  functions.insert(functions.begin() + (index - 1), std::move(function));
  return index;
}

// Both searches below go through the middle of the table on purpose and take what they hit: a new
// overload comes to stand behind whichever namesake they hit first, and that order decides between
// overloads that suit a call equally well.

uint32_t FunctionList::FindFunction(std::string_view name) const {
  if (CannotHold(name)) return 0;
  uint32_t low = 1;
  uint32_t high = GetFunctionCount();
  while (low <= high) {
    const uint32_t middle = (low + high) / 2;
    const int order = kel::CompareNoCase(GetFunction(middle)->GetName(), name);
    if (order == 0) return middle;
    if (order < 0) {
      low = middle + 1;
    } else {
      high = middle - 1;
    }
  }
  return 0;
}

uint32_t FunctionList::FindNearestFunction(std::string_view name) const {
  uint32_t low = 1;
  uint32_t high = GetFunctionCount();
  uint32_t middle = 0;
  int order = -1;
  while (low <= high && order != 0) {
    middle = (low + high) / 2;
    order = kel::CompareNoCase(GetFunction(middle)->GetName(), name);
    if (order < 0) {
      low = middle + 1;
    } else if (order > 0) {
      high = middle - 1;
    }
  }
  return order > 0 ? middle : middle + 1;
}

uint32_t FunctionList::FindFunctionFromSig(std::string_view name,
                                           const TamberFunction& wanted) const {
  for (uint32_t index = FindFirstOverload(name); index != 0; index = NextOverload(index)) {
    if (HasSignature(*GetFunction(index), wanted.ParameterTypes())) return index;
  }
  return 0;
}

uint32_t FunctionList::FindFirstOverload(std::string_view name) const {
  if (CannotHold(name)) return 0;
  const auto& functions = Functions().functions;
  const auto found = std::lower_bound(functions.begin(), functions.end(), name,
                                      [](const auto& function, std::string_view wanted) {
                                        return kel::CompareNoCase(function->GetName(), wanted) < 0;
                                      });
  if (found == functions.end() || !kel::EqualsNoCase((*found)->GetName(), name)) return 0;
  return static_cast<uint32_t>(found - functions.begin()) + 1;
}

uint32_t FunctionList::NextOverload(uint32_t index) const {
  const TamberFunction* next = GetFunction(index + 1);
  return next != nullptr && SortCompare(GetFunction(index), next) == 0 ? index + 1 : 0;
}

uint32_t FunctionList::FindBestSignature(const KelString& name, const VarList& arguments) const {
  try {
    std::vector<TypeRef> types;
    std::vector<const TypeDesc*> loans;
    for (uint32_t i = 0; i < arguments.GetSize(); ++i) {
      types.push_back(tamber::TypeOf(*arguments.GetVariable(i)));
      loans.push_back(types.back().Get());
    }
    return FindBestSignature(name.View(), loans);
  } catch (const std::bad_alloc&) {
    return 0;
  }
}

uint32_t FunctionList::FindBestSignature(std::string_view name, Arguments arguments) const {
  return FindBestOverload(FindFirstOverload(name), arguments);
}

uint32_t FunctionList::FindBestOverload(uint32_t first, Arguments arguments) const {
  const uint32_t found = BestOverload(first, arguments, false);
  return found != 0 ? found : BestOverload(first, arguments, true);
}

uint32_t FunctionList::BestOverload(uint32_t first, Arguments arguments, bool anyForArray) const {
  uint32_t best = 0;
  int32_t bestScore = -1;
  for (uint32_t index = first; index != 0; index = NextOverload(index)) {
    const TamberFunction& function = *GetFunction(index);
    if (function.GetParameterCount() != arguments.size()) continue;
    const int32_t score = Score(function, arguments, anyForArray);
    if (score == static_cast<int32_t>(arguments.size())) return index;
    if (score > bestScore) {
      best = index;
      bestScore = score;
    }
  }
  return best;
}

bool FunctionList::TakesArguments(uint32_t index, Arguments arguments) const {
  const TamberFunction* function = GetFunction(index);
  if (function == nullptr || function->GetParameterCount() != arguments.size()) return false;
  for (size_t i = 0; i < arguments.size(); ++i) {
    const TypeDesc& parameter = *function->ParameterTypes()[i];
    const bool takes = arguments[i] != nullptr &&
                       (arguments[i]->GetKind() == Kind::Any || IsGenericArray(parameter) ||
                        arguments[i]->IsSame(parameter) || parameter.Accepts(*arguments[i]));
    if (!takes) return false;
  }
  return true;
}

std::shared_ptr<const TamberFunction> FunctionList::ChooseOverload(const TamberFunction& bound,
                                                                   Arguments arguments,
                                                                   int32_t& error) const {
  const uint32_t index = FindBestSignature(bound.GetName(), arguments);
  error = index == 0 ? ERR_EXPRSIGNATURE : ERR_EXPRPARMTYPE;
  if (index == 0 || !TakesArguments(index, arguments)) return nullptr;
  const FunctionTraits& promised = bound.Traits();
  const FunctionTraits& traits = GetFunction(index)->Traits();
  const bool keeps = traits.localsBlind == promised.localsBlind &&
                     traits.usesLocals == promised.usesLocals &&
                     traits.writesArgument == promised.writesArgument;
  return keeps ? ShareFunction(index) : nullptr;
}

bool FunctionList::HasOneResult(uint32_t index) const {
  const TamberFunction& function = *GetFunction(index);
  for (uint32_t other = FindFirstOverload(function.GetName()); other != 0;
       other = NextOverload(other)) {
    const TamberFunction& overload = *GetFunction(other);
    if (overload.GetParameterCount() == function.GetParameterCount() &&
        !overload.ReturnType()->IsSame(*function.ReturnType())) {
      return false;
    }
  }
  return true;
}

const TamberFunction* FunctionList::GetFunction(uint32_t index) const {
  const auto& functions = Functions().functions;
  return index >= 1 && index <= functions.size() ? functions[index - 1].get() : nullptr;
}

std::shared_ptr<const TamberFunction> FunctionList::ShareFunction(uint32_t index) const {
  const auto& functions = Functions().functions;
  return index >= 1 && index <= functions.size() ? functions[index - 1] : nullptr;
}

uint32_t FunctionList::GetFunctionCount() const {
  return static_cast<uint32_t>(Functions().functions.size());
}

bool FunctionList::ExchangeFunction(const TamberFunction* entry,
                                    std::shared_ptr<const TamberFunction> former) {
  uint32_t index = FindFirstOverload(entry->GetName());
  while (index != 0 && GetFunction(index) != entry) index = NextOverload(index);
  if (index == 0) return false;
  Table& table = OwnFunctions();
  std::swap(table.functions[index - 1], former);
  if (table.functions[index - 1] == nullptr)
    table.functions.erase(table.functions.begin() + (index - 1));
  return true;
}

void FunctionList::ClearList() {
  const kel::Cow<Table> former = table_;
  table_ = kel::Cow<Table>();
  const auto waiting = std::exchange(waiting_, {});
  version_ = tamber::NextEpoch();
}

void FunctionList::LendFunctions(Prototypes prototypes) {
  const auto isCounted = [](const auto& function) { return function.use_count() != 0; };
  const Entries& shared = Functions().functions;
  if (std::none_of(shared.begin(), shared.end(), isCounted)) return;
  Table& table = OwnFunctions();
  auto lenders = std::make_shared<Entries>(table.lenders ? *table.lenders : Entries());
  std::copy_if(table.functions.begin(), table.functions.end(), std::back_inserter(*lenders),
               isCounted);
  if (prototypes == Prototypes::Read)
    for (const auto& function : *lenders) static_cast<void>(function->GetParameterCount());
  table.lenders = std::move(lenders);
  for (auto& function : table.functions)
    function = std::shared_ptr<const TamberFunction>(std::shared_ptr<void>(), function.get());
}

void FunctionList::DumpFunctions(KelString& out, const KelString& names,
                                 const KelString& indent) const {
  const kel::DumpSelection selection(names);
  selection.AppendTitle(out, "Functions dump:");
  if (selection.All()) {
    for (uint32_t i = 1; i <= GetFunctionCount(); ++i) DumpFunction(out, indent, i);
    return;
  }
  for (const std::string_view name : selection.Names()) {
    for (uint32_t i = FindFirstOverload(name); i != 0; i = NextOverload(i))
      DumpFunction(out, indent, i);
  }
}

void FunctionList::DumpFunction(KelString& out, const KelString& indent, uint32_t index) const {
  out += indent;
  out += PrototypeOf(*GetFunction(index));
  out += "\r\n";
}

KelString FunctionList::PrototypeText(uint32_t index) const {
  const TamberFunction* function = GetFunction(index);
  return function != nullptr ? KelString(PrototypeOf(*function)) : KelString();
}
