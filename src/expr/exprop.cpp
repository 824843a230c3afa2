#include "expr/exprop.h"

#include <algorithm>
#include <optional>
#include <string>

#include "engine/arith.h"
#include "expr/exprcnst.h"
#include "expr/exprvar.h"
#include "machine/codebuilder.h"
#include "values/cellops.h"

using tamber::CodeBuilder;
using tamber::Kind;
using tamber::Op;
using tamber::Operand;
using tamber::TypeDesc;
using Ops = TamberOperators;

namespace {

/// Instructions of one arithmetic operator; Nop where there is none.
struct ArithmeticOps {
  Op ints = Op::Nop, intConstant = Op::Nop, floats = Op::Nop, doubles = Op::Nop,
     doubleConstant = Op::Nop;
};

ArithmeticOps ArithmeticFor(Ops::Operator_e code) {
  switch (code) {
    case Ops::OP_ADD:
      return {Op::AddI, Op::AddIK, Op::AddF, Op::AddD, Op::AddDK};
    case Ops::OP_SUBTRACT:
      return {Op::SubI, Op::AddIK, Op::SubF, Op::SubD, Op::SubDK};
    case Ops::OP_MULTIPLY:
      return {Op::MulI, Op::MulIK, Op::MulF, Op::MulD, Op::MulDK};
    case Ops::OP_DIVIDE:
      return {Op::DivI, Op::DivIK, Op::DivF, Op::DivD, Op::DivDK};
    case Ops::OP_REMAIN:
      return {Op::RemI, Op::RemIK};
    case Ops::OP_BITAND:
      return {Op::AndI, Op::AndIK};
    case Ops::OP_BITOR:
      return {Op::OrI, Op::OrIK};
    case Ops::OP_BITXOR:
      return {Op::XorI, Op::XorIK};
    case Ops::OP_SHIFTLEFT:
      return {Op::ShlI, Op::ShlIK};
    case Ops::OP_SHIFTRIGHT:
      return {Op::ShrI, Op::ShrIK};
    default:
      return {};
  }
}

bool IsComparison(Ops::Operator_e code) { return code >= Ops::OP_LESS && code <= Ops::OP_NOTEQUAL; }

bool IsLogical(Ops::Operator_e code) { return code == Ops::OP_AND || code == Ops::OP_OR; }

bool FitsShort(int32_t value) { return value >= -32768 && value <= 32767; }

bool IsIntLike(Kind kind) { return kind >= Kind::Bool && kind <= Kind::Int; }

/// The kind that both operands are brought to; Any when only the run can tell.
Kind Widest(Kind left, Kind right) {
  if (left == Kind::Any || right == Kind::Any) return Kind::Any;
  return std::max(left, right);
}

Operand BoolOperand(CodeBuilder& b, uint16_t reg) {
  return b.InReg(Kind::Bool, reg, TypeDesc::Of(Kind::Bool));
}

/// A fresh register at the place where the operands' temporaries began.
uint16_t ResultAt(CodeBuilder& b, uint32_t mark) {
  b.Reset(mark);
  return b.NewTemp();
}

/// An operator that the evaluation stack carries out, because the types are not known before.
Operand LowerGeneric(CodeBuilder& b, int32_t index, const Operand& left, const Operand* right,
                     uint32_t mark) {
  b.Push(left);
  if (right != nullptr) b.Push(*right);
  uint16_t reg = ResultAt(b, mark);
  b.Emit(Op::Exec, reg, static_cast<uint32_t>(index));
  return b.InReg(Kind::Any, reg, TypeDesc::Of(Kind::Any));
}

/// Text kinds that "+" joins to a string.
bool HasText(Kind kind) {
  return IsIntLike(kind) || kind == Kind::Float || kind == Kind::Double || kind == Kind::Handle;
}

Operand AsText(CodeBuilder& b, const Operand& operand) {
  if (operand.place != Operand::Place::Imm) return operand;
  std::string text;
  tamber::AppendCellText(text, operand.kind, tamber::IntCell(operand.imm));
  return b.TextConstant(text);
}

/// left + right where one is a string. A text that is being put together grows in place.
Operand LowerJoin(CodeBuilder& b, uint32_t mark, const Operand& leftIn, const Operand& rightIn) {
  Operand left = leftIn.kind == Kind::String ? leftIn : AsText(b, leftIn);
  Operand right = rightIn.kind == Kind::String ? rightIn : AsText(b, rightIn);
  right = b.ToReg(right);
  Operand text = left;
  if (!b.Owns(left)) {
    left = b.ToReg(left);
    const bool both = left.kind == Kind::String && right.kind == Kind::String;
    const uint16_t reg = b.NewTemp();
    if (both)
      b.Emit(Op::Concat, reg, left.reg, right.reg);
    else if (left.kind == Kind::String)
      b.Emit(Op::CopyO, reg, left.reg, static_cast<uint32_t>(Kind::String));
    else
      b.Emit(Op::Text, reg, left.reg, static_cast<uint32_t>(left.kind));
    text = b.InReg(Kind::String, reg, TypeDesc::Of(Kind::String));
    if (both) {
      b.Free(right);
      right.place = Operand::Place::None;
    }
  }
  if (right.place != Operand::Place::None) {
    if (right.kind == Kind::String)
      b.Emit(Op::Append, text.reg, right.reg);
    else
      b.Emit(Op::AppendT, text.reg, right.reg, static_cast<uint32_t>(right.kind));
    b.Free(right);
  }
  const uint16_t reg = ResultAt(b, mark);
  b.MoveInto(reg, text);
  text.reg = reg;
  return text;
}

int32_t FoldInts(Ops::Operator_e code, int32_t l, int32_t r) {
  switch (code) {
    case Ops::OP_ADD:
      return tamber::AddInt(l, r);
    case Ops::OP_SUBTRACT:
      return tamber::SubInt(l, r);
    case Ops::OP_MULTIPLY:
      return tamber::MulInt(l, r);
    case Ops::OP_BITAND:
      return l & r;
    case Ops::OP_BITOR:
      return l | r;
    case Ops::OP_BITXOR:
      return l ^ r;
    case Ops::OP_SHIFTLEFT:
      return tamber::ShlInt(l, r);
    default:
      return tamber::ShrInt(l, r);
  }
}

/// Arithmetic of integers, booleans and characters, which all are 32-bit integers in registers.
Operand LowerInts(CodeBuilder& b, Ops::Operator_e code, uint32_t mark, const Operand& left,
                  const Operand& right, Kind kind) {
  ArithmeticOps ops = ArithmeticFor(code);
  bool constant = right.place == Operand::Place::Imm;
  bool divides = code == Ops::OP_DIVIDE || code == Ops::OP_REMAIN;
  bool bothConstant = constant && left.place == Operand::Place::Imm;
  if (bothConstant && !divides && kind == Kind::Int)
    return CodeBuilder::Immediate(Kind::Int, FoldInts(code, left.imm, right.imm));
  int32_t value = right.imm;
  if (constant && code == Ops::OP_SUBTRACT) value = tamber::SubInt(0, value);
  uint16_t reg;
  if (constant && FitsShort(value) && !(divides && value == 0)) {
    Operand source = b.ToReg(left);
    reg = ResultAt(b, mark);
    b.Emit(ops.intConstant, reg, source.reg, static_cast<uint16_t>(value));
  } else {
    Operand l = b.ToReg(left);
    Operand r = b.ToReg(right);
    reg = ResultAt(b, mark);
    b.Emit(ops.ints, reg, l.reg, r.reg);
  }
  if (kind != Kind::Int) b.Emit(Op::ToChar, reg, reg);
  return b.InReg(kind, reg, TypeDesc::Of(kind));
}

Operand LowerReals(CodeBuilder& b, Ops::Operator_e code, uint32_t mark, const Operand& left,
                   const Operand& right, Kind kind) {
  ArithmeticOps ops = ArithmeticFor(code);
  Operand l = b.ToReg(b.Promote(left, kind));
  Operand r = b.Promote(right, kind);
  bool constant = kind == Kind::Double && r.place == Operand::Place::Const && r.index < 0x10000 &&
                  !(code == Ops::OP_DIVIDE && b.GetCode().constants[r.index].d == 0.0);
  if (constant) {
    uint16_t reg = ResultAt(b, mark);
    b.Emit(ops.doubleConstant, reg, l.reg, r.index);
    return b.InReg(kind, reg, TypeDesc::Of(kind));
  }
  r = b.ToReg(r);
  uint16_t reg = ResultAt(b, mark);
  b.Emit(kind == Kind::Double ? ops.doubles : ops.floats, reg, l.reg, r.reg);
  return b.InReg(kind, reg, TypeDesc::Of(kind));
}

/// Both operands as the doubles or integers that a comparison works on. Floats are compared as the
/// doubles they are exactly.
struct Comparands {
  Operand left, right;
  bool doubles;
};

Comparands ToComparands(CodeBuilder& b, Operand left, Operand right) {
  auto handleToInt = [&](Operand& side) {
    if (side.kind == Kind::Handle) side = *b.Convert(side, *TypeDesc::Of(Kind::Int));
  };
  handleToInt(left);
  handleToInt(right);
  Kind kind = Widest(left.kind, right.kind);
  if (kind <= Kind::Int) return {left, right, false};
  // An integer that meets a float is rounded to one first.
  if (kind == Kind::Float) {
    left = b.Promote(left, Kind::Float);
    right = b.Promote(right, Kind::Float);
  }
  return {b.ToReg(b.Promote(left, Kind::Double)), b.ToReg(b.Promote(right, Kind::Double)), true};
}

struct CompareOps {
  Op ints, intConstant, doubles;
  bool swap;  ///< the instruction wants the operands the other way round
};

CompareOps CompareFor(Ops::Operator_e code) {
  switch (code) {
    case Ops::OP_LESS:
      return {Op::LtI, Op::LtIK, Op::LtD, false};
    case Ops::OP_LESSEQUAL:
      return {Op::LeI, Op::LeIK, Op::LeD, false};
    case Ops::OP_GREATER:
      return {Op::LtI, Op::GtIK, Op::LtD, true};
    case Ops::OP_GREATEREQUAL:
      return {Op::LeI, Op::GeIK, Op::LeD, true};
    case Ops::OP_EQUAL:
      return {Op::EqI, Op::EqIK, Op::EqD, false};
    default:
      return {Op::NeI, Op::NeIK, Op::NeD, false};
  }
}

bool IsEquality(Ops::Operator_e code) { return code == Ops::OP_EQUAL || code == Ops::OP_NOTEQUAL; }

Operand LowerTextComparison(CodeBuilder& b, Ops::Operator_e code, uint32_t mark,
                            const Operand& left, const Operand& right) {
  Operand l = b.ToReg(left);
  Operand r = b.ToReg(right);
  if (IsEquality(code) && !b.Owns(l) && !b.Owns(r)) {
    const uint16_t reg = ResultAt(b, mark);
    b.Emit(code == Ops::OP_EQUAL ? Op::SEq : Op::SNe, reg, l.reg, r.reg);
    return BoolOperand(b, reg);
  }
  uint16_t order = b.NewTemp();
  const bool equality = IsEquality(code);
  b.Emit(code == Ops::OP_EQUAL ? Op::SEq : equality ? Op::SNe : Op::SCmp, order, l.reg, r.reg);
  b.Free(r);
  b.Free(l);
  const uint16_t reg = ResultAt(b, mark);
  if (equality)
    b.Emit(Op::Mov, reg, order);
  else
    b.Emit(CompareFor(code).intConstant, reg, order, 0);
  return BoolOperand(b, reg);
}

Operand LowerComparison(CodeBuilder& b, Ops::Operator_e code, uint32_t mark, const Operand& left,
                        const Operand& right) {
  if (left.kind == Kind::String) return LowerTextComparison(b, code, mark, left, right);
  Comparands sides = ToComparands(b, left, right);
  CompareOps ops = CompareFor(code);
  if (!sides.doubles && sides.right.place == Operand::Place::Imm && FitsShort(sides.right.imm)) {
    Operand l = b.ToReg(sides.left);
    uint16_t reg = ResultAt(b, mark);
    b.Emit(ops.intConstant, reg, l.reg, static_cast<uint16_t>(sides.right.imm));
    return BoolOperand(b, reg);
  }
  Operand l = b.ToReg(sides.left);
  Operand r = b.ToReg(sides.right);
  if (ops.swap) std::swap(l, r);
  uint16_t reg = ResultAt(b, mark);
  b.Emit(sides.doubles ? ops.doubles : ops.ints, reg, l.reg, r.reg);
  return BoolOperand(b, reg);
}

}  // namespace

ExpressionOperator::ExpressionOperator(Ops::Operator_e code)
    : ExpressionBase(EXPRESSION_OPERATOR),
      code_(code),
      index_(Ops::GetOperatorIndex(code)),
      operandCount_(static_cast<uint32_t>(Ops::GetOperatorParamCount(index_))) {}

Operand ExpressionOperator::LowerUnary(CodeBuilder& b) const {
  uint32_t mark = b.Mark();
  Operand operand = GetChild(0)->Lower(b);
  if (operand.kind == Kind::Any) return LowerGeneric(b, index_, operand, nullptr, mark);
  if (code_ == Ops::OP_NOT) {
    Operand truth = b.ToTruth(operand);
    if (truth.place == Operand::Place::Imm) return CodeBuilder::Immediate(Kind::Bool, !truth.imm);
    uint16_t reg = ResultAt(b, mark);
    b.Emit(Op::LNot, reg, truth.reg);
    return BoolOperand(b, reg);
  }
  if (code_ == Ops::OP_NEGATE && !IsIntLike(operand.kind)) {
    Operand source = b.ToReg(operand);
    uint16_t reg = ResultAt(b, mark);
    b.Emit(operand.kind == Kind::Float ? Op::NegF : Op::NegD, reg, source.reg);
    return b.InReg(operand.kind, reg, operand.type);
  }
  bool negate = code_ == Ops::OP_NEGATE;
  Kind kind = negate && operand.kind == Kind::Char ? Kind::Char : Kind::Int;
  if (operand.place == Operand::Place::Imm && kind == Kind::Int) {
    return CodeBuilder::Immediate(Kind::Int,
                                  negate ? tamber::SubInt(0, operand.imm) : ~operand.imm);
  }
  Operand source = b.ToReg(operand);
  uint16_t reg = ResultAt(b, mark);
  b.Emit(negate ? Op::NegI : Op::NotI, reg, source.reg);
  if (kind == Kind::Char) b.Emit(Op::ToChar, reg, reg);
  return b.InReg(kind, reg, TypeDesc::Of(kind));
}

Operand ExpressionOperator::LowerBinary(CodeBuilder& b, uint32_t mark, const Operand& left) const {
  const Operand right = GetChild(1)->Lower(b);
  if (left.kind == Kind::Any || right.kind == Kind::Any)
    return LowerGeneric(b, index_, left, &right, mark);
  if (left.kind == Kind::String || right.kind == Kind::String) {
    bool joins = code_ == Ops::OP_ADD && (left.kind == Kind::String || HasText(left.kind)) &&
                 (right.kind == Kind::String || HasText(right.kind));
    if (joins) return LowerJoin(b, mark, left, right);
    if (left.kind != right.kind) return LowerGeneric(b, index_, left, &right, mark);
  }
  if (IsComparison(code_)) return LowerComparison(b, code_, mark, left, right);
  if (IsLogical(code_)) {
    Operand l = b.ToReg(b.ToTruth(left));
    Operand r = b.ToReg(b.ToTruth(right));
    uint16_t reg = ResultAt(b, mark);
    b.Emit(code_ == Ops::OP_AND ? Op::AndI : Op::OrI, reg, l.reg, r.reg);
    return BoolOperand(b, reg);
  }
  Kind kind = Ops::ValueKind(code_, left.kind, right.kind);
  switch (kind) {
    case Kind::Char:
    case Kind::Int:
      return LowerInts(b, code_, mark, left, right, kind);
    case Kind::Float:
    case Kind::Double:
      return LowerReals(b, code_, mark, left, right, kind);
    default:
      return LowerGeneric(b, index_, left, &right, mark);
  }
}

/// Takes a part out of a result of known type.
Operand ExpressionOperator::LowerKnownPart(CodeBuilder& b, uint32_t mark,
                                           const Operand& left) const {
  const Operand index = code_ == Ops::OP_ARRAYINDEX ? GetChild(1)->Lower(b) : Operand();
  const uint16_t part = b.NewTemp();
  if (code_ == Ops::OP_STRUCTMEMBER) {
    const int32_t member = left.type->Layout()->Find(memberName_.View());
    b.Emit(Op::SGet, part, left.reg, static_cast<uint32_t>(member));
  } else {
    b.Emit(tamber::ElementOp(Type()->GetKind()), part, left.reg,
           b.ToReg(*b.Convert(index, *TypeDesc::Of(Kind::Int))).reg);
  }
  Operand value = tamber::Selected(b, part, Type());
  if (!value.IsScalar() && !b.Owns(value)) {
    const uint16_t own = b.NewTemp();
    b.MoveInto(own, value);
    b.Free(value);
    value.reg = own;
  }
  b.Free(left);
  const uint16_t reg = ResultAt(b, mark);
  b.MoveInto(reg, value);
  value.reg = reg;
  return value;
}

/// Whether what is selected from, a result of a script procedure, tells by its type how: those of
/// functions are what hosts make them.
bool ExpressionOperator::IsKnownPart(const CodeBuilder& b, const Operand& left) const {
  const Kind kind = Type()->GetKind();
  if (!b.Owns(left) || kind == Kind::Any || kind == Kind::None) return false;
  if (code_ == Ops::OP_STRUCTMEMBER)
    return left.kind == Kind::Struct && left.type->Layout() &&
           left.type->Layout()->Find(memberName_.View()) >= 0;
  return left.kind == Kind::Array && left.type->Element() &&
         left.type->Element()->GetKind() == kind && IsIntLike(GetChild(1)->Type()->GetKind());
}

Operand ExpressionOperator::LowerSelector(CodeBuilder& b, uint32_t mark, const Operand& left,
                                          bool isProcedures) const {
  if (isProcedures && IsKnownPart(b, left)) return LowerKnownPart(b, mark, left);
  // Selecting from a result: through variables, so that any shape of value will do.
  b.Push(left);
  if (code_ == Ops::OP_STRUCTMEMBER)
    b.Push(b.TextConstant(memberName_.View()));
  else
    b.Push(GetChild(1)->Lower(b));
  const uint16_t reg = ResultAt(b, mark);
  b.Emit(Op::Exec, reg, static_cast<uint32_t>(index_));
  const Operand any = b.InReg(Kind::Any, reg, TypeDesc::Of(Kind::Any));
  if (Type()->GetKind() == Kind::Any) return any;
  const TypeDesc& type = Type()->GetKind() == Kind::EString ? *TypeDesc::Of(Kind::String) : *Type();
  return *b.Convert(any, type);
}

Operand ExpressionOperator::LowerNode(CodeBuilder& b) const {
  if (operandCount_ == 1) return LowerUnary(b);
  // A long sum is a chain to the left as deep as it is long, so it is walked down and up again in
  // loops.
  std::vector<const ExpressionOperator*> chain;
  const ExpressionBase* bottom = this;
  while (bottom->GetKind() == EXPRESSION_OPERATOR) {
    const auto* node = static_cast<const ExpressionOperator*>(bottom);
    if (node->operandCount_ == 1) break;
    chain.push_back(node);
    bottom = node->GetChild(0);
  }
  uint32_t mark = b.Mark();
  const bool isProcedures = bottom->GetKind() == EXPRESSION_PROCEDURE;
  Operand value = bottom->Lower(b);
  for (auto node = chain.rbegin(); node != chain.rend(); ++node) {
    const tamber::SourceMark source(b, (*node)->SourceOffset());
    value = (*node)->IsSelector() ? (*node)->LowerSelector(b, mark, value, isProcedures)
                                  : (*node)->LowerBinary(b, mark, value);
  }
  return value;
}

void ExpressionOperator::Dump(KelString& out) const {
  std::vector<const ExpressionBase*> chain;
  const ExpressionBase* node = this;
  while (node->GetKind() == EXPRESSION_OPERATOR) {
    chain.push_back(node);
    const auto* op = static_cast<const ExpressionOperator*>(node);
    out += Ops::GetOperatorName(op->index_);
    out += '(';
    node = node->GetChild(0);
  }
  node->Dump(out);
  for (auto up = chain.rbegin(); up != chain.rend(); ++up) {
    const auto* op = static_cast<const ExpressionOperator*>(*up);
    if (op->operandCount_ == 2) {
      out += ", ";
      if (op->code_ == Ops::OP_STRUCTMEMBER)
        out += op->memberName_.View();
      else
        op->GetChild(1)->Dump(out);
    }
    out += ')';
  }
}

namespace tamber {

const ExpressionBase& Unwrap(const ExpressionBase& expression) {
  const ExpressionBase* node = &expression;
  while (node->GetKind() == EXPRESSION_SUB) node = node->GetChild(0);
  return *node;
}

namespace {

bool CanBeSkippedBelow(const CodeBuilder& b, const ExpressionBase& expression, int depth) {
  const ExpressionBase& node = Unwrap(expression);
  if (depth > 8) return false;
  switch (node.GetKind()) {
    case EXPRESSION_CONSTANT:
      return true;
    case EXPRESSION_VARIABLE:
      return IsPlainRead(b, node);
    case EXPRESSION_OPERATOR: {
      const auto& op = static_cast<const ExpressionOperator&>(node);
      if (op.IsSelector() || op.GetOperator() == Ops::OP_DIVIDE ||
          op.GetOperator() == Ops::OP_REMAIN || op.Type()->GetKind() == Kind::String)
        return false;
      for (uint32_t i = 0; i < op.GetChildCount(); ++i) {
        if (!CanBeSkippedBelow(b, *op.GetChild(i), depth + 1)) return false;
      }
      return true;
    }
    default:
      return false;
  }
}

struct ConditionJump {
  Op ints, intConstant, doubles;
  bool swap;
};

/// The jump for a comparison, or for its opposite.
ConditionJump JumpFor(Ops::Operator_e code, bool jumpWhen) {
  switch (code) {
    case Ops::OP_LESS:
      return jumpWhen ? ConditionJump{Op::JLtI, Op::JLtIK, Op::JLtD, false}
                      : ConditionJump{Op::JLeI, Op::JGeIK, Op::JNltD, true};
    case Ops::OP_LESSEQUAL:
      return jumpWhen ? ConditionJump{Op::JLeI, Op::JLeIK, Op::JLeD, false}
                      : ConditionJump{Op::JLtI, Op::JGtIK, Op::JNleD, true};
    case Ops::OP_GREATER:
      return jumpWhen ? ConditionJump{Op::JLtI, Op::JGtIK, Op::JLtD, true}
                      : ConditionJump{Op::JLeI, Op::JLeIK, Op::JNltD, false};
    case Ops::OP_GREATEREQUAL:
      return jumpWhen ? ConditionJump{Op::JLeI, Op::JGeIK, Op::JLeD, true}
                      : ConditionJump{Op::JLtI, Op::JLtIK, Op::JNleD, false};
    case Ops::OP_EQUAL:
      return jumpWhen ? ConditionJump{Op::JEqI, Op::JEqIK, Op::JEqD, false}
                      : ConditionJump{Op::JNeI, Op::JNeIK, Op::JNeD, false};
    default:
      return jumpWhen ? ConditionJump{Op::JNeI, Op::JNeIK, Op::JNeD, false}
                      : ConditionJump{Op::JEqI, Op::JEqIK, Op::JEqD, false};
  }
}

/// Compares and jumps in one instruction. The swap of the integer and double forms differs for the
/// negated orderings: not (a < b) is b <= a for integers but "not less" for doubles, where a NaN
/// is neither.
void EmitCompareJump(CodeBuilder& b, Ops::Operator_e code, bool jumpWhen, const Operand& left,
                     const Operand& right, Label& target) {
  Comparands sides = ToComparands(b, left, right);
  ConditionJump jump = JumpFor(code, jumpWhen);
  if (!sides.doubles && sides.right.place == Operand::Place::Imm && FitsShort(sides.right.imm)) {
    Operand l = b.ToReg(sides.left);
    b.EmitJump(jump.intConstant, l.reg, static_cast<uint16_t>(sides.right.imm), target);
    return;
  }
  Operand l = b.ToReg(sides.left);
  Operand r = b.ToReg(sides.right);
  bool greater = code == Ops::OP_GREATER || code == Ops::OP_GREATEREQUAL;
  if (sides.doubles ? greater : jump.swap) std::swap(l, r);
  b.EmitJump(sides.doubles ? jump.doubles : jump.ints, l.reg, r.reg, target);
}

bool ComparesTextsForEquality(const ExpressionOperator& op) {
  return IsEquality(op.GetOperator()) && op.GetChild(0)->Type()->GetKind() == Kind::String &&
         op.GetChild(1)->Type()->GetKind() == Kind::String;
}

/// Compares and jumps in one instruction where nothing has to be released in between.
void LowerTextTest(CodeBuilder& b, const ExpressionOperator& op, uint32_t mark, const Operand& left,
                   const Operand& right, Label& target, bool jumpWhen) {
  const auto isText = [&b](const Operand& side) {
    return side.kind == Kind::String && !b.Owns(side);
  };
  if (!isText(left) || !isText(right)) {
    const bool areTexts = left.kind == Kind::String && right.kind == Kind::String;
    const Operand same = areTexts ? LowerTextComparison(b, op.GetOperator(), mark, left, right)
                                  : LowerGeneric(b, op.GetOperatorIndex(), left, &right, mark);
    b.EmitJump(jumpWhen ? Op::JT : Op::JF, b.ToReg(b.ToCondition(same)).reg, 0, target);
    return;
  }
  const bool whenEqual = (op.GetOperator() == Ops::OP_EQUAL) == jumpWhen;
  const Operand l = b.ToReg(left);
  if (right.place == Operand::Place::Const && right.index < 0x10000) {
    b.EmitJump(whenEqual ? Op::JSEqK : Op::JSNeK, l.reg, right.index, target);
  } else {
    b.EmitJump(whenEqual ? Op::JSEq : Op::JSNe, l.reg, b.ToReg(right).reg, target);
  }
}

void LowerTest(CodeBuilder& b, const ExpressionBase& expression, Label& target, bool jumpWhen,
               bool asTruth);

/// Both sides of && and || are evaluated before the operator; that the right one is left out when
/// the left one decides shows nowhere if it could only have computed.
bool LowerLogicalCondition(CodeBuilder& b, const ExpressionOperator& op, Label& target,
                           bool jumpWhen) {
  std::vector<const ExpressionBase*> rights;  // of a chain of the same operator, last one first
  const ExpressionBase* first = &op;
  while (first->GetKind() == EXPRESSION_OPERATOR) {
    const auto* node = static_cast<const ExpressionOperator*>(first);
    if (node->GetOperator() != op.GetOperator() || !CanBeSkipped(b, *node->GetChild(1))) break;
    rights.push_back(node->GetChild(1));
    first = node->GetChild(0);
  }
  if (rights.empty()) return false;
  // Either each side alone decides to jump, or each but the last decides not to.
  bool isAnd = op.GetOperator() == Ops::OP_AND;
  bool eachJumps = isAnd != jumpWhen;
  Label decided;
  Label& early = eachJumps ? target : decided;
  LowerTest(b, *first, early, !isAnd, true);
  for (size_t i = rights.size(); i-- > 1;) LowerTest(b, *rights[i], early, !isAnd, true);
  LowerTest(b, *rights[0], target, jumpWhen, true);
  if (!eachJumps) b.Bind(decided);
  return true;
}

/// A side of a logical operator in a condition: what was computed may be its opposite.
struct Truth {
  Operand value;
  bool isOpposite = false;
};

const ExpressionOperator* AsNegation(const ExpressionBase& node) {
  if (node.GetKind() != EXPRESSION_OPERATOR) return nullptr;
  const auto& op = static_cast<const ExpressionOperator&>(node);
  const bool negates =
      op.GetOperator() == Ops::OP_NOT && IsIntLike(op.GetChild(0)->Type()->GetKind());
  return negates ? &op : nullptr;
}

Truth LowerTruth(CodeBuilder& b, const ExpressionBase& expression) {
  const ExpressionBase& node = Unwrap(expression);
  const ExpressionOperator* negation = AsNegation(node);
  if (negation == nullptr) return {node.Lower(b)};
  const uint32_t mark = b.Mark();
  const Operand value = negation->GetChild(0)->Lower(b);
  if (value.kind != Kind::Any) return {value, true};
  return {LowerGeneric(b, negation->GetOperatorIndex(), value, nullptr, mark)};
}

Operand Settled(CodeBuilder& b, const Truth& truth) {
  if (!truth.isOpposite) return truth.value;
  const Operand value = b.ToReg(b.ToTruth(truth.value));
  const uint16_t reg = b.NewTemp();
  b.Emit(Op::LNot, reg, value.reg);
  return BoolOperand(b, reg);
}

/// Of two opposites the opposite of the result is computed: !a && !b is !(a || b).
Truth JoinTruths(CodeBuilder& b, const ExpressionOperator& op, uint32_t mark, const Truth& left,
                 const Truth& right) {
  const bool areOpposites = left.isOpposite && right.isOpposite;
  Operand l = areOpposites ? left.value : Settled(b, left);
  Operand r = areOpposites ? right.value : Settled(b, right);
  if (l.kind == Kind::Any || r.kind == Kind::Any)
    return {LowerGeneric(b, op.GetOperatorIndex(), l, &r, mark)};
  const bool isAnd = (op.GetOperator() == Ops::OP_AND) != areOpposites;
  // For "or" any bit of an integer will do.
  if (isAnd || !IsIntLike(l.kind)) l = b.ToTruth(l);
  if (isAnd || !IsIntLike(r.kind)) r = b.ToTruth(r);
  l = b.ToReg(l);
  r = b.ToReg(r);
  const uint16_t reg = ResultAt(b, mark);
  b.Emit(isAnd ? Op::AndI : Op::OrI, reg, l.reg, r.reg);
  const Kind kind = std::max(l.kind, r.kind);
  return {b.InReg(kind, reg, TypeDesc::Of(kind)), areOpposites};
}

/// A chain of && and || whose sides are all evaluated, for a jump.
std::optional<Truth> LowerLogicalTruth(CodeBuilder& b, const ExpressionBase& expression) {
  std::vector<const ExpressionOperator*> chain;  // walked down and up again as in LowerNode
  const ExpressionBase* bottom = &expression;
  while (bottom->GetKind() == EXPRESSION_OPERATOR) {
    const auto* op = static_cast<const ExpressionOperator*>(bottom);
    if (!IsLogical(op->GetOperator())) break;
    for (uint32_t i = 0; i < 2; ++i)
      if (!IsIntLike(op->GetChild(i)->Type()->GetKind())) return {};
    chain.push_back(op);
    bottom = op->GetChild(0);
  }
  const uint32_t mark = b.Mark();
  Truth truth = LowerTruth(b, *bottom);
  for (auto node = chain.rbegin(); node != chain.rend(); ++node) {
    const Truth right = LowerTruth(b, *(*node)->GetChild(1));
    const SourceMark source(b, (*node)->SourceOffset());
    truth = JoinTruths(b, **node, mark, truth, right);
  }
  return truth;
}

/// Whether a comparison of these static types compares numbers.
bool ComparesNumbers(const ExpressionOperator& op) {
  for (uint32_t i = 0; i < 2; ++i) {
    Kind kind = op.GetChild(i)->Type()->GetKind();
    if (!IsNumeric(kind)) return false;
  }
  return true;
}

/// Tests an expression as a jump does, which reads it as an integer, or as an operand of a logical
/// operator (`asTruth`), for which 0.5 is not 0.
void LowerTest(CodeBuilder& b, const ExpressionBase& expression, Label& target, bool jumpWhen,
               bool asTruth) {
  const uint32_t mark = b.Mark();
  const ExpressionBase& node = Unwrap(expression);
  const SourceMark source(b, node.SourceOffset());
  if (node.GetKind() == EXPRESSION_OPERATOR) {
    const auto& op = static_cast<const ExpressionOperator&>(node);
    if (op.GetOperator() == Ops::OP_NOT) {
      const Kind kind = op.GetChild(0)->Type()->GetKind();
      if (kind >= Kind::Bool && kind <= Kind::Int) {
        LowerTest(b, *op.GetChild(0), target, !jumpWhen, true);
        return;
      }
    }
    if (IsLogical(op.GetOperator()) && LowerLogicalCondition(b, op, target, jumpWhen)) return;
    if (ComparesTextsForEquality(op) && !b.WideJumps()) {
      const Operand left = op.GetChild(0)->Lower(b);
      const Operand right = op.GetChild(1)->Lower(b);
      LowerTextTest(b, op, mark, left, right, target, jumpWhen);
      b.Reset(mark);
      return;
    }
    if (IsComparison(op.GetOperator()) && ComparesNumbers(op) && !b.WideJumps()) {
      const Operand left = op.GetChild(0)->Lower(b);
      const Operand right = op.GetChild(1)->Lower(b);
      if (left.kind != Kind::Any && right.kind != Kind::Any) {
        EmitCompareJump(b, op.GetOperator(), jumpWhen, left, right, target);
      } else {
        const Operand value =
            b.ToReg(b.ToCondition(LowerGeneric(b, op.GetOperatorIndex(), left, &right, mark)));
        b.EmitJump(jumpWhen ? Op::JT : Op::JF, value.reg, 0, target);
      }
      b.Reset(mark);
      return;
    }
  }
  std::optional<Truth> truth;
  const bool isLogical = node.GetKind() == EXPRESSION_OPERATOR &&
                         IsLogical(static_cast<const ExpressionOperator&>(node).GetOperator());
  if (isLogical) truth = LowerLogicalTruth(b, node);
  const Operand operand = truth ? truth->value : expression.Lower(b);
  if (truth && truth->isOpposite) jumpWhen = !jumpWhen;
  Operand value = asTruth ? b.ToTruth(operand) : b.ToCondition(operand);
  if (value.place == Operand::Place::Imm) {
    if ((value.imm != 0) == jumpWhen) b.Jump(target);
  } else {
    value = b.ToReg(value);
    b.EmitJump(jumpWhen ? Op::JT : Op::JF, value.reg, 0, target);
  }
  b.Reset(mark);
}

}  // namespace

bool CanBeSkipped(const CodeBuilder& b, const ExpressionBase& expression) {
  return CanBeSkippedBelow(b, expression, 0);
}

void LowerCondition(CodeBuilder& b, const ExpressionBase& expression, Label& target,
                    bool jumpWhen) {
  LowerTest(b, expression, target, jumpWhen, false);
}

}  // namespace tamber
