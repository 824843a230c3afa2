#include "machine/framestate.h"

#include <algorithm>
#include <iterator>

#include "engine/tambops.h"
#include "machine/callable.h"
#include "machine/shape.h"
#include "values/arraydata.h"
#include "values/cellops.h"

namespace tamber {
namespace {

/// Kinds and tables are numbers in the code; these name what a number means, or null.
const TypeDesc* TypeOfKind(uint32_t kind) {
  return kind <= static_cast<uint32_t>(Kind::Any) ? TypeDesc::Of(static_cast<Kind>(kind)).Get()
                                                  : nullptr;
}

const TypeDesc* TypeAt(const std::vector<TypeRef>& types, uint32_t index) {
  return index < types.size() ? types[index].Get() : nullptr;
}

/// Registers hold an encrypted string as its plain text.
const TypeDesc* Plain(const TypeDesc* type) {
  return type != nullptr && type->GetKind() == Kind::EString ? TypeDesc::Of(Kind::String).Get()
                                                             : type;
}

const TypeDesc* MemberOf(const TypeDesc* structure, uint32_t member) {
  if (structure == nullptr || structure->GetKind() != Kind::Struct || !structure->Layout())
    return nullptr;
  const auto& members = structure->Layout()->Members();
  return member < members.size() ? members[member].type.Get() : nullptr;
}

const TypeDesc* ElementOf(const TypeDesc* array) {
  return array != nullptr && array->IsArray() ? array->Element().Get() : nullptr;
}

/// Bytes of a stored element; 0 where the elements are not known.
uint32_t ElementSize(const TypeDesc* array) {
  const TypeDesc* element = ElementOf(array);
  if (element == nullptr) return 0;
  switch (ArrayData::StorageOf(TypeRef(element))) {
    case Kind::Bool:
    case Kind::Char:
      return 1;
    case Kind::Int:
    case Kind::Float:
      return 4;
    default:
      return 8;
  }
}

const TypeDesc* SmallestInt(int32_t value) {
  if (value == 0 || value == 1) return TypeDesc::Of(Kind::Bool).Get();
  return TypeDesc::Of(value >= -128 && value <= 127 ? Kind::Char : Kind::Int).Get();
}

/// A boolean is 0 or 1 and a character one byte, so a register with a narrower integer will do.
bool FitsScalar(Kind wanted, Kind given) {
  if (wanted >= Kind::Bool && wanted <= Kind::Int) return given >= Kind::Bool && given <= wanted;
  return given == wanted;
}

bool FitsType(const TypeDesc* wanted, const RegisterState& state) {
  if (wanted == nullptr) return false;
  const Kind kind = wanted->GetKind();
  if (!IsManaged(kind))
    return state.hold == Hold::Scalar && FitsScalar(kind, state.type->GetKind());
  return (state.hold == Hold::Owned || state.hold == Hold::Borrowed) &&
         HasLayoutOf(*state.type, *wanted);
}

bool HoldsManaged(const RegisterState& state) {
  return state.hold == Hold::Owned || state.hold == Hold::Borrowed;
}

}  // namespace

FrameState::FrameState(const Code& code)
    : code_(&code), localCount_(code.procedure ? code.procedure->Locals().Count() : 0) {
  written_.resize(localCount_ / 64 + 1);
  for (uint32_t slot = 0; slot < localCount_; ++slot) {
    // An argument becomes an object first; the object of a local is made, or found outside, on use.
    if ((slot < code.parameters) != IsObject(slot)) SetWritten(slot);
  }
}

bool FrameState::IsObject(uint32_t slot) const {
  const auto& owned = code_->ownedLocals;
  const auto found = std::lower_bound(owned.begin(), owned.end(), slot,
                                      [](const OwnedRegister& o, uint32_t s) { return o.reg < s; });
  return found != owned.end() && found->reg == slot && found->kind == Kind::Any;
}

const TypeDesc* FrameState::LocalType(uint32_t slot) const {
  return slot < localCount_ ? code_->procedure->Locals().At(slot).type.Get() : nullptr;
}

const TypeDesc* FrameState::GlobalType(uint32_t index) const {
  return index < code_->globals.size() ? code_->globals[index].type.Get() : nullptr;
}

bool FrameState::IsGlobalOf(uint32_t index, Kind kind) const {
  const TypeDesc* type = GlobalType(index);
  return type != nullptr && type->GetKind() == kind;
}

const FrameState::Temp* FrameState::Find(uint32_t reg) const {
  const auto found = std::lower_bound(temps_.begin(), temps_.end(), reg,
                                      [](const Temp& t, uint32_t r) { return t.reg < r; });
  return found != temps_.end() && found->reg == reg ? &*found : nullptr;
}

RegisterState FrameState::Get(uint32_t reg) const {
  if (IsTemp(reg)) {
    const Temp* temp = Find(reg);
    return temp != nullptr ? temp->state : RegisterState();
  }
  if (IsObject(reg) || !IsWritten(reg)) return {};
  const TypeDesc* type = LocalType(reg);
  return {IsManaged(type->GetKind()) ? Hold::Owned : Hold::Scalar, RegisterState::kOutside, type};
}

void FrameState::Set(uint32_t reg, const RegisterState& state) {
  if (!IsTemp(reg)) {
    SetWritten(reg);
    return;
  }
  const auto at = std::lower_bound(temps_.begin(), temps_.end(), reg,
                                   [](const Temp& t, uint32_t r) { return t.reg < r; });
  const bool known = at != temps_.end() && at->reg == reg;
  if (state.hold == Hold::Empty) {
    if (known) temps_.erase(at);
  } else if (known) {
    at->state = state;
  } else {
    temps_.insert(at, {static_cast<uint16_t>(reg), state});
  }
}

void FrameState::Drop(uint32_t reg) {
  if (IsTemp(reg)) Set(reg, {});
}

void FrameState::Rename(uint32_t from, uint32_t to) {
  const RegisterState state = Get(from);
  Drop(from);
  Set(to, state);
}

void FrameState::FindOwned(const Instr& at, std::vector<OwnedRegister>& owned) const {
  const bool calls = at.op == Op::Call;
  const uint32_t end = calls ? at.a + code_->procedures[at.b]->GetParameterCount() : 0;
  for (const Temp& temp : temps_) {
    const bool argument = calls && temp.reg >= at.a && temp.reg < end;
    if (temp.state.hold == Hold::Owned && !argument)
      owned.push_back({temp.reg, temp.state.type->GetKind()});
  }
}

bool FrameState::OwnsNothing() const {
  return std::none_of(temps_.begin(), temps_.end(),
                      [](const Temp& t) { return t.state.hold == Hold::Owned; });
}

// --- what the operands say ---

const TypeDesc* FrameState::TypeFor(Holds holds, const Instr& at) const {
  const auto of = [](Kind kind) { return TypeDesc::Of(kind).Get(); };
  switch (holds) {
    case Holds::Bool:
      return of(Kind::Bool);
    case Holds::Char:
      return of(Kind::Char);
    case Holds::Int:
      return of(Kind::Int);
    case Holds::Float:
      return of(Kind::Float);
    case Holds::Double:
      return of(Kind::Double);
    case Holds::Handle:
      return of(Kind::Handle);
    case Holds::String:
      return of(Kind::String);
    case Holds::Any:
      return of(Kind::Any);
    case Holds::IntW:
      return SmallestInt(at.Wide());
    case Holds::BitsBC: {
      const TypeDesc* left = Get(at.b).type;
      const TypeDesc* right = Get(at.c).type;
      if (left == nullptr || right == nullptr) return of(Kind::Int);
      return left->GetKind() > right->GetKind() ? left : right;
    }
    case Holds::SameAsB:
    case Holds::KindC:
      return Get(at.b).type;
    case Holds::ScalarB:
      return TypeOfKind(at.b);
    case Holds::TypeB:
      return TypeAt(code_->types, at.b);
    case Holds::TypeC:
    case Holds::AddressOfTypeC:
      return TypeAt(code_->types, at.c);
    case Holds::ConstantW:
      return of(code_->constantKinds[static_cast<uint32_t>(at.Wide())]);
    case Holds::GlobalB:
    case Holds::AddressOfGlobalB:
      return GlobalType(at.b);
    case Holds::LocalA:
      return LocalType(at.a);
    case Holds::LocalB:
    case Holds::AddressOfLocalB:
      return LocalType(at.b);
    case Holds::ElementA:
      return ElementOf(Get(at.a).type);
    case Holds::ElementB:
    case Holds::AddressOfElementB:
      return ElementOf(Get(at.b).type);
    case Holds::ElementOfGlobalA:
      return ElementOf(GlobalType(at.a));
    case Holds::ElementOfGlobalB:
    case Holds::AddressOfElementOfGlobalB:
      return ElementOf(GlobalType(at.b));
    case Holds::MemberA:
      return MemberOf(Get(at.a).type, at.b);
    case Holds::MemberB:
    case Holds::AddressOfMemberB:
      return MemberOf(Get(at.b).type, at.c);
    case Holds::AppendC:
      return at.c < code_->appends.size() ? code_->appends[at.c].value.Get() : nullptr;
    case Holds::ResultB:
      return Plain(code_->procedures[at.b]->ReturnType().Get());
    case Holds::SiteB: {
      const CallSite& site = code_->sites[at.b];
      return Plain(site.resultKind == Kind::Any ? of(Kind::Any)
                                                : site.function->ReturnType().Get());
    }
    case Holds::Return:
    case Holds::ReturnScalar:
      return Plain(code_->returnType.Get());
    default:
      return nullptr;
  }
}

bool FrameState::Fits(Holds holds, const Instr& at, const RegisterState& state) const {
  const bool isAddress = state.hold == Hold::Address;
  const Kind kind = state.type->GetKind();
  switch (holds) {
    case Holds::Struct:
      return HoldsManaged(state) && kind == Kind::Struct;
    case Holds::Array:
      return HoldsManaged(state) && kind == Kind::Array;
    case Holds::Array8:
      return HoldsManaged(state) && ElementSize(state.type) == 1;
    case Holds::Array32:
      return HoldsManaged(state) && ElementSize(state.type) == 4;
    case Holds::Array64:
      return HoldsManaged(state) && ElementSize(state.type) == 8;
    case Holds::Variable:
      return HoldsManaged(state) && HoldsObjects(kind);
    case Holds::Scalar:
      return state.hold == Hold::Scalar;
    case Holds::Managed:
      return HoldsManaged(state);
    case Holds::KindB:
    case Holds::KindC: {
      const TypeDesc* wanted = TypeOfKind(holds == Holds::KindB ? at.b : at.c);
      if (wanted == nullptr || isAddress) return false;
      return HoldsManaged(state) ? kind == wanted->GetKind() : FitsScalar(wanted->GetKind(), kind);
    }
    case Holds::AddressOfString:
      return isAddress && kind == Kind::String;
    case Holds::AddressOfStruct:
      return isAddress && kind == Kind::Struct;
    case Holds::AddressOfArray:
      return isAddress && kind == Kind::Array;
    case Holds::AddressOfArray8:
      return isAddress && ElementSize(state.type) == 1;
    case Holds::AddressOfArray32:
      return isAddress && ElementSize(state.type) == 4;
    case Holds::AddressOfArray64:
      return isAddress && ElementSize(state.type) == 8;
    case Holds::AddressOfTypeC: {
      const TypeDesc* type = TypeFor(holds, at);
      return isAddress && kind == Kind::Array && type != nullptr && type->IsArray();
    }
    case Holds::AddressOfAppend:
      return isAddress && kind == Kind::Array && at.c < code_->appends.size();
    case Holds::ReturnScalar:
      return state.hold == Hold::Scalar && FitsType(TypeFor(holds, at), state);
    default:
      return !isAddress && FitsType(TypeFor(holds, at), state);
  }
}

std::string_view FrameState::CheckRead(const OperandInfo& info, const Instr& at,
                                       uint32_t reg) const {
  if (info.role == Role::Replace) {
    const bool local = !IsTemp(reg) && !IsObject(reg);
    const bool managed = local && IsManaged(LocalType(reg)->GetKind());
    if (!managed) return "replaces what is no local value";
    const bool same = info.holds != Holds::KindC || TypeOfKind(at.c) == nullptr ||
                      LocalType(reg)->GetKind() == static_cast<Kind>(at.c);
    return same ? "" : "replaces a value by one of another kind";
  }
  const RegisterState state = Get(reg);
  if (state.hold == Hold::Empty) return "reads a register that holds nothing";
  if (!Fits(info.holds, at, state)) return "reads a register that holds something else";
  if (info.role == Role::Update && state.hold != Hold::Owned) return "changes a borrowed value";
  if (info.role == Role::Take && (state.hold != Hold::Owned || !IsTemp(reg)))
    return "takes a value that the register does not own";
  return "";
}

std::string_view FrameState::CheckWrite(const OperandInfo& info, const Instr& at,
                                        uint32_t reg) const {
  if (at.op == Op::Call) return CheckArguments(at);
  const TypeDesc* type = TypeFor(info.holds, at);
  if (type == nullptr) return "makes a value of an unknown type";
  if (!IsTemp(reg)) {
    const RegisterState result = Result(info, at);
    const bool fits = !IsObject(reg) && result.hold == Hold::Scalar &&
                      FitsScalar(LocalType(reg)->GetKind(), type->GetKind());
    return fits ? "" : "writes something else into a local";
  }
  const OpInfo& op = InfoOf(at.op);
  const bool taken = (op.b.role == Role::Take && at.b == reg);
  if (Get(reg).hold == Hold::Owned && !taken) return "overwrites a value that nobody released";
  return "";
}

std::string_view FrameState::CheckArguments(const Instr& at) const {
  if (at.b >= code_->procedures.size()) return "index of no procedure";
  const Callable& callee = *code_->procedures[at.b];
  for (uint32_t i = 0; i < callee.GetParameterCount(); ++i) {
    const Local& parameter = callee.Locals().At(i);
    const uint32_t reg = at.a + i;
    const TypeDesc* wanted =
        parameter.isReference ? TypeDesc::Of(Kind::Any).Get() : Plain(parameter.type.Get());
    const RegisterState state = Get(reg);
    if (!IsTemp(reg) || state.hold == Hold::Empty) return "calls without an argument";
    if (state.hold == Hold::Borrowed || state.hold == Hold::Address || !FitsType(wanted, state))
      return "calls with an argument of another type";
  }
  const bool own = callee.GetParameterCount() == 0 && Get(at.a).hold == Hold::Owned;
  return own ? "overwrites a value that nobody released" : "";
}

/// Only what is pure, and so changes nothing under its feet, is lent what belongs to others.
std::string_view FrameState::CheckPassed(const Instr& at) const {
  if (at.b >= code_->sites.size()) return "index outside its table";
  const CallSite& site = code_->sites[at.b];
  if (site.passed.arguments.size() != site.arguments) return "calls without its arguments";
  for (uint32_t i = 0; i < site.arguments; ++i) {
    const RegisterState state = Get(at.c + i);
    if (state.hold == Hold::Empty || at.c + i >= code_->registers)
      return "calls without an argument";
    if (state.hold == Hold::Address || !FitsType(site.passed.arguments[i].type.Get(), state))
      return "calls with an argument of another type";
    const bool lent = state.hold == Hold::Borrowed && state.lender != RegisterState::kConstant;
    if (lent && at.op != Op::CallP) return "calls with an argument of somebody else's";
  }
  return "";
}

std::string_view FrameState::CheckIndex(const OperandInfo& info, const Instr& at,
                                        uint32_t index) const {
  const auto wide = static_cast<uint32_t>(at.Wide());
  const OpInfo& op = InfoOf(at.op);
  const auto in = [](size_t i, size_t size) {
    return i < size ? std::string_view() : std::string_view("index outside its table");
  };
  switch (info.holds) {
    case Holds::Divisor:
      return index != 0 ? "" : "divides by the constant 0";
    case Holds::Kind:
      return in(index, static_cast<size_t>(Kind::Any) + 1);
    case Holds::Type:
      return in(index, code_->types.size());
    case Holds::Constant:
      return in(op.c.role == Role::Wide ? wide : index, code_->constants.size());
    case Holds::DoubleConstant:
      return index < code_->constants.size() && code_->constantKinds[index] == Kind::Double
                 ? ""
                 : "index of no double";
    case Holds::StringConstant:
      return index < code_->constants.size() && code_->constantKinds[index] == Kind::String
                 ? ""
                 : "index of no string";
    case Holds::StringText:
      return in(index, code_->texts.size());
    case Holds::Global:
      return in(index, code_->globals.size());
    case Holds::GlobalInt:
      return IsGlobalOf(index, Kind::Int) ? "" : "global of another type";
    case Holds::GlobalDouble:
      return IsGlobalOf(index, Kind::Double) ? "" : "global of another type";
    case Holds::GlobalArray8:
      return ElementSize(GlobalType(index)) == 1 ? "" : "global of another type";
    case Holds::GlobalArray32:
      return ElementSize(GlobalType(index)) == 4 ? "" : "global of another type";
    case Holds::GlobalArray64:
      return ElementSize(GlobalType(index)) == 8 ? "" : "global of another type";
    case Holds::Local:
      if (index >= localCount_ || IsObject(index)) return "slot of no local value";
      return at.op != Op::LdL || IsWritten(index) ? "" : "reads a register that holds nothing";
    case Holds::Object:
      if (index >= localCount_ || !IsObject(index)) return "slot of no object";
      return at.op == Op::Param || IsWritten(index) ? "" : "uses an argument as an object";
    case Holds::Name:
      return in(index, code_->names.size());
    case Holds::Member: {
      const bool stores = op.a.holds == Holds::AddressOfStruct;
      return MemberOf(Get(stores ? at.a : at.b).type, index) ? "" : "number of no member";
    }
    case Holds::Append:
      return in(index, code_->appends.size());
    case Holds::Procedure:
      return in(index, code_->procedures.size());
    case Holds::Site:
      return in(index, code_->sites.size());
    case Holds::Arguments:
      return CheckPassed(at);
    case Holds::Operator:
      return TamberOperators::GetOperatorName(static_cast<int32_t>(index)).IsEmpty()
                 ? "number of no operator"
                 : "";
    default:
      return "";
  }
}

std::string_view FrameState::CheckOperand(const OperandInfo& info, const Instr& at,
                                          uint32_t value) const {
  switch (info.role) {
    case Role::None:
    case Role::Wide:
      return "";
    case Role::Index:
      return CheckIndex(info, at, value);
    case Role::Write:
    case Role::Lend:
      return value < code_->registers ? CheckWrite(info, at, value) : "register out of range";
    default:
      return value < code_->registers ? CheckRead(info, at, value) : "register out of range";
  }
}

uint32_t FrameState::Popped(const Instr& at) const {
  switch (at.op) {
    case Op::PopTo:
      return 1;
    case Op::Exec:
      return static_cast<uint32_t>(TamberOperators::GetOperatorParamCount(at.b));
    case Op::CallN:
    case Op::CallL:
      return code_->sites[at.b].arguments;
    default:
      return 0;
  }
}

/// The address was found before the value is taken: a copy that shares with the whole would end up
/// inside it. Values borrowed from elsewhere were made independent on the way in.
bool FrameState::PutsIntoItself(const Instr& at) const {
  const bool appends = at.op == Op::AAppend;
  if (!appends && at.op != Op::SSetPO && at.op != Op::ASetPO) return false;
  const RegisterState address = Get(at.a);
  return address.isInside && address.lender == (appends ? at.b : at.c);
}

std::string_view FrameState::Check(const Instr& at) const {
  if (static_cast<uint16_t>(at.op) >= kOpCount) return "no instruction";
  const OpInfo& op = InfoOf(at.op);
  // What is read tells of which type the result is, so it comes first.
  std::string_view wrong = CheckOperand(op.c, at, at.c);
  if (wrong.empty()) wrong = CheckOperand(op.b, at, at.b);
  if (wrong.empty()) wrong = CheckOperand(op.a, at, at.a);
  if (wrong.empty() && Popped(at) > depth_) wrong = "pops more than was pushed";
  if (wrong.empty() && PutsIntoItself(at)) wrong = "puts a value into a part of itself";
  return wrong;
}

// --- what the instruction does ---

RegisterState FrameState::Result(const OperandInfo& info, const Instr& at) const {
  const TypeDesc* type = TypeFor(info.holds, at);
  if (type == nullptr) return {};
  if (info.holds >= Holds::AddressOfString && info.holds <= Holds::AddressOfElementOfGlobalB) {
    if (at.op == Op::LeaL) return {Hold::Address, at.b, type};
    const OpInfo& op = InfoOf(at.op);
    const bool enters = op.Has(OpInfo::Enters);
    const bool fromRegister = enters && op.b.IsRegister();
    return {Hold::Address, fromRegister ? Get(at.b).lender : RegisterState::kOutside, type, enters};
  }
  if (!IsManaged(type->GetKind())) return {Hold::Scalar, RegisterState::kOutside, type};
  if (info.role == Role::Write) return {Hold::Owned, RegisterState::kOutside, type};
  RegisterState lent{Hold::Borrowed, RegisterState::kOutside, type};
  if (at.op == Op::LoadK) {
    lent.lender = RegisterState::kConstant;
  } else if (at.op == Op::LdL) {
    lent.lender = at.b;
  } else if (info.holds == Holds::ElementB || info.holds == Holds::MemberB) {
    const RegisterState whole = Get(at.b);
    lent.lender = whole.hold == Hold::Owned ? at.b : whole.lender;
  }
  return lent;
}

void FrameState::EndLoansFrom(uint32_t lender) {
  std::erase_if(temps_, [&](const Temp& t) {
    return t.state.hold == Hold::Borrowed && t.state.lender == lender;
  });
}

/// Parts of what a temporary owns are out of reach of everybody else.
bool FrameState::IsLoan(const RegisterState& state) const {
  return state.hold == Hold::Borrowed && state.lender != RegisterState::kConstant &&
         (state.lender == RegisterState::kOutside || !IsTemp(state.lender));
}

bool FrameState::EndsLoan(const OpInfo& op, const RegisterState& state) const {
  if (!IsLoan(state)) return false;
  const Kind kind = state.type->GetKind();
  const bool aggregate = kind == Kind::Struct || kind == Kind::Array;
  return op.Has(OpInfo::Calls | OpInfo::Changes) || (op.Has(OpInfo::Enters) && aggregate);
}

void FrameState::EndLoans(const OpInfo& op) {
  std::erase_if(temps_, [&](const Temp& t) {
    const bool address = t.state.hold == Hold::Address && op.Has(OpInfo::Calls | OpInfo::Changes);
    return address || EndsLoan(op, t.state);
  });
}

void FrameState::FindLoans(const Instr& at, std::vector<uint16_t>& loans) const {
  const OpInfo& op = InfoOf(at.op);
  const auto isOperand = [&](uint16_t reg) {
    return (op.a.IsRegister() && at.a == reg) || (op.b.IsRegister() && at.b == reg) ||
           (op.c.IsRegister() && at.c == reg);
  };
  const auto changes = [&](const OperandInfo& info, uint16_t reg, uint16_t lender) {
    return info.role >= Role::Update && info.role <= Role::Take && reg == lender;
  };
  for (const Temp& temp : temps_) {
    const uint16_t lender = temp.state.lender;
    if (temp.state.hold != Hold::Borrowed || isOperand(temp.reg)) continue;
    if (EndsLoan(op, temp.state) || changes(op.a, at.a, lender) || changes(op.b, at.b, lender) ||
        changes(op.c, at.c, lender))
      loans.push_back(temp.reg);
  }
}

void FrameState::Apply(const Instr& at) {
  const OpInfo& op = InfoOf(at.op);
  const RegisterState result = op.a.IsWritten() ? Result(op.a, at) : RegisterState();
  const auto use = [&](const OperandInfo& info, uint16_t reg) {
    if (info.role == Role::Take) Drop(reg);
    if (info.role >= Role::Update && info.role <= Role::Take) EndLoansFrom(reg);
    if (info.role == Role::Replace) SetWritten(reg);
  };
  use(op.a, at.a);
  use(op.b, at.b);
  use(op.c, at.c);
  EndLoans(op);
  depth_ -= Popped(at);
  switch (at.op) {
    case Op::Call:
      for (uint32_t i = 0; i < code_->procedures[at.b]->GetParameterCount(); ++i) Drop(at.a + i);
      break;
    case Op::Push:
    case Op::PushO:
    case Op::PushT:
    case Op::PushV:
      ++depth_;
      break;
    case Op::Param:
      SetWritten(at.a);
      break;
    default:
      break;
  }
  if (!op.a.IsWritten()) return;
  if (IsTemp(at.a)) EndLoansFrom(at.a);
  Set(at.a, result);
}

void FrameState::Fail(uint32_t keep) {
  std::erase_if(temps_, [&](const Temp& t) { return t.reg >= keep; });
  // A handler of the script's may have run.
  EndLoans(InfoOf(Op::ChkErr));
  depth_ = 0;
}

bool FrameState::Merge(const FrameState& other, std::string_view& error) {
  bool changed = false;
  for (size_t i = 0; i < written_.size(); ++i) {
    const uint64_t both = written_[i] & other.written_[i];
    changed = changed || both != written_[i];
    written_[i] = both;
  }
  if (depth_ != other.depth_) error = "leaves different numbers of values on the stack";
  if (temps_ == other.temps_) return changed;
  std::vector<Temp> kept;
  std::set_intersection(temps_.begin(), temps_.end(), other.temps_.begin(), other.temps_.end(),
                        std::back_inserter(kept), [](const Temp& x, const Temp& y) {
                          if (x.reg != y.reg) return x.reg < y.reg;
                          const auto key = [](const Temp& t) {
                            return std::pair(t.state.hold, t.state.type);
                          };
                          return key(x) < key(y);
                        });
  const auto owns = [](const std::vector<Temp>& temps) {
    return std::count_if(temps.begin(), temps.end(),
                         [](const Temp& t) { return t.state.hold == Hold::Owned; });
  };
  const auto owned = owns(kept);
  if (owned != owns(temps_) || owned != owns(other.temps_))
    error = "owns a value on one of two ways only";
  changed = changed || kept.size() != temps_.size();
  temps_ = std::move(kept);
  return changed;
}

}  // namespace tamber
