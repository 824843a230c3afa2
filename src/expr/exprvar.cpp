#include "expr/exprvar.h"

#include <algorithm>

#include "engine/tambops.h"
#include "machine/codebuilder.h"
#include "values/errcodes.h"

using tamber::CodeBuilder;
using tamber::Kind;
using tamber::Op;
using tamber::Operand;
using tamber::TypeDesc;

namespace {

uint16_t ResultAt(CodeBuilder& b, uint32_t mark) {
  b.Reset(mark);
  return b.NewTemp();
}

bool IsOneByte(Kind kind) { return kind == Kind::Bool || kind == Kind::Char; }
bool IsFourBytes(Kind kind) { return kind == Kind::Int || kind == Kind::Float; }

/// An instruction that reads or writes elements of a kind, by the sizes of these.
Op BySize(Kind element, Op one, Op four, Op eight) {
  return IsOneByte(element) ? one : IsFourBytes(element) ? four : eight;
}

/// The instruction that assigns a value of the kind to an element of any type; Nop for none.
Op AssignsElement(Kind kind) {
  switch (kind) {
    case Kind::Bool:
      return Op::ASetAB;
    case Kind::Char:
      return Op::ASetAC;
    case Kind::Int:
      return Op::ASetAI;
    case Kind::Float:
      return Op::ASetAF;
    case Kind::Double:
      return Op::ASetAD;
    case Kind::String:
      return Op::ASetAS;
    default:
      return Op::Nop;
  }
}

}  // namespace

namespace tamber {

Op ElementOp(Kind kind) { return BySize(kind, Op::AGet8, Op::AGet32, Op::AGet64); }

Operand Selected(CodeBuilder& b, uint16_t reg, const TypeRef& type) {
  if (type->GetKind() == Kind::EString) {
    const TypeRef& text = TypeDesc::Of(Kind::String);
    const uint16_t plain = b.NewTemp();
    b.Emit(Op::LdVar, plain, reg, b.TypeIndex(text));
    b.Free(b.InReg(Kind::EString, reg, type));
    return b.InReg(Kind::String, plain, text);
  }
  return b.InReg(type->GetKind(), reg, type);
}

}  // namespace tamber

ExpressionVariable::ExpressionVariable(tamber::VarUse variable)
    : ExpressionBase(EXPRESSION_VARIABLE), variable_(std::move(variable)) {
  SetType(variable_.type);
}

void ExpressionVariable::AddMember(Selector selector) {
  SetType(selector.to);
  selectors_.push_back(std::move(selector));
}

void ExpressionVariable::AddIndex(Selector selector, std::unique_ptr<ExpressionBase> index) {
  SetType(selector.to);
  selectors_.push_back(std::move(selector));
  AddChild(std::move(index));
}

bool ExpressionVariable::IsDynamic(const CodeBuilder& b) const {
  if (b.IsDynamic(variable_)) return true;
  // The last step alone may lead to a value of unknown type.
  return std::any_of(selectors_.begin(), selectors_.end(),
                     [](const Selector& s) { return s.from->GetKind() == Kind::Any; });
}

bool ExpressionVariable::IsOwnLocal(const CodeBuilder& b) const {
  return IsSimple() && variable_.slot >= 0 && !b.IsDynamic(variable_);
}

size_t ExpressionVariable::IndexesBefore(size_t selector) const {
  return static_cast<size_t>(
      std::count_if(selectors_.begin(), selectors_.begin() + static_cast<std::ptrdiff_t>(selector),
                    [](const Selector& s) { return s.isIndex; }));
}

std::vector<Operand> ExpressionVariable::LowerIndexes(CodeBuilder& b) const {
  std::vector<Operand> indexes;
  for (uint32_t i = 0; i < GetChildCount(); ++i) {
    Operand index = GetChild(i)->Lower(b);
    if (auto number = b.Convert(index, *TypeDesc::Of(Kind::Int))) index = *number;
    // A register of a variable could be changed by an index that calls something.
    indexes.push_back(b.ToReg(index));
  }
  return indexes;
}

Operand ExpressionVariable::ReadDynamic(CodeBuilder& b, Operand from, const Indexes& indexes,
                                        size_t first) const {
  size_t index = IndexesBefore(first);
  for (size_t i = first; i < selectors_.size(); ++i) {
    const Selector& step = selectors_[i];
    const tamber::SourceMark source(b, step.sourceOffset);
    b.Push(from);
    if (step.isIndex)
      b.Push(indexes[index++]);
    else
      b.Push(b.TextConstant(step.memberName.View()));
    uint16_t reg = b.NewTemp();
    auto code = step.isIndex ? TamberOperators::OP_ARRAYINDEX : TamberOperators::OP_STRUCTMEMBER;
    b.Emit(Op::Exec, reg, static_cast<uint32_t>(TamberOperators::GetOperatorIndex(code)));
    from = b.InReg(Kind::Any, reg, TypeDesc::Of(Kind::Any));
  }
  return from;
}

Operand ExpressionVariable::Read(CodeBuilder& b, const Indexes& indexes, size_t count) const {
  if (b.IsDynamic(variable_)) return ReadDynamic(b, b.LoadVariable(variable_), indexes, 0);
  uint32_t mark = b.Mark();
  size_t index = 0;
  size_t i = 0;
  Operand value;
  if (count > 0 && BeginsAtGlobalElement(b)) {
    const Selector& step = selectors_[i++];
    const tamber::SourceMark source(b, step.sourceOffset);
    const uint16_t reg = b.NewTemp();
    b.Emit(BySize(step.to->GetKind(), Op::GGet8, Op::GGet32, Op::GGet64), reg,
           b.GlobalIndex(variable_), indexes[index++].reg);
    value = Selected(b, reg, step.to);
  } else {
    value = b.Load(variable_);
  }
  for (; i < count; ++i) {
    const Selector& step = selectors_[i];
    if (value.kind == Kind::Any) return ReadDynamic(b, value, indexes, i);
    const tamber::SourceMark source(b, step.sourceOffset);
    Kind kind = step.to->GetKind();
    uint16_t reg = ResultAt(b, mark);
    if (!step.isIndex) {
      b.Emit(Op::SGet, reg, value.reg, static_cast<uint32_t>(step.member));
    } else if (kind == Kind::Any) {
      b.Emit(Op::AGetA, reg, value.reg, indexes[index++].reg);
      value = b.InReg(Kind::Any, reg, step.to);
      continue;
    } else {
      b.Emit(tamber::ElementOp(kind), reg, value.reg, indexes[index++].reg);
    }
    value = tamber::Selected(b, reg, step.to);
  }
  return value;
}

Operand ExpressionVariable::LowerNode(CodeBuilder& b) const {
  if (IsSimple()) return b.Load(variable_);
  uint32_t mark = b.Mark();
  Indexes indexes = LowerIndexes(b);
  Operand value = Read(b, indexes, selectors_.size());
  if (value.IsScalar() && value.reg > mark) {
    // Moved down over the indexes, which are not needed any more.
    if (b.RetargetLast(value.reg, static_cast<uint16_t>(mark))) {
      value.reg = static_cast<uint16_t>(mark);
      b.Reset(mark + 1);
    }
  }
  return value;
}

/// Whether the first step leads to an element of known type of a global array.
bool ExpressionVariable::BeginsAtGlobalElement(const CodeBuilder& b) const {
  return selectors_[0].isIndex && b.IsGlobal(variable_) && selectors_[0].to->GetKind() != Kind::Any;
}

uint16_t ExpressionVariable::LowerAddress(CodeBuilder& b, const Indexes& indexes,
                                          size_t count) const {
  const tamber::SourceMark whole(b, SourceOffset());
  size_t index = 0;
  size_t i = 0;
  uint16_t reg;
  if (count > 0 && BeginsAtGlobalElement(b)) {
    const tamber::SourceMark source(b, selectors_[i++].sourceOffset);
    reg = b.NewTemp();
    b.Emit(Op::LeaGE, reg, b.GlobalIndex(variable_), indexes[index++].reg);
  } else {
    reg = b.LoadAddress(variable_);
  }
  for (; i < count; ++i) {
    const Selector& step = selectors_[i];
    const tamber::SourceMark source(b, step.sourceOffset);
    if (step.isIndex)
      b.Emit(Op::LeaE, reg, reg, indexes[index++].reg);
    else
      b.Emit(Op::LeaM, reg, reg, static_cast<uint32_t>(step.member));
  }
  return reg;
}

Operand ExpressionVariable::LowerReference(CodeBuilder& b) const {
  const tamber::SourceMark source(b, SourceOffset());
  if (IsSimple()) return b.LoadVariable(variable_);
  return LowerReference(b, LowerIndexes(b));
}

Operand ExpressionVariable::LowerReference(CodeBuilder& b, const Indexes& indexes) const {
  const tamber::SourceMark whole(b, SourceOffset());
  if (b.IsDynamic(variable_)) return ReadDynamic(b, b.LoadVariable(variable_), indexes, 0);
  // The objects of all levels are asked for, from the outermost in: a copy of the whole that is
  // taken while one is held must find it. From the first step whose result has no static type on,
  // the run looks what there is.
  size_t i = 0;
  Operand variable;
  if (b.IsRegister(variable_)) {
    const uint16_t address = b.LoadAddress(variable_);
    const uint16_t reg = b.NewTemp();
    const tamber::SourceMark source(b, selectors_[i].sourceOffset);
    if (selectors_[i].isIndex)
      b.Emit(Op::BoxE, reg, address, indexes[0].reg);
    else
      b.Emit(Op::BoxM, reg, address, static_cast<uint32_t>(selectors_[i].member));
    variable = b.InReg(Kind::Any, reg, TypeDesc::Of(Kind::Any));
    ++i;
  } else {
    variable = b.LoadVariable(variable_);
  }
  for (; i < selectors_.size() && selectors_[i].from->GetKind() != Kind::Any; ++i) {
    const Selector& step = selectors_[i];
    const tamber::SourceMark source(b, step.sourceOffset);
    if (step.isIndex)
      b.Emit(Op::RefE, variable.reg, indexes[IndexesBefore(i)].reg);
    else
      b.Emit(Op::RefM, variable.reg, static_cast<uint32_t>(step.member), b.TypeIndex(step.from));
  }
  return ReadDynamic(b, variable, indexes, i);
}

void ExpressionVariable::LowerCheck(CodeBuilder& b, const Indexes& indexes) const {
  if (IsDynamic(b)) return;
  const tamber::SourceMark whole(b, SourceOffset());
  uint32_t mark = b.Mark();
  size_t last = selectors_.size() - 1;
  Operand container = Read(b, indexes, last);
  const tamber::SourceMark source(b, selectors_[last].sourceOffset);
  if (selectors_[last].isIndex) b.Emit(Op::ChkE, container.reg, indexes[IndexesBefore(last)].reg);
  b.Free(container);
  b.Reset(mark);
}

void ExpressionVariable::LowerStore(CodeBuilder& b, const Indexes& indexes,
                                    const Operand& value) const {
  const Selector& last = selectors_.back();
  Kind kind = last.to->GetKind();
  const Op assigns =
      kind == Kind::Any && last.isIndex && !IsDynamic(b) ? AssignsElement(value.kind) : Op::Nop;
  if (assigns != Op::Nop) {
    const Operand source = b.ToReg(value);
    const uint16_t target = LowerAddress(b, indexes, selectors_.size() - 1);
    const tamber::SourceMark at(b, last.sourceOffset);
    b.Emit(assigns, target, indexes.back().reg, source.reg);
    b.Free(source);
    return;
  }
  if (IsDynamic(b) || kind == Kind::Any || kind == Kind::EString) {
    Operand kept = b.ToReg(value);
    b.AssignVariable(LowerReference(b, indexes), kept);
    return;
  }
  std::optional<Operand> converted = b.Convert(value, *last.to);
  if (!converted) {
    b.Free(value);
    b.EmitFail(ERR_ASSIGNMISMATCH, variable_.name.View(), *last.to, value);
    return;
  }
  const size_t steps = selectors_.size() - 1;
  const Operand source = steps > 0 ? b.Independent(b.ToReg(*converted)) : b.ToReg(*converted);
  const bool owned = b.Owns(source);
  if (steps == 0 && source.IsScalar() && BeginsAtGlobalElement(b)) {
    const tamber::SourceMark at(b, last.sourceOffset);
    b.Emit(BySize(kind, Op::GSet8, Op::GSet32, Op::GSet64), b.GlobalIndex(variable_),
           indexes[0].reg, source.reg);
    return;
  }
  const bool inRegister =
      steps == 0 && last.isIndex && b.IsRegister(variable_) && source.IsScalar();
  uint16_t target =
      inRegister ? static_cast<uint16_t>(variable_.slot) : LowerAddress(b, indexes, steps);
  const tamber::SourceMark at(b, last.sourceOffset);
  if (!last.isIndex) {
    Op op = source.IsScalar() ? Op::SSetP : owned ? Op::SSetPT : Op::SSetPO;
    b.Emit(op, target, static_cast<uint32_t>(last.member), source.reg);
  } else {
    uint32_t index = indexes[IndexesBefore(steps)].reg;
    Op op;
    if (!source.IsScalar())
      op = owned ? Op::ASetPT : Op::ASetPO;
    else if (inRegister)
      op = BySize(kind, Op::ASet8, Op::ASet32, Op::ASet64);
    else
      op = BySize(kind, Op::ASetP8, Op::ASetP32, Op::ASetP64);
    b.Emit(op, target, index, source.reg);
  }
  b.Free(source);
}

uint16_t ExpressionVariable::LowerCellAddress(CodeBuilder& b, const Indexes& indexes) const {
  return LowerAddress(b, indexes, selectors_.size());
}

void ExpressionVariable::Dump(KelString& out) const {
  out += variable_.name.View();
  uint32_t index = 0;
  for (const Selector& step : selectors_) {
    if (step.isIndex) {
      out += '[';
      GetChild(index++)->Dump(out);
      out += ']';
    } else {
      out += '.';
      out += step.memberName.View();
    }
  }
}

namespace tamber {

bool IsPlainRead(const CodeBuilder& b, const ExpressionBase& expression) {
  if (expression.GetKind() != EXPRESSION_VARIABLE) return false;
  const auto& variable = static_cast<const ExpressionVariable&>(expression);
  return variable.IsSimple() && b.IsRegister(variable.Variable()) &&
         IsNumeric(expression.Type()->GetKind());
}

}  // namespace tamber
