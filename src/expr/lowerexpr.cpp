#include "expr/lowerexpr.h"

#include "expr/exprbase.h"
#include "machine/codebuilder.h"

namespace tamber {

Lowered LowerExpression(const ExpressionBase& expression) {
  auto code = std::make_unique<Code>();
  CodeBuilder builder(*code, nullptr, nullptr, false);
  StatementEntry entry;
  entry.begin = 0;
  entry.statement = 1;
  entry.line = 0;
  code->statements.push_back(entry);
  builder.Push(expression.Lower(builder));
  builder.EndStatement();
  builder.Emit(Op::RetV);
  if (!builder.Exceeded().empty()) return {nullptr, builder.Exceeded()};
  return {std::move(code), {}};
}

}  // namespace tamber
