#pragma once

#include "expr/exprbase.h"

class TamberProcedure;

/// A call of a script procedure. The children are the arguments.
class ExpressionProcedure final : public ExpressionBase {
 public:
  explicit ExpressionProcedure(TamberProcedure* procedure);

  TamberProcedure& Procedure() const { return *procedure_; }

  tamber::Operand Lower(tamber::CodeBuilder& builder) const override;
  void Dump(KelString& out) const override;

 private:
  TamberProcedure* procedure_;
};
