#include "machine/codebuilder.h"

#include <algorithm>
#include <limits>

#include "kel/kelascii.h"
#include "kel/number.h"
#include "machine/shape.h"
#include "values/cellops.h"
#include "values/strbuf.h"

namespace tamber {
namespace {

constexpr uint32_t kMaxOperand = 0xFFFF;

/// Instructions that can neither fail nor call: what temporaries own does not matter to them.
bool IsPlain(Op op) { return op <= Op::LoadK || (op >= Op::RelO && op <= Op::SubI); }

/// Instructions whose only effect on registers is a new scalar, or a borrowed value, in R[a].
bool OnlyDefines(Op op) {
  return (op >= Op::Mov && op <= Op::LoadK) || (op >= Op::AddI && op <= Op::NeD) ||
         (op >= Op::SCmp && op <= Op::S2B) || op == Op::LdG || op == Op::LdV ||
         (op >= Op::AGet8 && op <= Op::AGet64) || op == Op::SGet || op == Op::ASize ||
         op == Op::CallN || op == Op::AnyInt;
}

}  // namespace

CodeBuilder::CodeBuilder(Code& code, const LocalTable* locals, const LocalFacts* facts,
                         bool wideJumps)
    : code_(code), locals_(locals), facts_(facts), wideJumps_(wideJumps) {
  nextTemp_ = locals ? locals->Count() : 0;
  code_.registers = std::max(code_.registers, nextTemp_ + 1);
  if (nextTemp_ >= kMaxOperand) tooLarge_ = true;
}

uint32_t CodeBuilder::Emit(Op op, uint32_t a, uint32_t b, uint32_t c) {
  if (a > kMaxOperand || b > kMaxOperand || c > kMaxOperand) tooLarge_ = true;
  uint32_t at = Pc();
  if (code_.sources.empty() || code_.sources.back().offset != source_)
    code_.sources.push_back({at, source_});
  code_.instrs.push_back(
      {op, static_cast<uint16_t>(a), static_cast<uint16_t>(b), static_cast<uint16_t>(c)});
  if (!owned_.empty() && !IsPlain(op)) {
    code_.live.push_back(
        {at, static_cast<uint32_t>(code_.liveTemps.size()), static_cast<uint32_t>(owned_.size())});
    code_.liveTemps.insert(code_.liveTemps.end(), owned_.begin(), owned_.end());
  }
  return at;
}

uint32_t CodeBuilder::EmitWide(Op op, uint32_t a, int32_t wide) {
  uint32_t at = Emit(op, a);
  code_.instrs[at].SetWide(wide);
  return at;
}

bool CodeBuilder::IsShortJump(Op op) { return op >= Op::JLtI && op <= Op::JNleD; }

void CodeBuilder::SetJumpTarget(uint32_t at, uint32_t target) {
  int64_t offset = static_cast<int64_t>(target) - at;
  Instr& jump = code_.instrs[at];
  if (!IsShortJump(jump.op)) {
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
  SetJumpTarget(at, *label.pc_);
}

bool CodeBuilder::RetargetLast(uint16_t from, uint16_t to) {
  if (from == to) return true;
  if (Pc() == 0 || lastBound_ == Pc()) return false;
  Instr& last = code_.instrs.back();
  if (last.a != from || !OnlyDefines(last.op)) return false;
  last.a = to;
  return true;
}

uint16_t CodeBuilder::NewTemp() {
  if (nextTemp_ >= kMaxOperand) {
    tooLarge_ = true;
    return 0;
  }
  auto reg = static_cast<uint16_t>(nextTemp_++);
  code_.registers = std::max(code_.registers, nextTemp_ + 1);
  return reg;
}

void CodeBuilder::Disown(uint16_t reg) {
  for (size_t i = owned_.size(); i-- > 0;) {
    if (owned_[i].reg == reg) {
      owned_.erase(owned_.begin() + static_cast<std::ptrdiff_t>(i));
      return;
    }
  }
}

void CodeBuilder::Free(const Operand& operand) {
  if (!operand.owned || operand.place != Operand::Place::Reg) return;
  Disown(operand.reg);
  Emit(Op::RelO, operand.reg, static_cast<uint32_t>(operand.kind));
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
  Cell cell = ZeroCell();
  if (!text.empty()) cell.s = StrBuf::New(text);
  return Constant(Kind::String, cell);
}

Operand CodeBuilder::InReg(Kind kind, uint16_t reg, const TypeRef& type, bool owned) const {
  Operand operand;
  operand.place = Operand::Place::Reg;
  operand.kind = kind;
  operand.reg = reg;
  operand.type = type;
  operand.owned = owned;
  return operand;
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
  if (operand.place == Operand::Place::Imm) {
    EmitWide(Op::LoadI, reg, operand.imm);
  } else if (operand.IsScalar()) {
    if (operand.place == Operand::Place::Const)
      EmitWide(Op::LoadK, reg, static_cast<int32_t>(operand.index));
    else if (operand.reg != reg && !(IsTemp(operand.reg) && RetargetLast(operand.reg, reg)))
      Emit(Op::Mov, reg, operand.reg);
  } else if (operand.owned) {
    if (operand.reg == reg) return;
    Disown(operand.reg);
    Emit(Op::Mov, reg, operand.reg);
    Own(reg, operand.kind);
  } else {
    Operand source = operand;
    if (operand.place == Operand::Place::Const) {
      EmitWide(Op::LoadK, reg, static_cast<int32_t>(operand.index));
      source.reg = reg;
    }
    Emit(Op::CopyO, reg, source.reg, static_cast<uint32_t>(operand.kind));
    Own(reg, operand.kind);
  }
}

Operand CodeBuilder::Stabilise(const Operand& operand) {
  // A value of unknown type may be the very variable that it was read from.
  bool isVariable = operand.kind == Kind::Any && operand.owned;
  if (!isVariable && (!operand.unstable || operand.owned || operand.IsScalar())) return operand;
  Operand copy = operand;
  copy.reg = NewTemp();
  copy.owned = true;
  copy.unstable = false;
  Emit(Op::CopyO, copy.reg, operand.reg, static_cast<uint32_t>(operand.kind));
  Own(copy.reg, copy.kind);
  Free(operand);
  return copy;
}

Operand CodeBuilder::Independent(const Operand& operand) {
  Operand value = operand;
  value.unstable = !operand.owned;
  return Stabilise(value);
}

Operand CodeBuilder::Unary(Op op, Kind kind, const Operand& operand) {
  Operand source = ToReg(operand);
  uint16_t reg = NewTemp();
  Emit(op, reg, source.reg);
  return InReg(kind, reg, TypeDesc::Of(kind), false);
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
    Cell cell = ZeroCell();
    if (kind == Kind::Float)
      cell.f = static_cast<float>(operand.imm);
    else
      cell.d = operand.imm;
    return Constant(kind, cell);
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
      Operand source = ToReg(operand);
      uint16_t reg = NewTemp();
      Emit(Op::AnyInt, reg, source.reg);
      Free(source);
      return InReg(Kind::Int, reg, TypeDesc::Of(Kind::Int), false);
    }
    default:
      Free(operand);
      return Immediate(Kind::Bool, 0);
  }
}

void CodeBuilder::Push(const Operand& operand) {
  if (operand.place == Operand::Place::None) return;
  Operand source = ToReg(operand);
  auto kind = static_cast<uint32_t>(source.kind);
  if (source.kind == Kind::Any) {
    Emit(Op::PushV, source.reg);
    Disown(source.reg);
  } else if (source.IsScalar() && source.kind != Kind::Handle) {
    Emit(Op::Push, source.reg, kind);
  } else if (source.owned) {
    Emit(Op::PushT, source.reg, kind, TypeIndex(source.type));
    Disown(source.reg);
  } else {
    Emit(Op::PushO, source.reg, kind, TypeIndex(source.type));
  }
}

Operand CodeBuilder::ViaVariable(const Operand& operand, const TypeDesc& to) {
  Operand any = operand;
  // Registers hold an enciphered string as its text.
  TypeRef target = to.GetKind() == Kind::EString ? TypeDesc::Of(Kind::String) : TypeRef(&to);
  Kind kind = target->GetKind();
  uint16_t reg = NewTemp();
  if (operand.kind != Kind::Any) {
    Push(operand);
    Emit(Op::PopTo, reg, static_cast<uint32_t>(Kind::Any));
    any = InReg(Kind::Any, reg, TypeDesc::Of(Kind::Any), true);
    Own(reg, Kind::Any);
  }
  uint16_t result = NewTemp();
  Emit(Op::AnyTo, result, any.reg, TypeIndex(target));
  Free(any);
  Operand converted = InReg(kind, result, target, IsManaged(kind));
  if (converted.owned) Own(result, converted.kind);
  return converted;
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
        uint16_t reg = NewTemp();
        Emit(Op::S2C, reg, source.reg);
        Free(source);
        return InReg(Kind::Char, reg, TypeDesc::Of(Kind::Char), false);
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
      Own(reg, Kind::String);
      return InReg(Kind::String, reg, TypeDesc::Of(Kind::String), true);
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
  return facts_ != nullptr && locals_ != nullptr && facts_->IsMaybeLocal(use, *locals_);
}

Operand CodeBuilder::LoadVariable(const VarUse& use) {
  uint16_t reg = NewTemp();
  if (IsDynamic(use))
    Emit(Op::VarN, reg, NameIndex(use.name));
  else if (use.slot >= 0)
    Emit(Op::VarV, reg, static_cast<uint32_t>(use.slot));
  else
    Emit(Op::VarG, reg, GlobalIndex(use));
  Own(reg, Kind::Any);
  return InReg(Kind::Any, reg, TypeDesc::Of(Kind::Any), true);
}

Operand CodeBuilder::Load(const VarUse& use) {
  Kind kind = use.type->GetKind();
  if (IsRegister(use)) {
    return InReg(kind, static_cast<uint16_t>(use.slot), use.type, false);
  }
  if (IsDynamic(use) && use.slot == -1) return LoadVariable(use);
  if (kind == Kind::EString || IsDynamic(use)) {
    Operand variable = LoadVariable(use);
    TypeRef type = kind == Kind::EString ? TypeDesc::Of(Kind::String) : use.type;
    uint16_t reg = NewTemp();
    Emit(Op::LdVar, reg, variable.reg, TypeIndex(type));
    Free(variable);
    Operand value = InReg(type->GetKind(), reg, type, IsManaged(type->GetKind()));
    if (value.owned) Own(reg, value.kind);
    return value;
  }
  uint16_t reg = NewTemp();
  if (use.slot >= 0)
    Emit(Op::LdV, reg, static_cast<uint32_t>(use.slot), static_cast<uint32_t>(kind));
  else
    Emit(Op::LdG, reg, GlobalIndex(use));
  Operand value = InReg(kind, reg, use.type, false);
  value.unstable = IsManaged(kind);
  return value;
}

uint16_t CodeBuilder::LoadAddress(const VarUse& use) {
  uint16_t reg = NewTemp();
  if (IsDynamic(use))
    Emit(Op::LeaN, reg, NameIndex(use.name), TypeIndex(use.type));
  else if (IsRegister(use))
    Emit(Op::LeaL, reg, static_cast<uint32_t>(use.slot));
  else if (use.slot >= 0)
    Emit(Op::LeaV, reg, static_cast<uint32_t>(use.slot),
         static_cast<uint32_t>(use.type->GetKind()));
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

void CodeBuilder::EmitFail(int32_t code, std::string_view text) {
  Operand number = Constant(Kind::Int, IntCell(code));
  EmitWide(Op::Fail, Checked(code_.texts.size()), static_cast<int32_t>(number.index));
  code_.texts.emplace_back(text);
}

bool CodeBuilder::Store(const VarUse& use, const Operand& value) {
  bool throughVariable = IsDynamic(use) || use.type->GetKind() == Kind::EString;
  if (throughVariable && value.place != Operand::Place::None) {
    AssignVariable(LoadVariable(use), value);
    return true;
  }
  std::optional<Operand> converted = Convert(value, *use.type);
  if (!converted) {
    Free(value);
    EmitFail(20111, use.name.View());
    return false;
  }
  Kind kind = converted->kind;
  if (IsRegister(use)) {
    auto slot = static_cast<uint16_t>(use.slot);
    if (converted->IsScalar()) {
      MoveInto(slot, *converted);
      return true;
    }
    Operand source = ToReg(*converted);
    Emit(source.owned ? Op::TakeO : Op::SetO, slot, source.reg, static_cast<uint32_t>(kind));
    if (source.owned) Disown(source.reg);
    return true;
  }
  Operand source = ToReg(*converted);
  bool local = use.slot >= 0;
  uint32_t where = local ? static_cast<uint32_t>(use.slot) : GlobalIndex(use);
  if (source.IsScalar()) {
    Emit(local ? Op::StV : Op::StG, source.reg, where, static_cast<uint32_t>(kind));
  } else if (source.owned) {
    Emit(local ? Op::StVT : Op::StGT, source.reg, where, static_cast<uint32_t>(kind));
    Disown(source.reg);
  } else {
    Emit(local ? Op::StVO : Op::StGO, source.reg, where, static_cast<uint32_t>(kind));
  }
  return true;
}

uint32_t CodeBuilder::Checked(size_t index) {
  if (index > kMaxOperand) tooLarge_ = true;
  return static_cast<uint32_t>(std::min<size_t>(index, kMaxOperand));
}

uint32_t CodeBuilder::GlobalIndex(const VarUse& use) {
  auto [at, isNew] =
      globalIndex_.try_emplace(kel::Lowered(use.name.View()), Checked(code_.globals.size()));
  if (isNew) {
    GlobalSlot slot;
    slot.name = use.name;
    slot.type = use.type;
    code_.globals.push_back(std::move(slot));
  }
  return at->second;
}

uint32_t CodeBuilder::TypeIndex(const TypeRef& type) {
  auto found = std::find_if(code_.types.begin(), code_.types.end(),
                            [&](const TypeRef& known) { return known.Get() == type.Get(); });
  if (found == code_.types.end()) {
    code_.types.push_back(type);
    return Checked(code_.types.size() - 1);
  }
  return static_cast<uint32_t>(found - code_.types.begin());
}

uint32_t CodeBuilder::NameIndex(const Name& name) {
  auto found = std::find_if(code_.names.begin(), code_.names.end(),
                            [&](const Name& known) { return known.Equals(name); });
  if (found == code_.names.end()) {
    code_.names.push_back(name);
    return Checked(code_.names.size() - 1);
  }
  return static_cast<uint32_t>(found - code_.names.begin());
}

uint32_t CodeBuilder::SiteIndex(CallSite site) {
  code_.sites.push_back(std::move(site));
  return Checked(code_.sites.size() - 1);
}

uint32_t CodeBuilder::AppendIndex(const TypeRef& array, const TypeRef& value) {
  code_.appends.push_back({array, value});
  return Checked(code_.appends.size() - 1);
}

uint32_t CodeBuilder::ProcedureIndex(Callable* procedure) {
  auto [at, isNew] = procedureIndex_.try_emplace(procedure, Checked(code_.procedures.size()));
  if (isNew) code_.procedures.push_back(procedure);
  return at->second;
}

}  // namespace tamber
