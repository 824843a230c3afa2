#include "expr/lowerexpr.h"

#include "expr/exprbase.h"
#include "machine/codebuilder.h"

namespace tamber {

std::unique_ptr<Code> LowerExpression(const ExpressionBase& expression) {
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
  if (builder.TooLarge()) return nullptr;
  return code;
}

}  // namespace tamber
