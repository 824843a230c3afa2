#include "context/registration.h"

#include <algorithm>
#include <unordered_map>
#include <utility>

#include "context/contextstate.h"
#include "context/defaults.h"
#include "frontend/structdef.h"
#include "kel/notice.h"
#include "values/cellops.h"
#include "values/strbuf.h"
#include "values/varholder.h"

namespace tamber {

/// What registrations of a context must find again later.
struct RegistrationHistory {
  /// Those that are in force, in the order of loading.
  std::vector<ContextRegistration*> active;
  /// Error codes of modules that were unloaded. A module that is loaded again gets the same ones.
  std::unordered_map<std::string, int32_t> retiredErrors;
};

namespace {

/// Where a context keeps its history; registrations hold it too, for they may go last.
struct HistorySlot {
  std::shared_ptr<RegistrationHistory> history = std::make_shared<RegistrationHistory>();
};

const std::shared_ptr<RegistrationHistory>& HistoryOf(TamberContext& context) {
  return context.ModuleState<HistorySlot>().history;
}

template <class Record>
const Record* ListOf(const FUNCMOD_REGISTRATION* record, enum_FuncModRegType type) {
  return static_cast<const Record*>(TamberContext::FindRegistrationList(record, type));
}

/// Walks one list of a record; a list that is not there is empty.
template <class Record, class NameOf, class Visit>
void ForEach(const FUNCMOD_REGISTRATION* record, enum_FuncModRegType type, NameOf nameOf,
             Visit visit) {
  const Record* entry = ListOf<Record>(record, type);
  for (; entry != nullptr && !std::invoke(nameOf, entry)->IsEmpty(); ++entry) visit(*entry);
}

template <class Record, class Visit>
void ForEachNamed(const FUNCMOD_REGISTRATION* record, enum_FuncModRegType type, Visit visit) {
  ForEach<Record>(
      record, type, [](const Record* entry) { return &entry->name; }, visit);
}

enum class Refusal { None, Differs, SameAlready };

/// Adds a constant unless one of its name is there.
Refusal AddConstant(TamberContext& context, const KelString& name, Kind kind, Cell cell,
                    enum_VarListType list) {
  OwnedCell value(kind, cell);
  Variable* present = context.GetVariable(name, list);
  if (present != nullptr) {
    const bool same = KindOf(*present) == kind &&
                      (kind == Kind::String ? TextOf(CellOf(*present)->s) == TextOf(cell.s)
                                            : CellOf(*present)->i == cell.i);
    return same ? Refusal::SameAlready : Refusal::Differs;
  }
  VarHolder constant(MakeOwnedVariable(TypeDesc::Of(kind), Name(name.View()), std::move(value)));
  constant->SetVarFlags(Variable::Predefined);
  AddOwned(context, std::move(constant), list);
  return Refusal::None;
}

void AddType(TamberContext& context, const KelString& name, const TypeRef& type) {
  context.AddType(name, MakeVariable(type, Name()), kModuleStruct);
}

using Prototypes = std::map<const TamberContext*, const Variable*>;

bool IsTypeName(std::string_view name) {
  return !name.empty() &&
         std::all_of(name.begin(), name.end(), [](char c) { return kel::IsAlnum(c) || c == '_'; });
}

/// A record without a place for the prototype wants the type all the same.
void RegisterStructureRecord(TamberContext& context, const FUNCMOD_STRUCT& entry) {
  const Variable* prototype = nullptr;
  context.RegisterStructure(entry.name, entry.members, &prototype);
  if (prototype == nullptr) return;
  if (entry.prototype != nullptr) *entry.prototype = prototype;
  if (entry.prototypes != nullptr) (*entry.prototypes)[&context] = prototype;
}

void RegisterConstants(TamberContext& context, const FUNCMOD_REGISTRATION* record) {
  ForEachNamed<FUNCMOD_INTEGER>(record, FUNCMOD_INTEGERS, [&](const FUNCMOD_INTEGER& entry) {
    context.RegisterInteger(entry.name, entry.value, VARLIST_CONSTANT);
  });
  ForEachNamed<FUNCMOD_STRING>(record, FUNCMOD_STRINGS, [&](const FUNCMOD_STRING& entry) {
    context.RegisterString(entry.name, entry.value, VARLIST_CONSTANT);
  });
}

void RegisterTypes(TamberContext& context, const FUNCMOD_REGISTRATION* record) {
  ForEachNamed<FUNCMOD_OBJECT>(record, FUNCMOD_OBJECTS, [&](const FUNCMOD_OBJECT& entry) {
    context.RegisterObjectType(entry.name);
  });
  ForEachNamed<FUNCMOD_STRUCT>(record, FUNCMOD_STRUCTS, [&](const FUNCMOD_STRUCT& entry) {
    RegisterStructureRecord(context, entry);
  });
}

void RegisterErrors(TamberContext& context, const FUNCMOD_REGISTRATION* record) {
  ForEachNamed<FUNCMOD_ERROR>(record, FUNCMOD_ERRORS, [&](const FUNCMOD_ERROR& entry) {
    const int32_t code = context.RegisterErrorCode(0, entry.name, entry.text);
    context.RegisterInteger(entry.name, static_cast<uint32_t>(code), VARLIST_CONSTANT);
    // Contexts that count differently disagree about it: see TamberContext::FindErrorCode.
    const_cast<FUNCMOD_ERROR&>(entry).code = code;
  });
}

/// The lists of functions, in their fixed order. `add` gets each record, the kind of its list, and
/// whether it replaces what has the same signature.
template <class Add>
void ForEachFunction(const FUNCMOD_REGISTRATION* record, Add add) {
  struct List {
    enum_FuncModRegType list;
    FunctionList::FuncType_e type;
    bool replace;
  };
  for (const List& each :
       {List{FUNCMOD_FUNCTIONS, FunctionList::FUNCTYPE_NORMAL, false},
        List{FUNCMOD_REPLACING_FUNCTIONS, FunctionList::FUNCTYPE_NORMAL, true},
        List{FUNCMOD_CONTEXT_FUNCTIONS, FunctionList::FUNCTYPE_CONTEXT, false}}) {
    ForEach<FUNCMOD_FUNCTION>(
        record, each.list, [](const FUNCMOD_FUNCTION* entry) { return &entry->prototype; },
        [&](const FUNCMOD_FUNCTION& entry) { add(entry, each.type, each.replace); });
  }
}

/// Whether the record of a function says how it is called with the context.
bool TakesContext(const FUNCMOD_FUNCTION& entry, FunctionList::FuncType_e type) {
  return type == FunctionList::FUNCTYPE_CONTEXT && entry.contextImplementation != nullptr;
}

/// The whole of a record in the fixed order: what prototypes name comes before the prototypes.
void RegisterLists(TamberContext& context, const FUNCMOD_REGISTRATION* record) {
  // What is refused of a module is no error of the script that includes it.
  const ErrorRecord kept(context.State());
  RegisterConstants(context, record);
  RegisterTypes(context, record);
  RegisterErrors(context, record);
  ForEachFunction(record,
                  [&](const FUNCMOD_FUNCTION& entry, FunctionList::FuncType_e type, bool replace) {
                    if (TakesContext(entry, type)) {
                      context.RegisterFunction(entry.prototype, entry.contextImplementation, type,
                                               replace, entry.traits);
                    } else {
                      context.RegisterFunction(entry.prototype, entry.implementation.onStack, type,
                                               replace, entry.traits);
                    }
                  });
}

bool HaveSameSignature(const TamberFunction& a, const TamberFunction& b) {
  if (!kel::EqualsNoCase(a.GetName(), b.GetName())) return false;
  return std::equal(a.ParameterTypes().begin(), a.ParameterTypes().end(),
                    b.ParameterTypes().begin(), b.ParameterTypes().end(),
                    [](const TypeRef& x, const TypeRef& y) { return x->IsSame(*y); });
}

std::vector<std::shared_ptr<const TamberFunction>> EntriesOf(const FunctionList& list) {
  std::vector<std::shared_ptr<const TamberFunction>> entries;
  for (uint32_t i = 1; i <= list.GetFunctionCount(); ++i) entries.push_back(list.ShareFunction(i));
  std::sort(entries.begin(), entries.end());
  return entries;
}

}  // namespace

void RegisterBuiltInTypes(TamberContext& context, const FUNCMOD_REGISTRATION* record) {
  RegisterTypes(context, record);
}

void RegisterBuiltInConstants(TamberContext& context, const FUNCMOD_REGISTRATION* record) {
  RegisterConstants(context, record);
}

void RegisterBuiltInErrors(ErrorList& errors, const FUNCMOD_REGISTRATION* record) {
  ForEachNamed<FUNCMOD_ERROR>(record, FUNCMOD_ERRORS, [&](const FUNCMOD_ERROR& entry) {
    errors.AddError(static_cast<int32_t>(errors.GetNewRuntimeErrorCode()), entry.name, entry.text);
  });
}

void AddBuiltInNames(kel::NameFilter& names, const FUNCMOD_REGISTRATION* record) {
  const auto add = [&names](const auto& entry) { names.Add(entry.name.View()); };
  ForEachNamed<FUNCMOD_INTEGER>(record, FUNCMOD_INTEGERS, add);
  ForEachNamed<FUNCMOD_STRING>(record, FUNCMOD_STRINGS, add);
  ForEachNamed<FUNCMOD_ERROR>(record, FUNCMOD_ERRORS, add);
  ForEachFunction(record, [&names](const FUNCMOD_FUNCTION& entry, FunctionList::FuncType_e, bool) {
    names.Add(TamberFunction::NameIn(entry.prototype));
  });
}

void RegisterBuiltInFunctions(FunctionList& functions, const FUNCMOD_REGISTRATION* record,
                              const TypeList& types) {
  ForEachFunction(record, [&](const FUNCMOD_FUNCTION& entry, FunctionList::FuncType_e type, bool) {
    auto function = std::make_shared<TamberFunction>(entry.prototype, types, type);
    FunctionTraits traits = entry.traits;
    traits.interruptible = true;
    function->SetTraits(traits);
    if (TakesContext(entry, type)) {
      function->SetImplementation(entry.contextImplementation);
    } else {
      function->SetImplementation(entry.implementation.onStack);
      function->SetDirect(entry.implementation.direct);
      function->SetInlined(entry.implementation.inlined);
    }
    functions.AddOverload(std::move(function));
  });
}

ContextRegistration::ContextRegistration(TamberContext& context)
    : context_(context), history_(HistoryOf(context)) {
  history_->active.push_back(this);
}

ContextRegistration::~ContextRegistration() { std::erase(history_->active, this); }

void ContextRegistration::Register(const FUNCMOD_REGISTRATION* record) {
  const std::lock_guard lock(ModuleMutex());
  const FunctionList before(context_);
  const auto noteConstant = [this](const KelString& name) {
    if (context_.GetVariable(name, VARLIST_CONSTANT) == nullptr) constants_.push_back(name);
  };
  const auto noteType = [this](const KelString& name) {
    if (context_.FindType(name) == TypeList::kNotFound) types_.push_back(name);
  };
  ForEachNamed<FUNCMOD_INTEGER>(record, FUNCMOD_INTEGERS,
                                [&](const auto& entry) { noteConstant(entry.name); });
  ForEachNamed<FUNCMOD_STRING>(record, FUNCMOD_STRINGS,
                               [&](const auto& entry) { noteConstant(entry.name); });
  ForEachNamed<FUNCMOD_ERROR>(record, FUNCMOD_ERRORS,
                              [&](const auto& entry) { noteConstant(entry.name); });
  ForEachNamed<FUNCMOD_OBJECT>(record, FUNCMOD_OBJECTS,
                               [&](const auto& entry) { noteType(entry.name); });
  ForEachNamed<FUNCMOD_STRUCT>(record, FUNCMOD_STRUCTS,
                               [&](const auto& entry) { noteType(entry.name); });
  RegisterLists(context_, record);
  ForEachNamed<FUNCMOD_STRUCT>(record, FUNCMOD_STRUCTS, [&](const FUNCMOD_STRUCT& entry) {
    if (entry.prototypes != nullptr) prototypes_.push_back(entry.prototypes);
  });
  ForEachNamed<FUNCMOD_ERROR>(record, FUNCMOD_ERRORS, [&](const FUNCMOD_ERROR& entry) {
    errors_.emplace_back(entry.name, entry.code);
  });
  NoteFunctions(before);
}

void ContextRegistration::NoteFunctions(const FunctionList& before) {
  const auto old = EntriesOf(before);
  const auto now = EntriesOf(context_);
  std::vector<std::shared_ptr<const TamberFunction>> gone;
  std::set_difference(old.begin(), old.end(), now.begin(), now.end(), std::back_inserter(gone));
  std::vector<std::shared_ptr<const TamberFunction>> added;
  std::set_difference(now.begin(), now.end(), old.begin(), old.end(), std::back_inserter(added));
  for (auto& function : added) {
    const auto replaced = std::find_if(gone.begin(), gone.end(), [&](const auto& former) {
      return HaveSameSignature(*former, *function);
    });
    functions_.push_back({std::move(function), replaced != gone.end() ? *replaced : nullptr});
  }
}

void ContextRegistration::TakeBack() {
  TakeBackFunctions();
  for (const KelString& name : constants_) {
    Variable::Delete(context_.RemoveVariable(name, VARLIST_CONSTANT));
  }
  for (const KelString& name : types_) {
    for (const KelString& word : {name + "[]", name}) {
      const uint32_t position = context_.FindType(word);
      if (position != TypeList::kNotFound) context_.DeleteType(position);
    }
  }
  for (const auto& [name, code] : errors_) history_->retiredErrors[name.Str()] = code;
  for (Prototypes* prototypes : prototypes_) prototypes->erase(&context_);
}

/// A function that a module loaded later put in the place of ours is left there; what it will bring
/// back one day is then not ours either.
void ContextRegistration::TakeBackFunctions() {
  for (const Function& function : functions_) {
    if (context_.ExchangeFunction(function.added.get(), function.replaced)) continue;
    for (ContextRegistration* other : history_->active) {
      for (Function& theirs : other->functions_) {
        if (theirs.replaced == function.added) theirs.replaced = function.replaced;
      }
    }
  }
  functions_.clear();
}

}  // namespace tamber

using tamber::Cell;
using tamber::Kind;
using tamber::TypeDesc;
using tamber::TypeRef;

void TamberContext::RegisterFunctionModule(const FUNCMOD_REGISTRATION* registration) {
  if (registration == nullptr) return;
  const std::lock_guard lock(tamber::ModuleMutex());
  tamber::RegisterLists(*this, registration);
}

void TamberContext::RegisterDefaultFunctions(bool skip) {
  if (!skip) tamber::RestoreBuiltIns(*this);
}

const void* TamberContext::FindRegistrationList(const FUNCMOD_REGISTRATION* registration,
                                                enum_FuncModRegType type) {
  if (registration == nullptr) return nullptr;
  while (registration->type != FUNCMOD_END && registration->type != type) ++registration;
  return registration->type == type ? registration->list : nullptr;
}

void TamberContext::RegisterBoolean(const KelString& name, int32_t value, enum_VarListType list) {
  const Cell cell = tamber::IntCell(value != 0 ? 1 : 0);
  if (tamber::AddConstant(*this, name, Kind::Bool, cell, list) == tamber::Refusal::Differs) {
    RegistrationError("Trying to register boolean %S with different values", name);
  }
}

void TamberContext::RegisterInteger(const KelString& name, uint32_t value, enum_VarListType list) {
  const Cell cell = tamber::IntCell(static_cast<int32_t>(value));
  if (tamber::AddConstant(*this, name, Kind::Int, cell, list) == tamber::Refusal::Differs) {
    RegistrationError("Trying to register integer %S with different values", name);
  }
}

void TamberContext::RegisterString(const KelString& name, const KelString& value,
                                   enum_VarListType list) {
  Cell cell = tamber::ZeroCell();
  if (!value.IsEmpty()) cell.s = tamber::StrBuf::New(value);
  if (tamber::AddConstant(*this, name, Kind::String, cell, list) == tamber::Refusal::Differs) {
    RegistrationError("Trying to register string %S with different values", name);
  }
}

uint32_t TamberContext::RegisterObjectType(const KelString& name) {
  const TypeRef present = FindTypeRef(name);
  if (!tamber::IsTypeName(name.View()) || (present && present->GetKind() != Kind::Handle)) {
    state_->RefuseRegistration(present ? ERR_VAREXISTS : ERR_VARBADNAME, name);
    return TypeList::kNotFound;
  }
  const TypeRef type = TypeDesc::HandleOf(tamber::Name(name.View()));
  const uint32_t before = FindType(name);
  if (before == TypeList::kNotFound) tamber::AddType(*this, name, type);
  tamber::AddType(*this, name + "[]", TypeDesc::ArrayOf(type));
  return before == TypeList::kNotFound ? 0 : before;
}

int32_t TamberContext::RegisterStructure(const KelString& name, const KelString& members,
                                         const Variable** prototype) try {
  const TypeRef present = FindTypeRef(name);
  int32_t refused = ERR_SUCCESS;
  if (!present && tamber::IsTypeName(name.View())) {
    refused = tamber::DefineStructureText(*state_, name, members, tamber::kModuleStruct);
  } else if (!present || present->GetKind() != Kind::Struct) {
    refused = present ? ERR_VAREXISTS : ERR_VARBADNAME;
    SetContextError(refused, name);
  }
  if (refused != ERR_SUCCESS) {
    state_->RefuseRegistration(refused, GetContextErrorText());
    RegistrationError("Error trying to create structure '%S'", name);
    return 0;
  }
  if (prototype != nullptr) *prototype = GetType(name)->GetVariable();
  return 1;
} catch (const std::bad_alloc&) {
  SetContextError(ERR_NOMEMORY, "");
  return 0;
}

int32_t TamberContext::RegisterStructure(Variable* structure) {
  if (structure == nullptr || structure->IsStruct() == 0) {
    Variable::Delete(structure);
    state_->RefuseRegistration(ERR_VARNOTSTRUCT, "");
    return 0;
  }
  const tamber::VarHolder owner(structure);
  try {
    const KelString name = structure->GetStructName();
    if (!tamber::IsTypeName(name.View())) {
      state_->RefuseRegistration(ERR_VARBADNAME, name);
      return 0;
    }
    // The type has the values of the members: they are there wherever one of it is made.
    const TypeRef type = tamber::TypeLike(*structure);
    AddType(name, MakeVariable(type, tamber::Name()), tamber::kModuleStruct);
    tamber::AddType(*this, name + "[]", TypeDesc::ArrayOf(type));
    return 1;
  } catch (const std::bad_alloc&) {
    SetContextError(ERR_NOMEMORY, "");
    return 0;
  }
}

int32_t TamberContext::RegisterErrorCode(int32_t code, const KelString& name,
                                         const KelString& text) {
  ErrorList& errors = GetErrorList();
  if (code == 0) {
    const auto& retired = tamber::HistoryOf(*this)->retiredErrors;
    const auto known = retired.find(name.Str());
    if (known != retired.end()) return known->second;
    code = static_cast<int32_t>(errors.GetNewRuntimeErrorCode());
  }
  errors.AddError(code, name, text);
  return code;
}

int32_t TamberContext::FindErrorCode(std::string_view name) const {
  return state_->errors.list.FindErrorCode(name);
}

void TamberContext::ShowRegistrationError(const KelString& message) {
  kel::Notice("Tamber Registration Error", message);
}
