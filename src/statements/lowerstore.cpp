// Statements that store a value.

#include <algorithm>

#include "expr/exprcnst.h"
#include "expr/exprop.h"
#include "statements/lowering.h"
#include "statements/procedure.h"
#include "statements/statarray.h"
#include "statements/statpushvar.h"

namespace tamber {
namespace {

bool IsSame(const VarUse& a, const VarUse& b) {
  return a.slot == b.slot && (a.slot >= 0 || a.name.Equals(b.name));
}

bool IsSameVariable(const ExpressionBase& node, const VarUse& target) {
  if (node.GetKind() != EXPRESSION_VARIABLE) return false;
  const auto& variable = static_cast<const ExpressionVariable&>(node);
  return variable.IsSimple() && IsSame(variable.Variable(), target);
}

bool IsSameSelection(const ExpressionVariable& a, const ExpressionVariable& b) {
  return IsSame(a.Variable(), b.Variable()) &&
         std::equal(a.Selectors().begin(), a.Selectors().end(), b.Selectors().begin(),
                    b.Selectors().end(), [](const auto& x, const auto& y) {
                      return x.isIndex == y.isIndex && (x.isIndex || x.member == y.member);
                    });
}

/// Whether two expressions are alike, and so have one value; what calls something may have two.
bool IsSameExpression(const ExpressionBase& left, const ExpressionBase& right) {
  const ExpressionBase& a = Unwrap(left);
  const ExpressionBase& b = Unwrap(right);
  if (a.GetKind() != b.GetKind() || a.GetChildCount() != b.GetChildCount()) return false;
  bool same = false;
  if (a.GetKind() == EXPRESSION_VARIABLE) {
    same = IsSameSelection(static_cast<const ExpressionVariable&>(a),
                           static_cast<const ExpressionVariable&>(b));
  } else if (a.GetKind() == EXPRESSION_OPERATOR) {
    same = static_cast<const ExpressionOperator&>(a).GetOperatorIndex() ==
           static_cast<const ExpressionOperator&>(b).GetOperatorIndex();
  } else if (a.GetKind() == EXPRESSION_CONSTANT) {
    same = a.Type()->GetKind() == Kind::Int && b.Type()->GetKind() == Kind::Int &&
           static_cast<const ExpressionConstant&>(a).Value().i ==
               static_cast<const ExpressionConstant&>(b).Value().i;
  }
  for (uint32_t i = 0; same && i < a.GetChildCount(); ++i)
    same = IsSameExpression(*a.GetChild(i), *b.GetChild(i));
  return same;
}

/// The joins of s + e1 + e2..., the last one first, when `isTarget` says so of s; else none.
template <class IsTarget>
std::vector<const ExpressionOperator*> FindAppends(const ExpressionBase& expression,
                                                   const IsTarget& isTarget) {
  std::vector<const ExpressionOperator*> joins;
  const ExpressionBase* node = &Unwrap(expression);
  while (node->GetKind() == EXPRESSION_OPERATOR) {
    const auto* op = static_cast<const ExpressionOperator*>(node);
    if (op->GetOperator() != TamberOperators::OP_ADD || op->Type()->GetKind() != Kind::String)
      return {};
    joins.push_back(op);
    node = op->GetChild(0);
  }
  if (!joins.empty() && !isTarget(*node)) joins.clear();
  return joins;
}

/// Registers hold an encrypted string as its plain text.
const TypeRef& Plain(const TypeRef& type) {
  return type->GetKind() == Kind::EString ? TypeDesc::Of(Kind::String) : type;
}

/// Whether the expression only computes, from values of types that are known now.
bool HasKnownTypes(const CodeBuilder& b, const ExpressionBase& expression, int depth) {
  const ExpressionBase& node = Unwrap(expression);
  const auto kind = node.GetKind();
  if (kind == EXPRESSION_VARIABLE) {
    if (static_cast<const ExpressionVariable&>(node).IsDynamic(b)) return false;
  } else if (kind == EXPRESSION_OPERATOR) {
    if (static_cast<const ExpressionOperator&>(node).IsSelector()) return false;
  } else if (kind != EXPRESSION_CONSTANT) {
    return false;
  }
  for (uint32_t i = 0; i < node.GetChildCount(); ++i)
    if (depth > 8 || !HasKnownTypes(b, *node.GetChild(i), depth + 1)) return false;
  return true;
}

/// Whether selecting the target runs something that must run once, whatever fails.
bool SelectingCalls(const ExpressionVariable& target) {
  return target.IsImpure() || target.CallsFunction();
}

}  // namespace

/// The empty value that stands for one which could not be computed. Where only a run knows the
/// type, it is that of what takes the value.
void ProcedureLowering::StoreEmpty(const VarUse& target, const TypeRef& type) {
  if (type->GetKind() != Kind::Any)
    builder_.Store(target, builder_.EmptyValue(type));
  else if (builder_.IsDynamic(target))
    Clear(builder_.LoadVariable(target, true));
  else
    StoreEmpty(target, Plain(target.type));
}

void ProcedureLowering::Clear(const Operand& variable) {
  builder_.Emit(Op::ClearV, variable.reg);
  builder_.Free(variable);
}

void ProcedureLowering::LowerAssign(uint32_t i, const ExpressionBase& expression,
                                    const VarUse& target) {
  const size_t entry = BeginEntry(i);
  const uint32_t mark = builder_.Mark();
  const FrameState state = builder_.State();
  const auto addPad = [&](const TypeRef& type) {
    AddPad(entry, i + 1, state, mark, LabelOf(i + 2),
           [this, type, &target] { StoreEmpty(target, type); });
  };
  if (LowerAppend(expression, target) || LowerGlobalSum(expression, target))
    return addPad(Plain(target.type));
  Operand value = expression.Lower(builder_);
  addPad(value.type ? Plain(value.type) : Plain(target.type));
  const bool direct = builder_.IsRegister(target) && value.place == Operand::Place::Reg &&
                      value.IsScalar() && value.kind == target.type->GetKind();
  if (direct) {
    // The value goes straight to the local, where nobody else can see it before the policy of an
    // error has been applied.
    builder_.MoveInto(static_cast<uint16_t>(target.slot), value);
    CheckError(expression);
    return;
  }
  CheckError(expression);
  BeginEntry(i + 1);
  builder_.Store(target, value);
}

/// s = s + e: the string of the variable grows in place. What is added is complete before it does,
/// so that a failure leaves the variable as it was.
bool ProcedureLowering::LowerAppend(const ExpressionBase& expression, const VarUse& target) {
  if (target.type->GetKind() != Kind::String || builder_.IsDynamic(target)) return false;
  const Joins joins = FindAppends(
      expression, [&](const ExpressionBase& node) { return IsSameVariable(node, target); });
  if (joins.empty()) return false;
  // Script code could change a variable that is not the procedure's own before it is added to, and
  // who looks for locals by name one that is.
  if (expression.IsImpure() && !builder_.IsRegister(target)) return false;
  if (expression.LooksUpLocals()) return false;
  const Operand tail = LowerTail(joins);
  CheckError(expression);
  if (builder_.IsRegister(target))
    AppendTo(Op::Append, static_cast<uint16_t>(target.slot), tail);
  else
    AppendAt(tail, [&] { return builder_.LoadAddress(target); });
  return true;
}

/// g = g + e of numbers, where nothing in e could change the global.
bool ProcedureLowering::LowerGlobalSum(const ExpressionBase& expression, const VarUse& target) {
  const Kind kind = target.type->GetKind();
  const ExpressionBase& node = Unwrap(expression);
  if (node.GetKind() != EXPRESSION_OPERATOR || !builder_.IsGlobal(target)) return false;
  const auto& op = static_cast<const ExpressionOperator&>(node);
  const bool adds = (kind == Kind::Int || kind == Kind::Double) &&
                    op.GetOperator() == TamberOperators::OP_ADD && op.Type()->GetKind() == kind;
  if (!adds || !IsSameVariable(Unwrap(*op.GetChild(0)), target)) return false;
  const ExpressionBase& added = *op.GetChild(1);
  if (added.Type()->GetKind() != kind || !HasKnownTypes(builder_, added, 0)) return false;
  const Operand value = added.Lower(builder_);
  const SourceMark source(builder_, op.SourceOffset());
  const uint32_t global = builder_.GlobalIndex(target);
  if (value.place == Operand::Place::Imm && value.imm == static_cast<int16_t>(value.imm))
    builder_.Emit(Op::AddGIK, global, static_cast<uint16_t>(value.imm));
  else
    builder_.Emit(kind == Kind::Int ? Op::AddGI : Op::AddGD, global, builder_.ToReg(value).reg);
  return true;
}

/// What is appended, complete.
Operand ProcedureLowering::LowerTail(const Joins& joins) {
  Operand tail = joins.back()->GetChild(1)->Lower(builder_);
  if (joins.size() == 1) return tail;
  tail = StartString(tail);
  const uint32_t mark = builder_.Mark();
  for (size_t k = joins.size() - 1; k-- > 0; builder_.Reset(mark))
    AppendTo(Op::Append, tail.reg, joins[k]->GetChild(1)->Lower(builder_));
  return tail;
}

/// Appends to the string whose address `load` finds once the tail is there.
void ProcedureLowering::AppendAt(const Operand& part, const std::function<uint16_t()>& load) {
  const Operand tail = builder_.ToReg(part.kind == Kind::String ? part : StartString(part));
  AppendTo(Op::AppendP, load(), tail);
}

/// The joins of `target = target + e1 + e2...` where the string can grow in place.
ProcedureLowering::Joins ProcedureLowering::FindSelectedAppends(const SelectedAssign& parts) const {
  const bool grows = parts.target.Type()->GetKind() == Kind::String &&
                     !parts.target.IsDynamic(builder_) && !parts.value.LooksUpLocals();
  if (!grows) return {};
  return FindAppends(parts.value, [&](const ExpressionBase& node) {
    return IsSameExpression(node, parts.target);
  });
}

Operand ProcedureLowering::StartString(const Operand& operand) {
  const Operand source = builder_.ToReg(operand);
  const uint16_t reg = builder_.NewTemp();
  if (source.kind == Kind::String)
    builder_.MoveInto(reg, source);
  else
    builder_.Emit(Op::Text, reg, source.reg, static_cast<uint32_t>(source.kind));
  builder_.Free(source);
  return builder_.InReg(Kind::String, reg, TypeDesc::Of(Kind::String));
}

Operand ProcedureLowering::Joined(const Operand& string, const Operand& tail) {
  const Operand whole = StartString(string);
  AppendTo(Op::Append, whole.reg, tail);
  return whole;
}

/// `op`: Append to the string in a register, or AppendP to that at an address.
void ProcedureLowering::AppendTo(Op op, uint16_t string, const Operand& part) {
  const Operand source = builder_.ToReg(part);
  if (source.kind == Kind::String)
    builder_.Emit(op, string, source.reg);
  else
    builder_.Emit(Op::AppendT, string, source.reg, static_cast<uint32_t>(source.kind));
  builder_.Free(source);
}

void ProcedureLowering::LowerArrayOp(uint32_t i, const ExpressionBase& expression) {
  const size_t entry = BeginEntry(i);
  const uint32_t mark = builder_.Mark();
  const FrameState state = builder_.State();
  const bool appends = statements_.Get(i + 2).GetKind() == STATEMENT_APPEND;
  Operand value = expression.Lower(builder_);
  if (!appends) value = builder_.ToCondition(value);
  value = builder_.ToReg(value);
  // An array that grows or shrinks by nothing stays as it is.
  if (appends) {
    const TypeRef type = value.kind != Kind::Any ? Plain(value.type) : AppendedType(i);
    AddPad(entry, i + 1, state, mark, LabelOf(i + 3),
           [this, i, type] { LowerArrayChange(i, builder_.ToReg(builder_.EmptyValue(type))); });
  }
  CheckError(expression);
  BeginEntry(i + 1);
  LowerArrayChange(i, value);
}

/// What an empty value that is appended is of, where only the run knows: the array says it, or it
/// is the number that a division leaves.
TypeRef ProcedureLowering::AppendedType(uint32_t i) const {
  const auto* push = statements_.Get(i + 1).As<StatementPushVar>();
  const TypeRef& array = push != nullptr ? push->Variable().type : ExpressionAt(i + 1).Type();
  return array->Element() ? Plain(array->Element()) : TypeDesc::Of(Kind::Int);
}

/// Finds the array, the second part of the group, and changes it with the value.
void ProcedureLowering::LowerArrayChange(uint32_t i, const Operand& operand) {
  const auto kind = statements_.Get(i + 2).GetKind();
  const auto* push = statements_.Get(i + 1).As<StatementPushVar>();
  const ExpressionVariable* selected =
      push != nullptr ? nullptr : static_cast<const ExpressionVariable*>(&ExpressionAt(i + 1));
  const TypeRef& type = push != nullptr ? push->Variable().type : selected->Type();
  const Operand value = selected != nullptr ? builder_.Independent(operand) : operand;
  const bool whole = push != nullptr ? builder_.IsStoredWhole(push->Variable())
                                     : selected->IsDynamic(builder_) || SelectingCalls(*selected);
  if (whole) {
    const Operand variable = push != nullptr ? builder_.LoadVariable(push->Variable(), true)
                                             : selected->LowerReference(builder_);
    if (selected != nullptr) CheckError(*selected);
    BeginEntry(i + 2);
    if (kind == STATEMENT_APPEND)
      builder_.Emit(Op::VAppend, variable.reg, value.reg, builder_.TypeIndex(value.type));
    else
      builder_.Emit(kind == STATEMENT_GROW ? Op::VGrow : Op::VShrink, variable.reg, value.reg);
    builder_.Free(variable);
    builder_.Free(value);
    return;
  }
  std::vector<Operand> indexes;
  if (selected != nullptr) indexes = selected->LowerIndexes(builder_);
  const uint16_t address = push != nullptr ? builder_.LoadAddress(push->Variable())
                                           : selected->LowerCellAddress(builder_, indexes);
  BeginEntry(i + 2);
  if (kind == STATEMENT_APPEND)
    builder_.Emit(Op::AAppend, address, value.reg, builder_.AppendIndex(type, value.type));
  else
    builder_.Emit(kind == STATEMENT_GROW ? Op::AGrow : Op::AShrink, address, value.reg,
                  builder_.TypeIndex(type));
  builder_.Free(value);
}

/// The target is selected before the value is computed, and the value is computed even when the
/// target could not be selected and the script goes on: it may fail too, print, or change things.
void ProcedureLowering::LowerSelectedAssign(uint32_t i, const ExpressionBase& target) {
  const SelectedAssign parts{i, static_cast<const ExpressionVariable&>(target), ExpressionAt(i + 1),
                             LabelOf(i + 3)};
  const bool calls = parts.value.IsImpure() || parts.value.CallsFunction();
  const bool mayFail = calls || !CanBeSkipped(builder_, parts.value);
  if (!mayFail && !SelectingCalls(parts.target)) {
    LowerSelectedStore(parts, Selecting::Late, parts.end);
    return;
  }
  const FrameState state = builder_.State();
  Label& alone = NewLabel();
  if (calls || SelectingCalls(parts.target)) {
    LowerSelectedStore(parts, Selecting::Early, alone);
    AddAside(parts, state, [this, parts, &alone] { LowerValueAlone(parts, alone); });
    return;
  }
  // A value that only computes is computed first, for the store finds out by itself whether there
  // is such a target. When one of them fails all is done again in the proper order.
  Label& again = NewLabel();
  const size_t valueEntry = LowerSelectedStore(parts, Selecting::Late, alone);
  for (size_t entry : {valueEntry, valueEntry + 1}) RetryAt(entry, again);
  AddAside(parts, state, [this, parts, &again, &alone] {
    builder_.Bind(again);
    LowerSelectedStore(parts, Selecting::Held, alone);
    builder_.EndStatement();
    builder_.Jump(parts.end);
    LowerValueAlone(parts, alone);
  });
}

void ProcedureLowering::AddAside(const SelectedAssign& parts, const FrameState& state,
                                 std::function<void()> lower) {
  asides_.push_back(
      {parts.statement, 3, state, builder_.LocalsChange(), std::move(lower), &parts.end});
}

void ProcedureLowering::LowerValueAlone(const SelectedAssign& parts, Label& alone) {
  builder_.Bind(alone);
  BeginEntry(parts.statement + 1);
  const Operand unused = parts.value.Lower(builder_);
  CheckError(parts.value);
  builder_.Free(unused);
}

/// A handler for an error that the value left could pull the target away, so then it is held first.
/// Without an error, which is the rule, control goes on behind this.
void ProcedureLowering::LowerStoreAfterError(const SelectedAssign& parts,
                                             const std::vector<Operand>& indexes,
                                             const Operand& result, bool appends) {
  Label& noError = NewLabel();
  builder_.EmitJump(Op::JOk, 0, 0, noError);
  const uint32_t mark = builder_.Mark();
  const FrameState state = builder_.State();
  const Operand value = appends ? Joined(parts.target.Lower(builder_), result) : result;
  const Operand held = parts.target.LowerReference(builder_, indexes);
  CheckError(parts.value);
  builder_.AssignVariable(held, value);
  builder_.EndStatement();
  builder_.Jump(parts.end);
  builder_.Bind(noError);
  builder_.Restore(state, mark);
}

/// `noTarget`: where to go on when the target could not be selected. Returns the entry of the
/// value.
size_t ProcedureLowering::LowerSelectedStore(const SelectedAssign& parts, Selecting selecting,
                                             Label& noTarget) {
  ResumeAt(BeginEntry(parts.statement), noTarget);
  const std::vector<Operand> indexes = parts.target.LowerIndexes(builder_);
  Operand held;
  const bool early = selecting == Selecting::Early;
  if (parts.value.IsImpure() || SelectingCalls(parts.target) || selecting == Selecting::Held ||
      (early && parts.target.IsDynamic(builder_)))
    held = parts.target.LowerReference(builder_, indexes);
  else if (early)
    parts.target.LowerCheck(builder_, indexes);
  CheckError(parts.target);
  const size_t valueEntry = BeginEntry(parts.statement + 1);
  const uint32_t mark = builder_.Mark();
  const FrameState state = builder_.State();
  const auto store = [this, &target = parts.target, indexes, held](const Operand& value) {
    if (held.place == Operand::Place::Reg)
      builder_.AssignVariable(held, value);
    else
      target.LowerStore(builder_, indexes, value);
  };
  const bool isHeld = held.place == Operand::Place::Reg;
  const Joins joins = isHeld ? Joins() : FindSelectedAppends(parts);
  const bool appends = !joins.empty();
  const Operand result = appends ? LowerTail(joins) : parts.value.Lower(builder_);
  const TypeRef type = appends ? parts.target.Type() : Plain(result.type);
  const size_t pads = pads_.size();
  AddPad(
      valueEntry, parts.statement + 2, state, mark, parts.end,
      [this, store, type, held, indexes, &target = parts.target] {
        if (type->GetKind() != Kind::Any) return store(builder_.EmptyValue(type));
        Clear(held.place == Operand::Place::Reg ? held : target.LowerReference(builder_, indexes));
      });
  if (pads_.size() > pads) pads_.back().mayBeGone = !isHeld;
  const bool pulledAway = parts.value.CallsFunction() && !isHeld;
  if (pulledAway)
    LowerStoreAfterError(parts, indexes, result, appends);
  else
    CheckError(parts.value);
  BeginEntry(parts.statement + 2);
  if (appends)
    AppendAt(result, [&] { return parts.target.LowerCellAddress(builder_, indexes); });
  else
    store(result);
  return valueEntry;
}

}  // namespace tamber
