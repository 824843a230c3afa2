// Which operand types an operator takes and what comes out, for the expression compiler.

#include <algorithm>
#include <array>
#include <iterator>
#include <new>

#include "engine/tambops.h"
#include "values/cellops.h"
#include "values/errcodes.h"

using tamber::Kind;
using tamber::TypeDesc;
using tamber::TypeRef;

namespace {

/// A set of kinds.
using Kinds = uint16_t;

constexpr Kinds SetOf(Kind kind) { return static_cast<Kinds>(1u << static_cast<unsigned>(kind)); }
constexpr bool Has(Kinds set, Kind kind) { return (set & SetOf(kind)) != 0; }

constexpr Kinds kB = SetOf(Kind::Bool), kC = SetOf(Kind::Char), kI = SetOf(Kind::Int),
                kF = SetOf(Kind::Float), kD = SetOf(Kind::Double), kS = SetOf(Kind::String),
                kH = SetOf(Kind::Handle), kN = SetOf(Kind::None);

/// Every kind of `left` with every kind of `right` gives `result`.
struct TypeRule {
  TamberOperators::Operator_e group;
  Kinds left;
  Kinds right;
  Kind result;
};

// The gaps and the asymmetries are the language's: "+" takes a bool only behind a string; a char
// comes out of char + integer, an integer out of integer + char; "-" does not mix double or float
// with char; bits and shifts mix nothing; a char may stand right of "&&" but not left of it.
constexpr TypeRule kTypeRules[] = {
    {TamberOperators::OP_ADD, kS, kS, Kind::String},
    {TamberOperators::OP_ADD, kS, kD | kF | kI | kC | kB, Kind::String},
    {TamberOperators::OP_ADD, kD | kF | kI | kC, kS, Kind::String},
    {TamberOperators::OP_ADD, kD, kD | kF | kI | kC, Kind::Double},
    {TamberOperators::OP_ADD, kF | kI | kC, kD, Kind::Double},
    {TamberOperators::OP_ADD, kF, kF | kI | kC, Kind::Float},
    {TamberOperators::OP_ADD, kI | kC, kF, Kind::Float},
    {TamberOperators::OP_ADD, kI, kI | kC, Kind::Int},
    {TamberOperators::OP_ADD, kC, kI | kC, Kind::Char},
    {TamberOperators::OP_SUBTRACT, kD, kD | kF | kI, Kind::Double},
    {TamberOperators::OP_SUBTRACT, kF | kI, kD, Kind::Double},
    {TamberOperators::OP_SUBTRACT, kF, kF | kI, Kind::Float},
    {TamberOperators::OP_SUBTRACT, kI, kF, Kind::Float},
    {TamberOperators::OP_SUBTRACT, kI, kI, Kind::Int},
    {TamberOperators::OP_SUBTRACT, kI, kC, Kind::Char},
    {TamberOperators::OP_SUBTRACT, kC, kI | kC, Kind::Char},
    {TamberOperators::OP_REMAIN, kI, kI, Kind::Int},
    {TamberOperators::OP_REMAIN, kC, kC, Kind::Char},
    {TamberOperators::OP_EQUAL, kS, kS, Kind::Bool},
    {TamberOperators::OP_EQUAL, kH, kI, Kind::Bool},
    {TamberOperators::OP_EQUAL, kI, kH, Kind::Bool},
    {TamberOperators::OP_EQUAL, kD | kF | kI | kC, kD | kF | kI | kC, Kind::Bool},
    {TamberOperators::OP_EQUAL, kI | kC, kB, Kind::Bool},
    {TamberOperators::OP_EQUAL, kB, kI | kC | kB, Kind::Bool},
    {TamberOperators::OP_AND, kD | kF | kI | kB, kD | kF | kI | kC | kB, Kind::Bool},
    {TamberOperators::OP_NEGATE, kD, kN, Kind::Double},
    {TamberOperators::OP_NEGATE, kF, kN, Kind::Float},
    {TamberOperators::OP_NEGATE, kI, kN, Kind::Int},
    {TamberOperators::OP_NEGATE, kC, kN, Kind::Char},
    {TamberOperators::OP_NOT, kD | kF | kI | kC | kB, kN, Kind::Bool},
    {TamberOperators::OP_COMPLEMENT, kI, kN, Kind::Int},
    {TamberOperators::OP_COMPLEMENT, kC, kN, Kind::Char},
    {TamberOperators::OP_COMPLEMENT, kB, kN, Kind::Bool},
};

/// The operator under whose rules another one is looked up.
constexpr TamberOperators::Operator_e GroupOf(TamberOperators::Operator_e code) {
  switch (code) {
    case TamberOperators::OP_MULTIPLY:
    case TamberOperators::OP_DIVIDE:
      return TamberOperators::OP_SUBTRACT;
    case TamberOperators::OP_LESS:
    case TamberOperators::OP_GREATER:
    case TamberOperators::OP_LESSEQUAL:
    case TamberOperators::OP_GREATEREQUAL:
    case TamberOperators::OP_NOTEQUAL:
      return TamberOperators::OP_EQUAL;
    case TamberOperators::OP_OR:
      return TamberOperators::OP_AND;
    case TamberOperators::OP_BITAND:
    case TamberOperators::OP_BITOR:
    case TamberOperators::OP_BITXOR:
    case TamberOperators::OP_SHIFTLEFT:
    case TamberOperators::OP_SHIFTRIGHT:
      return TamberOperators::OP_REMAIN;
    default:
      return code;
  }
}

/// An estring is a string wherever it is an operand.
constexpr Kind Plain(Kind kind) { return kind == Kind::EString ? Kind::String : kind; }

constexpr bool IsUnary(TamberOperators::Operator_e code) {
  return code == TamberOperators::OP_NEGATE || code == TamberOperators::OP_NOT ||
         code == TamberOperators::OP_COMPLEMENT;
}

constexpr size_t kKinds = static_cast<size_t>(Kind::Any) + 1;
constexpr size_t kGroups = TamberOperators::OP_COMPLEMENT + 1;
using Results = std::array<Kind, kGroups * kKinds * kKinds>;

constexpr size_t PlaceOf(TamberOperators::Operator_e group, size_t left, size_t right) {
  return (static_cast<size_t>(group) * kKinds + left) * kKinds + right;
}

/// The rules as a table. Of two that fit the first counts.
constexpr Results MakeResults() {
  Results results{};
  for (size_t rule = std::size(kTypeRules); rule-- > 0;) {
    const TypeRule& row = kTypeRules[rule];
    for (size_t left = 0; left < kKinds; ++left) {
      for (size_t right = 0; right < kKinds; ++right) {
        const bool fits =
            Has(row.left, static_cast<Kind>(left)) && Has(row.right, static_cast<Kind>(right));
        if (fits) results[PlaceOf(row.group, left, right)] = row.result;
      }
    }
  }
  return results;
}

Kind FindRule(TamberOperators::Operator_e code, Kind left, Kind right) {
  static constexpr Results kResults = MakeResults();
  return kResults[PlaceOf(GroupOf(code), static_cast<size_t>(left), static_cast<size_t>(right))];
}

/// Structure members and array elements: what may stand behind "." and "[]".
constexpr bool IsMemberKey(Kind kind) {
  return kind == Kind::String || kind == Kind::Int || kind == Kind::Any;
}
constexpr bool IsIndex(Kind kind) { return kind == Kind::Int || kind == Kind::Any; }

TypeRef Refuse(int32_t& error, int32_t code) {
  error = code;
  return {};
}

TypeRef ElementOf(const TypeDesc& array, Kind index, int32_t& error) {
  if (array.GetKind() == Kind::Any && IsIndex(index)) return TypeDesc::Of(Kind::Any);
  if (!array.IsArray()) return Refuse(error, ERR_VARNOTARRAY);
  if (!IsIndex(index)) return Refuse(error, ERR_EXPRPARMMATCH);
  return array.Element() ? array.Element() : TypeDesc::Of(Kind::Any);
}

TypeRef MemberOf(Kind structure, Kind key, int32_t& error) {
  if (structure != Kind::Struct && structure != Kind::Any) return Refuse(error, ERR_VARNOTSTRUCT);
  if (!IsMemberKey(key)) return Refuse(error, ERR_EXPRPARMMATCH);
  return TypeDesc::Of(Kind::Any);
}

/// The kind that two numbers are computed in.
constexpr Kind Promoted(Kind left, Kind right) {
  return tamber::IsNumeric(left) && tamber::IsNumeric(right) ? std::max(left, right) : Kind::None;
}

/// Reals come this far only when the run alone knows the types; they are read as integers.
constexpr Kind IntegralKind(Kind left, Kind right) {
  if (Promoted(left, right) == Kind::None) return Kind::None;
  return left == Kind::Int || right == Kind::Int ? Kind::Int : Kind::Char;
}

constexpr Kind ComparisonKind(Kind left, Kind right) {
  const bool comparable =
      Promoted(left, right) != Kind::None || (left == Kind::String && right == Kind::String) ||
      (left == Kind::Handle && right == Kind::Int) || (left == Kind::Int && right == Kind::Handle);
  return comparable ? Kind::Bool : Kind::None;
}

constexpr Kind SumKind(Kind left, Kind right) {
  const auto joins = [](Kind kind) {
    return kind == Kind::String || kind == Kind::Handle || tamber::IsNumeric(kind);
  };
  const bool withText = left == Kind::String || right == Kind::String;
  if (withText) return joins(left) && joins(right) ? Kind::String : Kind::None;
  return Promoted(left, right);
}

constexpr Kind UnaryKind(TamberOperators::Operator_e code, Kind operand) {
  if (!tamber::IsNumeric(operand)) return Kind::None;
  switch (code) {
    case TamberOperators::OP_NEGATE:
      return operand == Kind::Bool ? Kind::None : operand;
    case TamberOperators::OP_NOT:
      return Kind::Bool;
    default:
      return Kind::Int;
  }
}

/// One empty variable per type that a table lookup can give, shared by the whole process and only
/// ever read: it gets no second holder. Null for every other kind.
const Variable* Prototype(Kind kind) {
  struct Prototypes {
    Variable* ofKind[static_cast<size_t>(Kind::Any) + 1] = {};
    Prototypes() {
      for (Kind k : {Kind::Bool, Kind::Char, Kind::Int, Kind::Float, Kind::Double, Kind::String}) {
        ofKind[static_cast<size_t>(k)] = tamber::MakeVariable(TypeDesc::Of(k), {});
      }
    }
  };
  static const Prototypes* const prototypes = new Prototypes;  // for as long as the process lives
  return prototypes->ofKind[static_cast<size_t>(kind)];
}

}  // namespace

TypeRef TamberOperators::ResultType(Operator_e code, const TypeDesc* left, const TypeDesc* right,
                                    int32_t& error) {
  error = ERR_SUCCESS;
  const Kind leftKind = left != nullptr ? Plain(left->GetKind()) : Kind::None;
  const Kind rightKind = right != nullptr ? Plain(right->GetKind()) : Kind::None;
  const bool complete = leftKind != Kind::None && (rightKind != Kind::None) == !IsUnary(code);
  if (!complete) return Refuse(error, ERR_EXPRPARMMATCH);
  if (code == OP_ARRAYINDEX) return ElementOf(*left, rightKind, error);
  if (code == OP_STRUCTMEMBER) return MemberOf(leftKind, rightKind, error);
  if (leftKind == Kind::Any || rightKind == Kind::Any) return TypeDesc::Of(Kind::Any);
  const Kind result = FindRule(code, leftKind, rightKind);
  return result == Kind::None ? Refuse(error, ERR_EXPRPARMMATCH) : TypeDesc::Of(result);
}

TypeRef TamberOperators::MemberType(const TypeDesc& structure, std::string_view member,
                                    int32_t& error) {
  error = ERR_SUCCESS;
  if (structure.GetKind() == Kind::Any) return TypeDesc::Of(Kind::Any);
  if (structure.GetKind() != Kind::Struct) return Refuse(error, ERR_VARNOTSTRUCT);
  const int32_t at = structure.Layout()->Find(member);
  if (at < 0) return Refuse(error, ERR_BADSTRUCTEL);
  return structure.Layout()->Members()[static_cast<size_t>(at)].type;
}

Kind TamberOperators::ValueKind(Operator_e code, Kind left, Kind right) {
  left = Plain(left);
  right = Plain(right);
  if (left == Kind::None || (right != Kind::None) != !IsUnary(code)) return Kind::None;
  if (left == Kind::Any || right == Kind::Any) return Kind::Any;
  if (IsUnary(code)) return UnaryKind(code, left);
  switch (GroupOf(code)) {
    case OP_ADD:
      return SumKind(left, right);
    case OP_SUBTRACT: {
      const Kind kind = Promoted(left, right);
      return code == OP_DIVIDE && kind == Kind::Bool ? Kind::Char : kind;
    }
    case OP_REMAIN:
      return IntegralKind(left, right);
    case OP_EQUAL:
      return ComparisonKind(left, right);
    case OP_AND:
      return Promoted(left, right) != Kind::None ? Kind::Bool : Kind::None;
    case OP_STRUCTMEMBER:
      return left == Kind::Struct && IsMemberKey(right) ? Kind::Any : Kind::None;
    case OP_ARRAYINDEX:
      return left == Kind::Array && tamber::IsNumeric(right) ? Kind::Any : Kind::None;
    default:
      return Kind::None;
  }
}

const Variable* TamberOperators::GetReturnType(Operator_e code, const Variable* left,
                                               const Variable* right) {
  operatorError_ = ERR_SUCCESS;
  operatorErrorText_.Clear();
  if (left == nullptr) {
    Fail(ERR_EXPRPARMMATCH);
    return nullptr;
  }
  try {
    if (code == OP_STRUCTMEMBER) return GetStructReturnType(left, right);
    if (code == OP_ARRAYINDEX) return GetArrayReturnType(left, right);
    const TypeRef leftType = tamber::TypeOf(*left);
    const TypeRef rightType = right != nullptr ? tamber::TypeOf(*right) : TypeRef();
    const TypeRef result = ResultType(code, leftType.Get(), rightType.Get(), operatorError_);
    return result ? Prototype(result->GetKind()) : nullptr;
  } catch (const std::bad_alloc&) {
    Fail(ERR_NOMEMORY);
    return nullptr;
  }
}

const Variable* TamberOperators::GetStructReturnType(const Variable* left, const Variable* right) {
  const Variable* member = nullptr;
  if (left->IsStruct() && right != nullptr) {
    member = right->GetTypeId() == Variable::Integer
                 ? left->GetStructElement(static_cast<uint32_t>(right->GetIntegerValue()))
                 : left->GetStructElement(KelString(right->GetStringValue()));
  }
  if (member == nullptr) Fail(left->IsStruct() ? ERR_BADSTRUCTEL : ERR_VARNOTSTRUCT);
  return member;
}

const Variable* TamberOperators::GetArrayReturnType(const Variable* left, const Variable* right) {
  if (left->IsArray() && right != nullptr && right->GetTypeId() == Variable::Integer) {
    return left->GetArrayElementType();
  }
  Fail(left->IsArray() ? ERR_EXPRPARMMATCH : ERR_VARNOTARRAY);
  return nullptr;
}
