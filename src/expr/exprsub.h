#pragma once

#include "expr/exprbase.h"

/// A parenthesised expression; its only child is what stands between the parentheses.
class ExpressionSubExpression final : public ExpressionBase {
 public:
  explicit ExpressionSubExpression(std::unique_ptr<ExpressionBase> inner);

  void Dump(KelString& out) const override;

 private:
  tamber::Operand LowerNode(tamber::CodeBuilder& builder) const override;
};
