#include "engine/tambops.h"

#include <algorithm>
#include <new>
#include <string>
#include <utility>

#include "engine/arith.h"
#include "engine/stackoperand.h"
#include "kel/fault.h"
#include "values/arraydata.h"
#include "values/cellops.h"
#include "values/errcodes.h"
#include "values/store.h"
#include "values/strbuf.h"
#include "values/structdata.h"
#include "values/varholder.h"

using tamber::Cell;
using tamber::Kind;
using tamber::StackOperand;
namespace arith = tamber::arith;

constexpr std::array<TamberOperators::BINARYOP, 21> TamberOperators::BinaryOperators{{
    {".", OP_STRUCTMEMBER, 11, &TamberOperators::OpStructMember},
    {"[]", OP_ARRAYINDEX, 11, &TamberOperators::OpArrayIndex},
    {"*", OP_MULTIPLY, 10, &TamberOperators::OpMultiply},
    {"/", OP_DIVIDE, 10, &TamberOperators::OpDivide},
    {"%", OP_REMAIN, 10, &TamberOperators::OpRemain},
    {"+", OP_ADD, 9, &TamberOperators::OpAdd},
    {"-", OP_SUBTRACT, 9, &TamberOperators::OpSubtract},
    {"<<", OP_SHIFTLEFT, 8, &TamberOperators::OpShiftLeft},
    {">>", OP_SHIFTRIGHT, 8, &TamberOperators::OpShiftRight},
    {"<", OP_LESS, 7, &TamberOperators::OpIsLessThan},
    {">", OP_GREATER, 7, &TamberOperators::OpIsGreaterThan},
    {"<=", OP_LESSEQUAL, 7, &TamberOperators::OpIsLessEqual},
    {">=", OP_GREATEREQUAL, 7, &TamberOperators::OpIsGreaterEqual},
    {"==", OP_EQUAL, 6, &TamberOperators::OpIsEqual},
    {"!=", OP_NOTEQUAL, 6, &TamberOperators::OpIsNotEqual},
    // Meant so: "&" binds tighter than "|", and "|" tighter than "^".
    {"&", OP_BITAND, 5, &TamberOperators::OpBitAnd},
    {"|", OP_BITOR, 4, &TamberOperators::OpBitOr},
    {"^", OP_BITXOR, 3, &TamberOperators::OpBitXor},
    {"&&", OP_AND, 2, &TamberOperators::OpAnd},
    {"||", OP_OR, 1, &TamberOperators::OpOr},
    {"", OP_NONE, 0, nullptr},
}};

constexpr std::array<TamberOperators::UNARYOP, 4> TamberOperators::UnaryOperators{{
    {"~", OP_COMPLEMENT, &TamberOperators::OpComplement},
    {"-", OP_NEGATE, &TamberOperators::OpNegate},
    {"!", OP_NOT, &TamberOperators::OpNot},
    {"", OP_NONE, nullptr},
}};

namespace {

constexpr int32_t kFirstUnaryIndex = 100;
constexpr int32_t kUnaryPrecedence = 100;

constexpr size_t kCodes = TamberOperators::OP_COMPLEMENT + 1;
using Code = TamberOperators::Operator_e;

/// Operators by their characters: alone, before "=", twice.
struct Spellings {
  std::array<Code, 128> alone{};
  std::array<Code, 128> beforeEqual{};
  std::array<Code, 128> twice{};

  template <class Table>
  constexpr explicit Spellings(const Table& table) {
    for (const auto& row : table) {
      if (row.text.empty() || row.text == "[]") continue;
      const auto first = static_cast<size_t>(row.text[0]);
      (row.text.size() == 1 ? alone : row.text[1] == '=' ? beforeEqual : twice)[first] = row.code;
    }
  }
  constexpr Code Find(std::string_view text) const {
    const auto first = static_cast<unsigned char>(text.empty() ? '\0' : text[0]);
    if (first == 0 || first >= alone.size() || text.size() > 2) return Code::OP_NONE;
    if (text.size() == 1) return alone[first];
    if (text[1] == '=') return beforeEqual[first];
    return text[1] == text[0] ? twice[first] : Code::OP_NONE;
  }
};

/// What is asked of an operator over and over, by its code.
struct Facts {
  int32_t index = -1;
  int32_t precedence = kUnaryPrecedence;
};

constexpr std::array<Facts, kCodes> MakeFacts() {
  std::array<Facts, kCodes> facts;
  int32_t index = 0;
  for (const auto& row : TamberOperators::BinaryOperators) {
    if (row.code != Code::OP_NONE) facts[static_cast<size_t>(row.code)] = {index, row.precedence};
    ++index;
  }
  index = kFirstUnaryIndex;
  for (const auto& row : TamberOperators::UnaryOperators) {
    if (row.code != Code::OP_NONE) facts[static_cast<size_t>(row.code)].index = index;
    ++index;
  }
  return facts;
}

const Facts& FactsOf(Code code) {
  static constexpr std::array<Facts, kCodes> kFacts = MakeFacts();
  return kFacts[static_cast<size_t>(code) < kCodes ? static_cast<size_t>(code) : 0];
}

/// The record at `position`; the terminator for a position that is none.
template <class Table>
const auto& RowAt(const Table& table, int32_t position) {
  const bool inside = position >= 0 && static_cast<size_t>(position) < table.size();
  return inside ? table[static_cast<size_t>(position)] : table.back();
}

/// Pushes an integer as a value of this kind; chars keep its low byte.
void PushIntegral(Stack& stack, Kind kind, int32_t value) {
  if (kind == Kind::Int) return stack.PushInteger(value);
  if (kind == Kind::Char) return stack.PushChar(static_cast<char>(value));
  stack.PushBoolean(value);
}

/// Pushes what `compute` makes of the two operands read as numbers of this kind.
template <class Compute>
void PushComputed(Stack& stack, Kind kind, const StackOperand& left, const StackOperand& right,
                  Compute compute) {
  switch (kind) {
    case Kind::Double:
      return stack.PushDouble(compute(left.AsDouble(), right.AsDouble()));
    case Kind::Float:
      return stack.PushFloat(compute(left.AsFloat(), right.AsFloat()));
    default:
      return PushIntegral(stack, kind, compute(left.AsInt(), right.AsInt()));
  }
}

bool IsZero(const StackOperand& operand, Kind kind) {
  switch (kind) {
    case Kind::Double:
      return operand.AsDouble() == 0.0;
    case Kind::Float:
      return operand.AsFloat() == 0.0f;
    default:
      return operand.AsInt() == 0;
  }
}

}  // namespace

TamberOperators::Operator_e TamberOperators::CheckBinaryOperator(std::string_view text) {
  static constexpr Spellings kSpellings(BinaryOperators);
  return text == "[]" ? OP_ARRAYINDEX : kSpellings.Find(text);
}

TamberOperators::Operator_e TamberOperators::CheckUnaryOperator(std::string_view text) {
  static constexpr Spellings kSpellings(UnaryOperators);
  return kSpellings.Find(text);
}

int32_t TamberOperators::GetOperatorIndex(Operator_e code) { return FactsOf(code).index; }

int32_t TamberOperators::GetOperatorParamCount(int32_t index) {
  return index < kFirstUnaryIndex ? 2 : 1;
}

KelString TamberOperators::GetOperatorName(int32_t index) {
  return index < kFirstUnaryIndex ? RowAt(BinaryOperators, index).text
                                  : RowAt(UnaryOperators, index - kFirstUnaryIndex).text;
}

int32_t TamberOperators::ComparePrecedence(Operator_e a, Operator_e b) {
  return FactsOf(a).precedence - FactsOf(b).precedence;
}

int32_t TamberOperators::ExecuteOperator(int32_t index, Stack* stack) {
  operatorError_ = ERR_SUCCESS;
  operatorErrorText_.Clear();
  const Implementation run = index < kFirstUnaryIndex
                                 ? RowAt(BinaryOperators, index).implementation
                                 : RowAt(UnaryOperators, index - kFirstUnaryIndex).implementation;
  if (run == nullptr || stack == nullptr ||
      stack->GetSize() < static_cast<uint32_t>(GetOperatorParamCount(index))) {
    return Fail(ERR_EXPROPBADPARAMS);
  }
  try {
    return (this->*run)(stack, stack->GetTypeId(1), stack->GetTypeId(0));
  } catch (const std::bad_alloc&) {
    return Fail(ERR_NOMEMORY);
  }
}

void TamberOperators::MakeStr(Stack* stack) {
  if (stack == nullptr) return;
  // Boolean to Handle are the types that have a text form.
  const Variable::enum_TypeId type = stack->GetTypeId(0);
  if (type < Variable::Boolean || type > Variable::Handle) return;
  try {
    std::string text;
    StackOperand(*stack).AppendTo(text);
    stack->PushString(KelString(std::move(text)));
  } catch (const std::bad_alloc&) {
    Fail(ERR_NOMEMORY);
    stack->PushString(KelString());
  }
}

int32_t TamberOperators::Fail(int32_t code, std::string_view text) {
  operatorError_ = code;
  operatorErrorText_ = KelString(text);
  return 0;
}

template <TamberOperators::Operator_e kCode, class Compute>
int32_t TamberOperators::Arithmetic(Stack* stack, Compute compute) {
  const StackOperand right(*stack);
  const StackOperand left(*stack);
  const Kind kind = ValueKind(kCode, left.GetKind(), right.GetKind());
  if (kind == Kind::None) return Fail(ERR_EXPRPARMMATCH);
  PushComputed(*stack, kind, left, right, compute);
  return 1;
}

/// For operators that know integers and chars only.
template <TamberOperators::Operator_e kCode, class Compute>
int32_t TamberOperators::Integral(Stack* stack, Compute compute) {
  const StackOperand right(*stack);
  const StackOperand left(*stack);
  const Kind kind = ValueKind(kCode, left.GetKind(), right.GetKind());
  if (kind == Kind::None) return Fail(ERR_EXPRPARMMATCH);
  PushIntegral(*stack, kind, compute(left.AsInt(), right.AsInt()));
  return 1;
}

/// `compute` sees two numbers, or the order of two texts and 0.
template <TamberOperators::Operator_e kCode, class Compute>
int32_t TamberOperators::Compare(Stack* stack, Compute compute) {
  const StackOperand right(*stack);
  const StackOperand left(*stack);
  if (ValueKind(kCode, left.GetKind(), right.GetKind()) == Kind::None) {
    return Fail(ERR_EXPRPARMMATCH);
  }
  if (left.IsText() && right.IsText()) {
    stack->PushBoolean(
        compute(tamber::CompareText(left.Text(), right.Text(), caseSwitch_ != 0), 0));
    return 1;
  }
  // Against a handle only an integer gets here: the handle's number is compared.
  const bool withHandle = left.GetKind() == Kind::Handle || right.GetKind() == Kind::Handle;
  switch (withHandle ? Kind::Int : std::max(left.GetKind(), right.GetKind())) {
    case Kind::Double:
      stack->PushBoolean(compute(left.AsDouble(), right.AsDouble()));
      break;
    case Kind::Float:
      stack->PushBoolean(compute(left.AsFloat(), right.AsFloat()));
      break;
    default:
      stack->PushBoolean(compute(left.AsInt(), right.AsInt()));
      break;
  }
  return 1;
}

int32_t TamberOperators::OpMultiply(Stack* stack, Variable::enum_TypeId, Variable::enum_TypeId) {
  return Arithmetic<OP_MULTIPLY>(stack, [](auto a, auto b) { return arith::Mul(a, b); });
}

int32_t TamberOperators::OpAdd(Stack* stack, Variable::enum_TypeId left,
                               Variable::enum_TypeId right) {
  if (left == Variable::String || right == Variable::String) return Join(stack);
  return Arithmetic<OP_ADD>(stack, [](auto a, auto b) { return arith::Add(a, b); });
}

int32_t TamberOperators::OpSubtract(Stack* stack, Variable::enum_TypeId, Variable::enum_TypeId) {
  return Arithmetic<OP_SUBTRACT>(stack, [](auto a, auto b) { return arith::Sub(a, b); });
}

int32_t TamberOperators::OpDivide(Stack* stack, Variable::enum_TypeId, Variable::enum_TypeId) {
  const StackOperand right(*stack);
  const StackOperand left(*stack);
  const Kind kind = ValueKind(OP_DIVIDE, left.GetKind(), right.GetKind());
  if (kind == Kind::None) return Fail(ERR_EXPRPARMMATCH);
  if (!IsZero(right, kind)) {
    PushComputed(*stack, kind, left, right, [](auto a, auto b) { return arith::Div(a, b); });
    return 1;
  }
  switch (kind) {
    case Kind::Double:
      stack->PushDouble(0);
      break;
    case Kind::Float:
      stack->PushFloat(0);
      break;
    default:
      stack->PushInteger(0);
      break;  // for chars too
  }
  return Fail(ERR_DIVIDEBYZERO);
}

// "%" has no zero test of its own, unlike "/": a zero divisor is the host's arithmetic fault. It is
// raised as a signal, not left to the instruction: that would fault again for ever under a handler
// that returns. Such a handler gets the error of "/".
int32_t TamberOperators::OpRemain(Stack* stack, Variable::enum_TypeId, Variable::enum_TypeId) {
  const StackOperand right(*stack);
  const StackOperand left(*stack);
  const Kind kind = ValueKind(OP_REMAIN, left.GetKind(), right.GetKind());
  if (kind == Kind::None) return Fail(ERR_EXPRPARMMATCH);
  if (right.AsInt() == 0) {
    if (remainderFaults_) kel::RaiseArithmeticFault();
    stack->PushInteger(0);
    return Fail(ERR_DIVIDEBYZERO);
  }
  PushIntegral(*stack, kind, tamber::RemInt(left.AsInt(), right.AsInt()));
  return 1;
}

int32_t TamberOperators::OpIsLessThan(Stack* stack, Variable::enum_TypeId, Variable::enum_TypeId) {
  return Compare<OP_LESS>(stack, [](auto a, auto b) { return a < b; });
}

int32_t TamberOperators::OpIsGreaterThan(Stack* stack, Variable::enum_TypeId,
                                         Variable::enum_TypeId) {
  return Compare<OP_GREATER>(stack, [](auto a, auto b) { return a > b; });
}

int32_t TamberOperators::OpIsLessEqual(Stack* stack, Variable::enum_TypeId, Variable::enum_TypeId) {
  return Compare<OP_LESSEQUAL>(stack, [](auto a, auto b) { return a <= b; });
}

int32_t TamberOperators::OpIsGreaterEqual(Stack* stack, Variable::enum_TypeId,
                                          Variable::enum_TypeId) {
  return Compare<OP_GREATEREQUAL>(stack, [](auto a, auto b) { return a >= b; });
}

int32_t TamberOperators::OpIsEqual(Stack* stack, Variable::enum_TypeId, Variable::enum_TypeId) {
  return Compare<OP_EQUAL>(stack, [](auto a, auto b) { return a == b; });
}

int32_t TamberOperators::OpIsNotEqual(Stack* stack, Variable::enum_TypeId, Variable::enum_TypeId) {
  return Compare<OP_NOTEQUAL>(stack, [](auto a, auto b) { return a != b; });
}

// Both operands of "&&" and "||" were evaluated before the operator runs: there is no short cut.
int32_t TamberOperators::OpAnd(Stack* stack, Variable::enum_TypeId, Variable::enum_TypeId) {
  return Compare<OP_AND>(stack, [](auto a, auto b) { return a != 0 && b != 0; });
}

int32_t TamberOperators::OpOr(Stack* stack, Variable::enum_TypeId, Variable::enum_TypeId) {
  return Compare<OP_OR>(stack, [](auto a, auto b) { return a != 0 || b != 0; });
}

int32_t TamberOperators::OpBitAnd(Stack* stack, Variable::enum_TypeId, Variable::enum_TypeId) {
  return Integral<OP_BITAND>(stack, [](int32_t a, int32_t b) { return a & b; });
}

int32_t TamberOperators::OpBitOr(Stack* stack, Variable::enum_TypeId, Variable::enum_TypeId) {
  return Integral<OP_BITOR>(stack, [](int32_t a, int32_t b) { return a | b; });
}

int32_t TamberOperators::OpBitXor(Stack* stack, Variable::enum_TypeId, Variable::enum_TypeId) {
  return Integral<OP_BITXOR>(stack, [](int32_t a, int32_t b) { return a ^ b; });
}

int32_t TamberOperators::OpShiftLeft(Stack* stack, Variable::enum_TypeId, Variable::enum_TypeId) {
  return Integral<OP_SHIFTLEFT>(stack, &tamber::ShlInt);
}

int32_t TamberOperators::OpShiftRight(Stack* stack, Variable::enum_TypeId, Variable::enum_TypeId) {
  return Integral<OP_SHIFTRIGHT>(stack, &tamber::ShrInt);
}

int32_t TamberOperators::OpNegate(Stack* stack, Variable::enum_TypeId, Variable::enum_TypeId) {
  const StackOperand operand(*stack);
  const Kind kind = ValueKind(OP_NEGATE, operand.GetKind(), Kind::None);
  if (kind == Kind::None) return Fail(ERR_EXPRPARMMATCH);
  PushComputed(*stack, kind, operand, operand, [](auto a, auto) { return arith::Neg(a); });
  return 1;
}

int32_t TamberOperators::OpNot(Stack* stack, Variable::enum_TypeId, Variable::enum_TypeId) {
  const StackOperand operand(*stack);
  if (ValueKind(OP_NOT, operand.GetKind(), Kind::None) == Kind::None) {
    return Fail(ERR_EXPRPARMMATCH);
  }
  stack->PushBoolean(operand.AsBool() == 0);
  return 1;
}

int32_t TamberOperators::OpComplement(Stack* stack, Variable::enum_TypeId, Variable::enum_TypeId) {
  const StackOperand operand(*stack);
  if (ValueKind(OP_COMPLEMENT, operand.GetKind(), Kind::None) == Kind::None) {
    return Fail(ERR_EXPRPARMMATCH);
  }
  stack->PushInteger(~operand.AsInt());
  return 1;
}

namespace {

/// Whether a value goes once its part has been taken out, so that the part needs to be no object
/// within it. For an object, what shares with the value would have to be copied whole.
bool IsPassing(const Variable& whole) {
  return tamber::VariableAccess::Holders(whole) == 0 && !tamber::VariableAccess::IsReference(whole);
}

/// The element as a variable with a holder; null when there is none.
Variable* TakeElement(Variable& array, uint32_t index) {
  const tamber::ArrayData* data = tamber::CellOf(array)->a;
  Variable* copy = nullptr;
  if (IsPassing(array) && data != nullptr && !tamber::HoldsObjects(data->StorageKind()) &&
      tamber::CopyElement(data, static_cast<int32_t>(index), copy) == tamber::Stored::Done)
    return copy;
  Variable* element = array.GetArrayElement(index);
  return element != nullptr ? element->Duplicate() : nullptr;
}

Variable* TakeMember(Variable& structure, uint32_t index) {
  const tamber::StructData& data = *tamber::CellOf(structure)->st;
  Variable* copy = nullptr;
  if (IsPassing(structure) && index - 1 < data.Count() &&
      !tamber::HoldsObjects(data.MemberKind(index - 1)) &&
      tamber::CopyMember(data, index - 1, copy) == tamber::Stored::Done)
    return copy;
  Variable* member = structure.GetStructElement(index);
  return member != nullptr ? member->Duplicate() : nullptr;
}

}  // namespace

int32_t TamberOperators::OpStructMember(Stack* stack, Variable::enum_TypeId,
                                        Variable::enum_TypeId right) {
  const bool byPosition = right == Variable::Integer;
  uint32_t position = 0;
  KelString name;
  if (byPosition) {
    position = static_cast<uint32_t>(stack->PopInteger());
    name.Printf("%d", position);
  } else {
    stack->PopKelString(name);
  }
  const tamber::VarHolder structure(stack->PopVariable());
  if (!structure || !structure->IsStruct()) return Fail(ERR_VARNOTSTRUCT);
  if (!byPosition) position = structure->GetStructElementIndex(name);
  Variable* member = TakeMember(*structure, position);
  const bool isThere = position - 1 < tamber::CellOf(*structure)->st->Count();
  if (member == nullptr && isThere) return Fail(ERR_NOMEMORY);
  if (member == nullptr) return Fail(ERR_BADSTRUCTEL, name);
  return stack->PushVariable(member) != 0 ? 1 : Fail(ERR_NOMEMORY);
}

int32_t TamberOperators::OpArrayIndex(Stack* stack, Variable::enum_TypeId, Variable::enum_TypeId) {
  const int32_t index = stack->PopInteger();
  const tamber::VarHolder array(stack->PopVariable());
  if (!array || !array->IsArray()) return Fail(ERR_VARNOTARRAY);
  Variable* element = index >= 1 ? TakeElement(*array, static_cast<uint32_t>(index)) : nullptr;
  const bool isThere = static_cast<uint32_t>(index) - 1 < array->GetElementCount();
  if (element == nullptr) return Fail(isThere ? ERR_NOMEMORY : ERR_VARARRAYBOUNDS);
  return stack->PushVariable(element) != 0 ? 1 : Fail(ERR_NOMEMORY);
}

// "+" with a string on either side. The left text grows in place when nobody else holds it, so that
// a long chain of "+" is linear.
int32_t TamberOperators::Join(Stack* stack) {
  const StackOperand right(*stack);
  StackOperand left(*stack);
  if (ValueKind(OP_ADD, left.GetKind(), right.GetKind()) != Kind::String) {
    return Fail(ERR_EXPRPARMMATCH);
  }
  try {
    std::string tail;
    if (!right.IsText()) right.AppendTo(tail);
    Cell joined = tamber::ZeroCell();
    joined.s = left.TakeText();
    try {
      tamber::AppendText(joined.s, right.IsText() ? right.Text() : std::string_view(tail));
    } catch (...) {
      tamber::ReleaseCell(Kind::String, joined);
      throw;
    }
    stack->PushCell(Kind::String, joined);
  } catch (const std::bad_alloc&) {
    // The operator itself succeeds; whoever runs a statement looks at the code.
    Fail(ERR_NOMEMORY);
    stack->PushInteger(0);
  }
  return 1;
}
