// Expressions alone: compiled and evaluated with names that the test gives, without a context.
#include "expr/exprcomp.h"

#include <gtest/gtest.h>

#include "expr/testnames.h"
#include "values/varint.h"

namespace {

TEST(ExpressionAlone, IsCompiledAndEvaluated) {
  TestNames names;
  auto* limit = new VarInteger(KelString("Limit"), 0);
  limit->SetIntegerValue(20);
  names.host.variables.AddVariable(limit);
  ExpressionCompiler compiler(names);
  ASSERT_TRUE(compiler.CompileExpression("limit + 2 * 11", ""));
  EXPECT_EQ(compiler.ResultType()->GetKind(), tamber::Kind::Int);
  Stack stack;
  ASSERT_TRUE(compiler.EvaluateExpression(&stack));
  EXPECT_EQ(stack.PopInteger(), 42);
}

}  // namespace
