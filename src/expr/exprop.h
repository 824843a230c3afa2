#pragma once

#include "engine/tambops.h"
#include "expr/exprbase.h"

namespace tamber {
class Label;
}

/// An operator and its operands.
class ExpressionOperator final : public ExpressionBase {
 public:
  explicit ExpressionOperator(TamberOperators::Operator_e code);

  TamberOperators::Operator_e GetOperator() const { return code_; }
  /// What TamberOperators::ExecuteOperator takes.
  int32_t GetOperatorIndex() const { return index_; }
  uint32_t GetOperandCount() const { return operandCount_; }
  bool IsSelector() const {
    return code_ == TamberOperators::OP_ARRAYINDEX || code_ == TamberOperators::OP_STRUCTMEMBER;
  }
  /// The member that a "." selects; "" for every other operator.
  const tamber::Name& MemberName() const { return memberName_; }
  void SetMemberName(const tamber::Name& name) { memberName_ = name; }

  void Dump(KelString& out) const override;

 private:
  tamber::Operand LowerNode(tamber::CodeBuilder& builder) const override;
  tamber::Operand LowerUnary(tamber::CodeBuilder& builder) const;
  tamber::Operand LowerSelector(tamber::CodeBuilder& builder, uint32_t mark,
                                const tamber::Operand& left, bool isProcedures) const;
  bool IsKnownPart(const tamber::CodeBuilder& builder, const tamber::Operand& left) const;
  tamber::Operand LowerKnownPart(tamber::CodeBuilder& builder, uint32_t mark,
                                 const tamber::Operand& left) const;
  tamber::Operand LowerBinary(tamber::CodeBuilder& builder, uint32_t mark,
                              const tamber::Operand& left) const;

  TamberOperators::Operator_e code_;
  int32_t index_;
  uint32_t operandCount_;
  tamber::Name memberName_;
};

namespace tamber {

/// Emits a jump to `target` that is taken when the expression, as a condition, is false (or, with
/// `jumpWhen`, true).
void LowerCondition(CodeBuilder& builder, const ExpressionBase& expression, Label& target,
                    bool jumpWhen);

/// The operand below any parentheses.
const ExpressionBase& Unwrap(const ExpressionBase& expression);

/// Whether leaving the expression out cannot be noticed: it calls nothing, cannot fail and reads
/// nothing that may be missing.
bool CanBeSkipped(const CodeBuilder& builder, const ExpressionBase& expression);

}  // namespace tamber
