#pragma once

#include "expr/exprbase.h"

namespace tamber {
class Callable;
}

/// A call of a script procedure. The children are the arguments.
class ExpressionProcedure final : public ExpressionBase {
 public:
  explicit ExpressionProcedure(tamber::Callable* procedure);

  tamber::Callable& Procedure() const { return *procedure_; }

  void Dump(KelString& out) const override;

 private:
  tamber::Operand LowerNode(tamber::CodeBuilder& builder) const override;
  tamber::Callable* procedure_;
};
