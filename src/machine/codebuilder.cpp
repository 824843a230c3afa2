#include "machine/codebuilder.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "kel/kelascii.h"
#include "kel/number.h"
#include "machine/shape.h"
#include "values/cellops.h"
#include "values/errcodes.h"
#include "values/strbuf.h"

namespace tamber {
namespace {

constexpr uint32_t kMaxOperand = 0xFFFF;

// What a script has too many of for the operands of an instruction, by the operand's role.
constexpr std::string_view kLocals = "more than 65534 local variables and parameters";
constexpr std::string_view kValues = "more than 65534 values at once";
constexpr std::string_view kMembers = "more than 65536 members of a structure";
constexpr std::string_view kNames = "more than 65536 different names";

/// The instruction that reads an element of any type as a value of the kind; Nop for none.
Op ReadsAs(Kind kind) {
  switch (kind) {
    case Kind::Bool:
      return Op::AGetAB;
    case Kind::Char:
      return Op::AGetAC;
    case Kind::Int:
      return Op::AGetAI;
    case Kind::Float:
      return Op::AGetAF;
    case Kind::Double:
      return Op::AGetAD;
    case Kind::String:
      return Op::AGetAS;
    default:
      return Op::Nop;
  }
}

}  // namespace

CodeBuilder::CodeBuilder(Code& code, const LocalTable* locals, const LocalFacts* facts,
                         bool wideJumps)
    : code_(code),
      locals_(locals),
      facts_(facts),
      wideJumps_(wideJumps),
      mayHaveError_(code.procedure == nullptr),
      state_(code) {
  nextTemp_ = locals ? locals->Count() : 0;
  code_.registers = std::max(code_.registers, nextTemp_ + 1);
  if (nextTemp_ >= kMaxOperand) exceeded_ = kLocals;
  // Which locals have a value where is what the facts are about.
  state_.AssumeLocals();
}

uint32_t CodeBuilder::Emit(Op op, uint32_t a, uint32_t b, uint32_t c) {
  // Registers and tables are bounded where they grow.
  if (a > kMaxOperand || b > kMaxOperand || c > kMaxOperand) Exceed(kMembers);
  const Instr instr{op, static_cast<uint16_t>(a), static_cast<uint16_t>(b),
                    static_cast<uint16_t>(c)};
  return IsTooLarge() ? Pc() : Append(instr);
}

uint32_t CodeBuilder::EmitWide(Op op, uint32_t a, int32_t wide) {
  Instr instr{op, static_cast<uint16_t>(a), 0, 0};
  instr.SetWide(wide);
  if (a > kMaxOperand) Exceed(kMembers);
  return IsTooLarge() ? Pc() : Append(instr);
}

uint32_t CodeBuilder::Append(const Instr& instr) {
  const OpInfo& info = InfoOf(instr.op);
  // Behind a jump it would be too late.
  if (info.IsJump()) ReleaseGivenBack();
  MakeIndependent(instr);
  if (info.MayLeave()) RecordLive(instr);
  const uint32_t at = Pc();
  code_.sources.Add(at, source_);
  code_.instrs.push_back(instr);
  state_.Apply(instr);
  if (info.a.IsWritten()) {
    std::erase(fresh_, instr.a);
    std::erase(aliases_, instr.a);
  }
  if (info.LeavesError()) mayHaveError_ = true;
  if (!info.Has(OpInfo::Ends)) ReleaseGivenBack();
  return at;
}

void CodeBuilder::RecordLive(const Instr& instr) {
  owned_.clear();
  state_.FindOwned(instr, owned_);
  if (owned_.empty()) return;
  const bool same =
      !code_.live.empty() && code_.live.back().count == owned_.size() &&
      std::equal(owned_.begin(), owned_.end(), code_.liveTemps.begin() + code_.live.back().first);
  const auto first = same ? code_.live.back().first : static_cast<uint32_t>(code_.liveTemps.size());
  code_.live.push_back({Pc(), first, static_cast<uint32_t>(owned_.size())});
  if (!same) code_.liveTemps.insert(code_.liveTemps.end(), owned_.begin(), owned_.end());
}

void CodeBuilder::MakeIndependent(const Instr& instr) {
  loans_.clear();
  state_.FindLoans(instr, loans_);
  const bool pullsAway = InfoOf(instr.op).Has(OpInfo::Calls | OpInfo::Changes);
  if (loans_.empty() && (aliases_.empty() || !pullsAway)) return;
  const std::vector<uint16_t> loans = loans_;
  for (uint16_t reg : loans) {
    // What lies in a register that was given back, or handed out anew since, nobody reads any more.
    const bool fresh = std::find(fresh_.begin(), fresh_.end(), reg) != fresh_.end();
    if (reg >= nextTemp_ || fresh) continue;
    const auto kind = static_cast<uint16_t>(state_.Get(reg).type->GetKind());
    Append({Op::CopyO, reg, reg, kind});
  }
  if (!pullsAway) return;
  const std::vector<uint16_t> aliases = std::exchange(aliases_, {});
  for (uint16_t reg : aliases) {
    const bool operand = instr.a == reg || instr.b == reg;
    const RegisterState state = state_.Get(reg);
    const bool held = state.hold == Hold::Owned && state.type->GetKind() == Kind::Any;
    if (reg < nextTemp_ && !operand && held) Append({Op::OwnA, reg, 0, 0});
  }
}

void CodeBuilder::ReleaseGivenBack() {
  owned_.clear();
  state_.FindOwned({Op::Nop, 0, 0, 0}, owned_);
  if (owned_.empty() || owned_.back().reg < nextTemp_) return;
  const std::vector<OwnedRegister> owned = owned_;
  for (const OwnedRegister& temp : owned)
    if (temp.reg >= nextTemp_ && state_.Get(temp.reg).hold == Hold::Owned)
      Append({Op::RelO, temp.reg, static_cast<uint16_t>(temp.kind), 0});
}

void CodeBuilder::ClearError() {
  if (!mayHaveError_) return;
  Emit(Op::ClrErr);
  mayHaveError_ = false;
}

void CodeBuilder::CheckError() {
  if (!mayHaveError_) return;
  Emit(Op::ChkErr);
  mayHaveError_ = false;
}

void CodeBuilder::EndStatement() {
  mayHaveError_ = code_.procedure == nullptr;
  nextTemp_ = locals_ ? locals_->Count() : 0;
  aliases_.clear();
  fresh_.clear();
  ReleaseGivenBack();
}

bool CodeBuilder::MayDivideByZero(uint32_t pc) const {
  return std::any_of(code_.instrs.begin() + pc, code_.instrs.end(),
                     [](const Instr& i) { return InfoOf(i.op).Has(OpInfo::Zero); });
}

void CodeBuilder::SetJumpTarget(uint32_t at, uint32_t target) {
  int64_t offset = static_cast<int64_t>(target) - at;
  Instr& jump = code_.instrs[at];
  if (!InfoOf(jump.op).IsShortJump()) {
    jump.SetWide(static_cast<int32_t>(offset));
    return;
  }
  if (offset > std::numeric_limits<int16_t>::max() || offset < std::numeric_limits<int16_t>::min())
    jumpOverflow_ = true;
  jump.c = static_cast<uint16_t>(offset);
}

void CodeBuilder::Bind(Label& label) {
  label.pc_ = Pc();
  lastBound_ = Pc();
  for (uint32_t at : label.jumps_) SetJumpTarget(at, *label.pc_);
  label.jumps_.clear();
}

void CodeBuilder::EmitJump(Op op, uint32_t a, uint32_t b, Label& label) {
  uint32_t at = Emit(op, a, b);
  if (label.pc_)
    SetJumpTarget(at, *label.pc_);
  else
    label.jumps_.push_back(at);
}

void CodeBuilder::LoopTo(const Label& label) {
  uint32_t at = Emit(Op::Loop);
  if (at == Pc() - 1 && at > 0 && code_.instrs[at - 1].op == Op::AddIK)
    code_.instrs[at - 1].op = Op::AddIKL;
  SetJumpTarget(at, *label.pc_);
}

bool CodeBuilder::RetargetLast(uint16_t from, uint16_t to) {
  if (from == to) return true;
  if (Pc() == 0 || lastBound_ == Pc()) return false;
  Instr& last = code_.instrs.back();
  const Hold hold = state_.Get(from).hold;
  const bool onlyDefines = InfoOf(last.op).a.IsWritten() && last.op != Op::Call &&
                           (hold == Hold::Scalar || hold == Hold::Borrowed);
  if (last.a != from || !onlyDefines) return false;
  last.a = to;
  std::erase(fresh_, to);
  state_.Rename(from, to);
  return true;
}

uint16_t CodeBuilder::NewTemp() {
  if (nextTemp_ >= kMaxOperand) {
    Exceed(kValues);
    return 0;
  }
  auto reg = static_cast<uint16_t>(nextTemp_++);
  code_.registers = std::max(code_.registers, nextTemp_ + 1);
  fresh_.push_back(reg);
  return reg;
}

bool CodeBuilder::Owns(const Operand& operand) const {
  return operand.place == Operand::Place::Reg && IsTemp(operand.reg) &&
         state_.Get(operand.reg).hold == Hold::Owned;
}

void CodeBuilder::Free(const Operand& operand) {
  if (operand.place != Operand::Place::Reg || !IsTemp(operand.reg)) return;
  if (Owns(operand))
    Emit(Op::RelO, operand.reg, static_cast<uint32_t>(state_.Get(operand.reg).type->GetKind()));
  else
    state_.Drop(operand.reg);
}

Operand CodeBuilder::Immediate(Kind kind, int32_t value) {
  Operand operand;
  operand.place = Operand::Place::Imm;
  operand.kind = kind;
  operand.imm = value;
  operand.type = TypeDesc::Of(kind);
  return operand;
}

Operand CodeBuilder::Constant(Kind kind, Cell cell) {
  Operand operand;
  operand.place = Operand::Place::Const;
  operand.kind = kind;
  operand.type = TypeDesc::Of(kind);
  if (!IsManaged(kind)) {
    uint64_t bits = kind == Kind::Float ? uint64_t{static_cast<uint32_t>(cell.i)} : cell.bits;
    uint64_t key = bits * 31 + static_cast<uint64_t>(kind);
    auto [at, isNew] =
        constantIndex_.try_emplace(key, static_cast<uint32_t>(code_.constants.size()));
    if (!isNew && code_.constantKinds[at->second] == kind &&
        code_.constants[at->second].bits == cell.bits) {
      operand.index = at->second;
      return operand;
    }
  }
  operand.index = static_cast<uint32_t>(code_.constants.size());
  code_.constantKinds.push_back(kind);
  code_.constants.push_back(cell);
  return operand;
}

Operand CodeBuilder::TextConstant(std::string_view text) {
  const Operand operand = Constant(Kind::String, ZeroCell());
  if (!text.empty()) code_.constants[operand.index].s = StrBuf::New(text);
  return operand;
}

Operand CodeBuilder::InReg(Kind kind, uint16_t reg, const TypeRef& type) const {
  Operand operand;
  operand.place = Operand::Place::Reg;
  operand.kind = kind;
  operand.reg = reg;
  operand.type = type;
  return operand;
}

Operand CodeBuilder::EmptyValue(const TypeRef& type) {
  const Kind kind = type->GetKind();
  if (kind >= Kind::Bool && kind <= Kind::Int) return Immediate(kind, 0);
  const uint16_t reg = NewTemp();
  if (IsManaged(kind))
    Emit(Op::Empty, reg, TypeIndex(type));
  else
    Emit(Op::Zero, reg, static_cast<uint32_t>(kind));
  return InReg(kind, reg, type);
}

Operand CodeBuilder::ToReg(const Operand& operand) {
  if (operand.place == Operand::Place::Reg) return operand;
  Operand loaded = operand;
  loaded.place = Operand::Place::Reg;
  loaded.reg = NewTemp();
  if (operand.place == Operand::Place::Imm)
    EmitWide(Op::LoadI, loaded.reg, operand.imm);
  else
    EmitWide(Op::LoadK, loaded.reg, static_cast<int32_t>(operand.index));
  return loaded;
}

void CodeBuilder::MoveInto(uint16_t reg, const Operand& operand) {
  const auto kind = static_cast<uint32_t>(operand.kind);
  if (operand.place == Operand::Place::Imm) {
    EmitWide(Op::LoadI, reg, operand.imm);
  } else if (operand.IsScalar()) {
    if (operand.place == Operand::Place::Const)
      EmitWide(Op::LoadK, reg, static_cast<int32_t>(operand.index));
    else if (operand.reg != reg && !(IsTemp(operand.reg) && RetargetLast(operand.reg, reg)))
      Emit(Op::Mov, reg, operand.reg);
  } else if (operand.place == Operand::Place::Const) {
    EmitWide(Op::LoadK, reg, static_cast<int32_t>(operand.index));
    Emit(Op::CopyO, reg, reg, kind);
  } else if (!Owns(operand)) {
    Emit(Op::CopyO, reg, operand.reg, kind);
  } else if (operand.reg != reg) {
    const bool alias = std::erase(aliases_, operand.reg) > 0;
    Emit(Op::MovO, reg, operand.reg);
    if (alias) aliases_.push_back(reg);
  }
}

void CodeBuilder::PassIn(uint16_t reg, const Operand& operand, bool lent) {
  const bool others = !operand.IsScalar() && !Owns(operand);
  if (!lent || !others || operand.reg == reg) {
    MoveInto(reg, operand);
  } else if (operand.place == Operand::Place::Const) {
    EmitWide(Op::LoadK, reg, static_cast<int32_t>(operand.index));
  } else if (!IsTemp(operand.reg)) {
    Emit(Op::LdL, reg, operand.reg);
  } else if (!RetargetLast(operand.reg, reg)) {
    MoveInto(reg, operand);
  }
}

Operand CodeBuilder::Independent(const Operand& operand) {
  const bool aggregate = operand.kind == Kind::Struct || operand.kind == Kind::Array;
  if (!aggregate || Owns(operand)) return operand;
  Operand own = operand;
  own.reg = NewTemp();
  MoveInto(own.reg, operand);
  Free(operand);
  return own;
}

Operand CodeBuilder::Unary(Op op, Kind kind, const Operand& operand) {
  Operand source = ToReg(operand);
  uint16_t reg = NewTemp();
  Emit(op, reg, source.reg);
  return InReg(kind, reg, TypeDesc::Of(kind));
}

Operand CodeBuilder::Promote(const Operand& operand, Kind kind) {
  if (operand.kind == kind) return operand;
  bool fromInt = operand.kind <= Kind::Int;
  if (kind <= Kind::Int) {
    Operand same = operand;  // booleans and characters already are integers in their registers
    same.kind = kind;
    same.type = TypeDesc::Of(kind);
    return same;
  }
  if (operand.place == Operand::Place::Imm) {
    return Constant(kind, kind == Kind::Float ? ToCell(static_cast<float>(operand.imm))
                                              : ToCell(static_cast<double>(operand.imm)));
  }
  if (kind == Kind::Float) return Unary(fromInt ? Op::I2F : Op::D2F, kind, operand);
  return Unary(fromInt ? Op::I2D : Op::F2D, kind, operand);
}

Operand CodeBuilder::ToCondition(const Operand& operand) {
  switch (operand.kind) {
    case Kind::Bool:
    case Kind::Char:
    case Kind::Int:
      return operand;
    case Kind::Float:
      return Unary(Op::F2I, Kind::Int, operand);
    case Kind::Double:
      return Unary(Op::D2I, Kind::Int, operand);
    case Kind::Handle:
      return Unary(Op::H2B, Kind::Bool, operand);
    case Kind::Any: {
      const Operand number = Unary(Op::AnyInt, Kind::Int, operand);
      Free(operand);
      return number;
    }
    default:
      Free(operand);
      return Immediate(Kind::Bool, 0);
  }
}

Operand CodeBuilder::ToTruth(const Operand& operand) {
  switch (operand.kind) {
    case Kind::Bool:
      return operand;
    case Kind::Char:
    case Kind::Int:
      if (operand.place == Operand::Place::Imm) return Immediate(Kind::Bool, operand.imm != 0);
      return Unary(Op::ToBool, Kind::Bool, operand);
    case Kind::Float:
      return Unary(Op::F2B, Kind::Bool, operand);
    case Kind::Double:
      return Unary(Op::D2B, Kind::Bool, operand);
    case Kind::Any: {
      const Operand truth = Unary(Op::AnyBool, Kind::Bool, operand);
      Free(operand);
      return truth;
    }
    default:
      return ToCondition(operand);
  }
}

void CodeBuilder::Push(const Operand& operand) {
  if (operand.place == Operand::Place::None) return;
  Operand source = ToReg(operand);
  auto kind = static_cast<uint32_t>(source.kind);
  if (source.kind == Kind::Any) {
    Emit(Op::PushV, source.reg);
  } else if (source.IsScalar() && source.kind != Kind::Handle) {
    Emit(Op::Push, source.reg, kind);
  } else {
    Emit(Owns(source) ? Op::PushT : Op::PushO, source.reg, kind, TypeIndex(source.type));
    Free(source);
  }
}

Operand CodeBuilder::ToVariable(const Operand& operand) {
  if (operand.kind == Kind::Any) return operand;
  Push(operand);
  const uint16_t reg = NewTemp();
  Emit(Op::PopTo, reg);
  return InReg(Kind::Any, reg, TypeDesc::Of(Kind::Any));
}

/// Lets the last instruction, if it read an element of any type into the register, convert it.
bool CodeBuilder::ConvertLast(uint16_t reg, Kind kind) {
  if (Pc() == 0 || lastBound_ == Pc() || IsTooLarge()) return false;
  Instr& last = code_.instrs.back();
  const Op op = ReadsAs(kind);
  if (last.op != Op::AGetA || last.a != reg || op == Op::Nop) return false;
  last.op = op;
  state_.Drop(reg);
  state_.Apply(last);
  return true;
}

Operand CodeBuilder::ViaVariable(const Operand& operand, const TypeDesc& to) {
  Operand any = operand;
  // Registers hold an enciphered string as its text.
  TypeRef target = to.GetKind() == Kind::EString ? TypeDesc::Of(Kind::String) : TypeRef(&to);
  if (operand.kind == Kind::Any && ConvertLast(operand.reg, target->GetKind()))
    return InReg(target->GetKind(), operand.reg, target);
  if (operand.kind != Kind::Any) any = ToVariable(operand);
  uint16_t result = NewTemp();
  Emit(Op::AnyTo, result, any.reg, TypeIndex(target));
  Free(any);
  return InReg(target->GetKind(), result, target);
}

std::optional<Operand> CodeBuilder::Convert(const Operand& operand, const TypeDesc& to) {
  Kind from = operand.kind;
  Kind kind = to.GetKind();
  if (from == Kind::Any) return ViaVariable(operand, to);
  if (operand.place == Operand::Place::None || !to.Accepts(*operand.type)) return std::nullopt;
  if (kind == Kind::Array || kind == Kind::Struct) {
    bool sameShape = HasLayoutOf(*operand.type, to);
    return sameShape ? operand : ViaVariable(operand, to);
  }
  if (from == kind && kind != Kind::EString) return operand;
  switch (kind) {
    case Kind::Bool:
      if (operand.place == Operand::Place::Imm) return Immediate(Kind::Bool, operand.imm != 0);
      return Unary(Op::ToBool, Kind::Bool, operand);
    case Kind::Char:
      if (from == Kind::Bool) return Promote(operand, Kind::Char);
      if (from == Kind::String) {
        Operand source = ToReg(operand);
        const Operand first = Unary(Op::S2C, Kind::Char, source);
        Free(source);
        return first;
      }
      return Unary(Op::ToChar, Kind::Char, operand);
    case Kind::Int:
      if (from <= Kind::Int) return Promote(operand, Kind::Int);
      if (from == Kind::Handle) return Unary(Op::H2I, Kind::Int, operand);
      return Unary(from == Kind::Float ? Op::F2I : Op::D2I, Kind::Int, operand);
    case Kind::Float:
    case Kind::Double:
      return Promote(operand, kind);
    case Kind::Handle:
      return Unary(Op::I2H, Kind::Handle, operand);
    case Kind::String:
    case Kind::EString: {
      if (from == Kind::String || from == Kind::EString) return operand;
      Operand source = ToReg(operand);
      uint16_t reg = NewTemp();
      if (from == Kind::Array)
        Emit(Op::Chars2S, reg, source.reg);
      else
        Emit(Op::Text, reg, source.reg, static_cast<uint32_t>(from));
      Free(source);
      return InReg(Kind::String, reg, TypeDesc::Of(Kind::String));
    }
    default:
      return std::nullopt;
  }
}

bool CodeBuilder::IsObject(int32_t slot) const {
  return facts_ != nullptr && facts_->object[static_cast<size_t>(slot)];
}

bool CodeBuilder::IsRegister(const VarUse& use) const {
  return use.slot >= 0 && !IsObject(use.slot);
}

bool CodeBuilder::IsDynamic(const VarUse& use) const {
  if (use.slot < -1) return true;
  if (facts_ == nullptr || locals_ == nullptr) return false;
  if (use.slot >= 0) return facts_->absent[static_cast<size_t>(use.slot)];
  return facts_->IsMaybeLocal(use, *locals_);
}

bool CodeBuilder::IsStoredWhole(const VarUse& use) const {
  // A variable of any array type may stand behind a name of the generic one.
  const bool generic = use.type->IsArray() && !use.type->Element();
  return IsDynamic(use) || use.type->GetKind() == Kind::EString || (generic && !IsRegister(use));
}

Operand CodeBuilder::LoadVariable(const VarUse& use, bool stored) {
  uint16_t reg = NewTemp();
  if (use.slot >= 0)
    Emit(Op::VarV, reg, static_cast<uint32_t>(use.slot), stored);
  else if (IsDynamic(use))
    Emit(Op::VarN, reg, NameIndex(use.name), stored);
  else
    Emit(Op::VarG, reg, GlobalIndex(use), stored);
  return InReg(Kind::Any, reg, TypeDesc::Of(Kind::Any));
}

Operand CodeBuilder::Load(const VarUse& use) {
  Kind kind = use.type->GetKind();
  if (IsRegister(use)) {
    auto reg = static_cast<uint16_t>(use.slot);
    if (localsChange_) {
      reg = NewTemp();
      Emit(Op::LdL, reg, static_cast<uint32_t>(use.slot));
    }
    return InReg(kind, reg, use.type);
  }
  const bool typeIsKnown = use.slot < -1 && kind != Kind::Any;
  if (IsDynamic(use) && !typeIsKnown) {
    const Operand variable = LoadVariable(use);
    aliases_.push_back(variable.reg);
    return variable;
  }
  if (kind == Kind::EString || IsDynamic(use)) {
    const Operand variable = LoadVariable(use);
    const TypeRef type = kind == Kind::EString ? TypeDesc::Of(Kind::String) : use.type;
    uint16_t reg = NewTemp();
    Emit(Op::LdVar, reg, variable.reg, TypeIndex(type));
    Free(variable);
    return InReg(type->GetKind(), reg, type);
  }
  uint16_t reg = NewTemp();
  if (use.slot >= 0)
    Emit(Op::LdV, reg, static_cast<uint32_t>(use.slot), static_cast<uint32_t>(kind));
  else
    Emit(Op::LdG, reg, GlobalIndex(use));
  return InReg(kind, reg, use.type);
}

uint16_t CodeBuilder::LoadAddress(const VarUse& use) {
  uint16_t reg = NewTemp();
  if (IsRegister(use))
    Emit(Op::LeaL, reg, static_cast<uint32_t>(use.slot));
  else if (use.slot >= 0)
    Emit(Op::LeaV, reg, static_cast<uint32_t>(use.slot));
  else
    Emit(Op::LeaG, reg, GlobalIndex(use));
  return reg;
}

void CodeBuilder::AssignVariable(const Operand& target, const Operand& value) {
  Operand source = ToReg(value);
  Emit(Op::AssignV, target.reg, source.reg, TypeIndex(source.type));
  Free(source);
  Free(target);
}

void CodeBuilder::EmitFail(int32_t code, std::string_view text, const TypeDesc& target,
                           const Operand& value) {
  Operand number = Constant(Kind::Int, IntCell(code));
  EmitWide(Op::Fail, Checked(code_.texts.size()), static_cast<int32_t>(number.index));
  code_.texts.emplace_back(text);
  code_.failNotes.push_back(
      MismatchText(target, value.type ? *value.type : *TypeDesc::Of(Kind::None)));
}

bool CodeBuilder::Store(const VarUse& use, const Operand& value) {
  if (IsStoredWhole(use) && value.place != Operand::Place::None) {
    AssignVariable(LoadVariable(use, true), value);
    return true;
  }
  std::optional<Operand> converted = Convert(value, *use.type);
  if (!converted) {
    Free(value);
    EmitFail(ERR_ASSIGNMISMATCH, use.name.View(), *use.type, value);
    return false;
  }
  const auto kind = static_cast<uint32_t>(converted->kind);
  if (IsRegister(use) && converted->IsScalar()) {
    MoveInto(static_cast<uint16_t>(use.slot), *converted);
    return true;
  }
  const Operand source = ToReg(*converted);
  const bool owned = Owns(source);
  if (IsRegister(use)) {
    Emit(owned ? Op::TakeO : Op::SetO, static_cast<uint32_t>(use.slot), source.reg, kind);
  } else {
    const bool local = use.slot >= 0;
    const Op op = source.IsScalar() ? (local ? Op::StV : Op::StG)
                  : owned           ? (local ? Op::StVT : Op::StGT)
                                    : (local ? Op::StVO : Op::StGO);
    Emit(op, source.reg, local ? static_cast<uint32_t>(use.slot) : GlobalIndex(use), kind);
  }
  Free(source);
  return true;
}

void CodeBuilder::Exceed(std::string_view limit) {
  if (!IsTooLarge()) exceeded_ = limit;
}

uint32_t CodeBuilder::Checked(size_t index) {
  if (index > kMaxOperand) Exceed(kNames);
  return static_cast<uint32_t>(std::min<size_t>(index, kMaxOperand));
}

uint32_t CodeBuilder::GlobalIndex(const VarUse& use) {
  auto [at, isNew] =
      globalIndex_.try_emplace(kel::Lowered(use.name.View()), Checked(code_.globals.size()));
  if (isNew) {
    code_.globals.push_back({use.name, use.type});
  }
  return at->second;
}

template <class Entry, class Same>
uint32_t CodeBuilder::IndexIn(std::vector<Entry>& table, const Entry& entry, Same same) {
  const auto found = std::find_if(table.begin(), table.end(),
                                  [&](const Entry& known) { return same(known, entry); });
  if (found != table.end()) return static_cast<uint32_t>(found - table.begin());
  table.push_back(entry);
  return Checked(table.size() - 1);
}

uint32_t CodeBuilder::TypeIndex(const TypeRef& type) {
  return IndexIn(code_.types, type,
                 [](const TypeRef& a, const TypeRef& b) { return a.Get() == b.Get(); });
}

uint32_t CodeBuilder::NameIndex(const Name& name) {
  return IndexIn(code_.names, name, [](const Name& a, const Name& b) { return a.Equals(b); });
}

uint32_t CodeBuilder::SiteIndex(const CallSite& site) {
  return IndexIn(code_.sites, site, [](const CallSite& a, const CallSite& b) { return a == b; });
}

uint32_t CodeBuilder::AppendIndex(const TypeRef& array, const TypeRef& value) {
  return IndexIn(code_.appends, AppendSite{array, value},
                 [](const AppendSite& a, const AppendSite& b) {
                   return a.array.Get() == b.array.Get() && a.value.Get() == b.value.Get();
                 });
}

uint32_t CodeBuilder::ProcedureIndex(Callable* procedure) {
  auto [at, isNew] = procedureIndex_.try_emplace(procedure, Checked(code_.procedures.size()));
  if (isNew) code_.procedures.push_back(procedure);
  return at->second;
}

}  // namespace tamber
