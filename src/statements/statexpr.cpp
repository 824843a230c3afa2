#include "statements/statexpr.h"

#include "expr/exprbase.h"

StatementExpression::StatementExpression(uint32_t line, std::unique_ptr<ExpressionBase> expression,
                                         Use use)
    : StatementBase(line, STATEMENT_PLAIN, kForm), expression_(std::move(expression)), use_(use) {}

StatementExpression::~StatementExpression() = default;

void StatementExpression::Dump(KelString& out, uint32_t) const {
  out += "Push expression: ";
  expression_->Dump(out);
  out += "\r\n";
}
