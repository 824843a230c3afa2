#pragma once

#include "expr/exprbase.h"

class TamberProcedure;

/// A call of a script procedure. The children are the arguments.
class ExpressionProcedure final : public ExpressionBase {
 public:
  explicit ExpressionProcedure(TamberProcedure* procedure);

  TamberProcedure& Procedure() const { return *procedure_; }

  void Dump(KelString& out) const override;

 private:
  tamber::Operand LowerNode(tamber::CodeBuilder& builder) const override;
  TamberProcedure* procedure_;
};
