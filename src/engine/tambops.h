#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "engine/stack.h"
#include "kel/export.h"
#include "kel/kelstring.h"
#include "values/typedesc.h"
#include "values/variable.h"

/// The operators of the script language: how they are written and how tightly they bind, which
/// operand types they take, and what they compute on the evaluation stack.
class TAMBER_API TamberOperators {
 public:
  enum Operator_e : int32_t {
    OP_NONE = 0,
    OP_MULTIPLY = 1,
    OP_DIVIDE = 2,
    OP_REMAIN = 3,
    OP_ADD = 4,
    OP_SUBTRACT = 5,
    OP_LESS = 6,
    OP_GREATER = 7,
    OP_LESSEQUAL = 8,
    OP_GREATEREQUAL = 9,
    OP_EQUAL = 10,
    OP_NOTEQUAL = 11,
    OP_AND = 12,
    OP_OR = 13,
    OP_BITAND = 14,
    OP_BITOR = 15,
    OP_BITXOR = 16,
    OP_STRUCTMEMBER = 17,
    OP_ARRAYINDEX = 18,
    OP_SHIFTLEFT = 19,
    OP_SHIFTRIGHT = 20,
    OP_NEGATE = 21,
    OP_NOT = 22,
    OP_COMPLEMENT = 23,
  };

  /// An implementation: pops its operands (the right one is on top) and pushes one result.
  /// 1 for success; 0 leaves the reason in the error code.
  using Implementation = int32_t (TamberOperators::*)(Stack*, Variable::enum_TypeId left,
                                                      Variable::enum_TypeId right);
  struct BINARYOP {
    std::string_view text;
    Operator_e code;
    uint8_t precedence;
    Implementation implementation;
  };
  struct UNARYOP {
    std::string_view text;
    Operator_e code;
    Implementation implementation;
  };
  /// Both end with a record of code 0.
  static const std::array<BINARYOP, 21> BinaryOperators;
  static const std::array<UNARYOP, 4> UnaryOperators;

  /// The operator written so, or OP_NONE.
  static Operator_e CheckBinaryOperator(std::string_view text);
  static Operator_e CheckUnaryOperator(std::string_view text);
  /// What ExecuteOperator and the next two take: below 100 a position in the table of the binary
  /// operators, from 100 up one in the table of the unary ones. -1 for OP_NONE.
  static int32_t GetOperatorIndex(Operator_e code);
  /// 2 for a binary operator, 1 for a unary one.
  static int32_t GetOperatorParamCount(int32_t index);
  /// The operator as it is written; "" for an index without an operator.
  static KelString GetOperatorName(int32_t index);
  /// Above 0 when `a` binds tighter than `b`, below 0 when looser.
  static int32_t ComparePrecedence(Operator_e a, Operator_e b);

  /// A prototype of the result for operands of these types (a unary operator has no right one), on
  /// borrowed and never to be changed. Null when the operator does not take them, with error 20504;
  /// null without an error for an element of an array whose element type is known only when it
  /// runs.
  const Variable* GetReturnType(Operator_e code, const Variable* left, const Variable* right);

  /// Applies the operator with this index to the top of the stack: 1, or 0 with an error code.
  int32_t ExecuteOperator(int32_t index, Stack* stack);
  /// Replaces the top entry by its string: TRUE or FALSE, the character, a number in decimal.
  void MakeStr(Stack* stack);

  /// Why the last ExecuteOperator failed, 0 when it did not, and the object of that error. "+" that
  /// runs out of memory sets 20113 although it succeeds with the integer 0.
  int32_t GetOperatorError() const { return operatorError_; }
  const KelString& GetOperatorErrorText() const { return operatorErrorText_; }

  /// Nonzero: comparisons of strings distinguish upper from lower case.
  void SetCaseSwitch(int32_t value) { caseSwitch_ = value; }
  int32_t GetCaseSwitch() const { return caseSwitch_; }

  /// Whether `%` by zero raises the arithmetic fault (by default) or is only the error of `/`.
  void SetRemainderFaults(bool faults) { remainderFaults_ = faults; }

  // What the expression compiler uses.
  /// The result type of an operator, or a null reference with `error` set when it does not take
  /// these types. `right` is null for a unary operator. Kind Any is taken everywhere, with result
  /// Any: it is checked when it runs. A member named by a literal is MemberType's business; here
  /// "." yields Any.
  static tamber::TypeRef ResultType(Operator_e code, const tamber::TypeDesc* left,
                                    const tamber::TypeDesc* right, int32_t& error);
  /// The type of a structure's member; null with `error` set when there is none.
  static tamber::TypeRef MemberType(const tamber::TypeDesc& structure, std::string_view member,
                                    int32_t& error);
  /// The kind of the value that is really computed, where it differs from the declared result:
  /// 'a' + 1 and ~'a' are integers whatever the table of types says. `right` is None for a unary
  /// operator. Any when one side is Any; None for operands that the operator refuses at run time.
  static tamber::Kind ValueKind(Operator_e code, tamber::Kind left, tamber::Kind right);

 private:
  TAMBER_LOCAL int32_t OpMultiply(Stack*, Variable::enum_TypeId, Variable::enum_TypeId);
  TAMBER_LOCAL int32_t OpDivide(Stack*, Variable::enum_TypeId, Variable::enum_TypeId);
  TAMBER_LOCAL int32_t OpRemain(Stack*, Variable::enum_TypeId, Variable::enum_TypeId);
  TAMBER_LOCAL int32_t OpAdd(Stack*, Variable::enum_TypeId, Variable::enum_TypeId);
  TAMBER_LOCAL int32_t OpSubtract(Stack*, Variable::enum_TypeId, Variable::enum_TypeId);
  TAMBER_LOCAL int32_t OpIsLessThan(Stack*, Variable::enum_TypeId, Variable::enum_TypeId);
  TAMBER_LOCAL int32_t OpIsGreaterThan(Stack*, Variable::enum_TypeId, Variable::enum_TypeId);
  TAMBER_LOCAL int32_t OpIsLessEqual(Stack*, Variable::enum_TypeId, Variable::enum_TypeId);
  TAMBER_LOCAL int32_t OpIsGreaterEqual(Stack*, Variable::enum_TypeId, Variable::enum_TypeId);
  TAMBER_LOCAL int32_t OpIsEqual(Stack*, Variable::enum_TypeId, Variable::enum_TypeId);
  TAMBER_LOCAL int32_t OpIsNotEqual(Stack*, Variable::enum_TypeId, Variable::enum_TypeId);
  TAMBER_LOCAL int32_t OpAnd(Stack*, Variable::enum_TypeId, Variable::enum_TypeId);
  TAMBER_LOCAL int32_t OpOr(Stack*, Variable::enum_TypeId, Variable::enum_TypeId);
  TAMBER_LOCAL int32_t OpBitAnd(Stack*, Variable::enum_TypeId, Variable::enum_TypeId);
  TAMBER_LOCAL int32_t OpBitOr(Stack*, Variable::enum_TypeId, Variable::enum_TypeId);
  TAMBER_LOCAL int32_t OpBitXor(Stack*, Variable::enum_TypeId, Variable::enum_TypeId);
  TAMBER_LOCAL int32_t OpStructMember(Stack*, Variable::enum_TypeId, Variable::enum_TypeId);
  TAMBER_LOCAL int32_t OpArrayIndex(Stack*, Variable::enum_TypeId, Variable::enum_TypeId);
  TAMBER_LOCAL int32_t OpShiftLeft(Stack*, Variable::enum_TypeId, Variable::enum_TypeId);
  TAMBER_LOCAL int32_t OpShiftRight(Stack*, Variable::enum_TypeId, Variable::enum_TypeId);
  TAMBER_LOCAL int32_t OpNegate(Stack*, Variable::enum_TypeId, Variable::enum_TypeId);
  TAMBER_LOCAL int32_t OpNot(Stack*, Variable::enum_TypeId, Variable::enum_TypeId);
  TAMBER_LOCAL int32_t OpComplement(Stack*, Variable::enum_TypeId, Variable::enum_TypeId);

  TAMBER_LOCAL const Variable* GetStructReturnType(const Variable* left, const Variable* right);
  TAMBER_LOCAL const Variable* GetArrayReturnType(const Variable* left, const Variable* right);
  TAMBER_LOCAL int32_t Fail(int32_t code, std::string_view text = {});
  template <Operator_e kCode, class Compute>
  TAMBER_LOCAL int32_t Arithmetic(Stack* stack, Compute compute);
  template <Operator_e kCode, class Compute>
  TAMBER_LOCAL int32_t Integral(Stack* stack, Compute compute);
  template <Operator_e kCode, class Compute>
  TAMBER_LOCAL int32_t Compare(Stack* stack, Compute compute);
  TAMBER_LOCAL int32_t Join(Stack* stack);

  int32_t operatorError_ = 0;
  int32_t caseSwitch_ = 0;
  bool remainderFaults_ = true;
  KelString operatorErrorText_;
};
