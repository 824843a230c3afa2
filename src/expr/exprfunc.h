#pragma once

#include "expr/exprbase.h"
#include "functions/function.h"

/// A call of a built-in function, bound to one overload. The children are the arguments.
class ExpressionFunction final : public ExpressionBase {
 public:
  explicit ExpressionFunction(std::shared_ptr<const TamberFunction> function);

  const TamberFunction& Function() const { return *function_; }

  void Dump(KelString& out) const override;

 private:
  tamber::Operand LowerNode(tamber::CodeBuilder& builder) const override;
  void PushArgument(tamber::CodeBuilder& builder, uint32_t at) const;

  std::shared_ptr<const TamberFunction> function_;
};
