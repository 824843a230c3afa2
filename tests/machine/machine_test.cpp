// The machine alone: code that is built by hand, run without a context, a script or a statement.
#include "machine/machine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "machine/codebuilder.h"
#include "machine/testhost.h"
#include "values/errcodes.h"
#include "values/varint.h"

namespace {

using tamber::Code;
using tamber::CodeBuilder;
using tamber::Kind;
using tamber::Op;
using tamber::Operand;
using tamber::TypeDesc;

class TestProcedure final : public tamber::Callable {
 public:
  TestProcedure() : Callable("test", nullptr) {}
};

std::unique_ptr<Code> CodeAt(uint32_t line) {
  auto code = std::make_unique<Code>();
  tamber::StatementEntry entry{};
  entry.statement = 1;
  entry.line = line;
  entry.resume = 0;
  code->statements.push_back(entry);
  return code;
}

TEST(MachineAlone, SourcesAreFoundAmongMany) {
  tamber::SourceTable sources;
  EXPECT_EQ(sources.Find(7), 0u);
  const auto offset = [](uint32_t i) { return i * 7919 % 5003 * (i % 5 == 0 ? 100000 : 1); };
  for (uint32_t i = 0; i < 500; ++i) sources.Add(i * 300, offset(i));
  for (uint32_t i = 0; i < 500; ++i) {
    EXPECT_EQ(sources.Find(i * 300), offset(i));
    EXPECT_EQ(sources.Find(i * 300 + 299), offset(i));
  }
}

TEST(MachineAlone, ReadsVariablesThroughItsHost) {
  TestHost host;
  auto* seven = new VarInteger(KelString("seven"), 0);
  seven->SetIntegerValue(7);
  host.variables.AddVariable(seven);
  tamber::Machine machine(host.run, host);
  const auto evaluate = [&](Stack& stack) {
    tamber::Lowered expression{CodeAt(0), {}};
    CodeBuilder builder(*expression.code, nullptr, nullptr, false);
    builder.Push(builder.Load({tamber::Name("SEVEN"), -1, TypeDesc::Of(Kind::Int)}));
    builder.Emit(Op::RetV);
    return machine.Evaluate(std::move(expression), stack);
  };
  Stack stack;
  ASSERT_EQ(evaluate(stack), 1);
  EXPECT_EQ(stack.PopInteger(), 7);

  // A scope that has changed is looked at anew.
  seven->SetVarName("other");
  host.run.ScopeChanged();
  EXPECT_EQ(evaluate(stack), 0);
  EXPECT_EQ(host.run.errorCode, ERR_VARNOTDECLARED);
  EXPECT_EQ(stack.GetSize(), 0u);
}

TEST(MachineAlone, ReportsAnErrorAndEndsTheProcedure) {
  TestHost host;
  tamber::Machine machine(host.run, host);
  host.makeCode = [](tamber::Callable& procedure) {
    auto code = CodeAt(12);
    code->procedure = &procedure;
    CodeBuilder builder(*code, &procedure.Locals(), nullptr, false);
    builder.EmitFail(ERR_FUNCFAILED, "by hand", *tamber::TypeDesc::Of(tamber::Kind::Int),
                     CodeBuilder::Immediate(tamber::Kind::Int, 0));
    builder.Emit(Op::RetV);
    return code;
  };
  TestProcedure procedure;
  Stack stack;
  EXPECT_EQ(machine.RunProcedure(procedure, stack), tamber::PROCSTATUS_FAILED);
  EXPECT_THAT(host.reports, testing::ElementsAre("error 102 at line 12"));
  EXPECT_EQ(host.run.errorText, "by hand");
  EXPECT_FALSE(machine.IsRunning());
}

}  // namespace
