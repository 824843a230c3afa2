#include "expr/exprsub.h"

#include "machine/codebuilder.h"

ExpressionSubExpression::ExpressionSubExpression(std::unique_ptr<ExpressionBase> inner)
    : ExpressionBase(EXPRESSION_SUB) {
  AddChild(std::move(inner));
}

tamber::Operand ExpressionSubExpression::LowerNode(tamber::CodeBuilder& builder) const {
  return GetChild(0)->Lower(builder);
}

void ExpressionSubExpression::Dump(KelString& out) const { GetChild(0)->Dump(out); }
