// Statements alone: a procedure that is put together by hand, dumped, packed, lowered and run.
#include "statements/lower.h"

#include <gtest/gtest.h>

#include "expr/exprcomp.h"
#include "expr/testnames.h"
#include "statements/procedure.h"
#include "statements/statexpr.h"
#include "statements/statpopvar.h"
#include "values/varint.h"

namespace {

TEST(StatementsAlone, RunAsTheirCode) {
  TestNames names;
  auto* total = new VarInteger(KelString("total"), 0);
  names.host.variables.AddVariable(total);
  TamberProcedure procedure("sum", nullptr);
  ExpressionCompiler compiler(names);
  for (uint32_t line = 3; line <= 4; ++line) {
    ASSERT_TRUE(compiler.CompileExpression("total * 2 + 5", ""));
    procedure.Statements().Append(std::make_unique<StatementExpression>(
        line, compiler.RemoveExpression(), StatementExpression::Use::Assigned));
    procedure.Statements().Append(std::make_unique<StatementPopVar>(
        line, tamber::VarUse{total->OwnName(), -1, tamber::TypeDesc::Of(tamber::Kind::Int)}));
  }
  KelString before;
  KelString after;
  tamber::StatementsOf(procedure)->Dump(before, procedure.GetName());
  procedure.PackStatements(std::make_shared<tamber::StatementTables>());
  tamber::StatementsOf(procedure)->Dump(after, procedure.GetName());
  EXPECT_EQ(before, after);
  names.host.makeCode = [](tamber::Callable& callable) {
    return tamber::LowerProcedure(static_cast<TamberProcedure&>(callable), false).code;
  };
  Stack stack;
  ASSERT_EQ(names.machine.RunProcedure(procedure, stack), tamber::PROCSTATUS_ENDED);
  EXPECT_EQ(total->GetIntegerValue(), 15);
  const tamber::BoundCode* code = procedure.FindCode(false);
  ASSERT_NE(code, nullptr);
  EXPECT_EQ(code->Tables().FindStatement(0)->line, 3u);
}

}  // namespace
