// Expressions alone: compiled and evaluated with names that the test gives, without a context.
#include "expr/exprcomp.h"

#include <gtest/gtest.h>

#include "expr/testnames.h"
#include "values/errcodes.h"
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

TEST(ExpressionAlone, NamesThatNobodyKnowsAreRefused) {
  TestNames names;
  ExpressionCompiler compiler(names);
  ASSERT_FALSE(compiler.CompileExpression("1 + unknown", ""));
  EXPECT_EQ(compiler.GetError(), ERR_EXPRBADTOKEN);
  EXPECT_EQ(compiler.GetErrorText(), "unknown");
  EXPECT_EQ(compiler.GetErrorOffset(), 4u);
}

}  // namespace
