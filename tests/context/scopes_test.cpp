#include <string>

#include "scriptrunner.h"
#include "values/errcodes.h"

namespace {

class Scopes : public ScriptRunner {
 protected:
  Variable* AddInteger(const char* name, int32_t value, enum_VarListType scope) {
    auto* variable = new VarInteger(name, 0);
    variable->SetIntegerValue(value);
    context_.AddVariable(variable, scope);
    return variable;
  }
  int32_t Refusal(const char* name, uint32_t mask) {
    context_.SetContextError(0, "");
    const int32_t unique = context_.CheckUniqueVar(name, mask);
    EXPECT_EQ(unique == 0, context_.GetContextError() != 0) << name;
    EXPECT_TRUE(unique != 0 || ErrorText() == name) << ErrorText();
    return context_.GetContextError();
  }
};

TEST_F(Scopes, AreSearchedInOrderAndOnlyWhenAsked) {
  AddInteger("x", 8, VARLIST_EXTERNAL);
  AddInteger("x", 4, VARLIST_CONSTANT);
  AddInteger("x", 2, VARLIST_GLOBAL);
  AddInteger("x", 1, VARLIST_LOCAL);
  const uint32_t masks[] = {15, 14, 12, 8, 1, 2, 4, 9, 10};
  const int32_t found[] = {1, 2, 4, 8, 1, 2, 4, 1, 2};
  for (size_t i = 0; i < std::size(masks); ++i)
    EXPECT_EQ(context_.GetVariable("X", masks[i])->GetIntegerValue(), found[i]) << masks[i];
  EXPECT_EQ(context_.GetVariable("x", 0), nullptr);
  EXPECT_EQ(context_.FindVariable("x", 0), -1);
  context_.ClearVarList(VARLIST_LOCAL | VARLIST_EXTERNAL);
  EXPECT_EQ(context_.FindVariable("x", VARLIST_LOCAL | VARLIST_EXTERNAL), -1);
  EXPECT_EQ(context_.GetVariable("x", 15)->GetIntegerValue(), 2);
}

TEST_F(Scopes, RemovedAndReplacedVariables) {
  Variable* x = AddInteger("x", 1, VARLIST_GLOBAL);
  Variable* removed = context_.RemoveVariable("X", VARLIST_GLOBAL);
  EXPECT_EQ(removed, x);
  Variable::Delete(removed);
  EXPECT_EQ(context_.RemoveVariable("x", VARLIST_GLOBAL), nullptr);
  EXPECT_EQ(context_.RemoveVariable("x", VARLIST_LOCAL), nullptr);
  EXPECT_EQ(context_.RemoveVariable("x", VARLIST_EXTERNAL), nullptr);

  // The run after a replacement must see the new variable, not the one that it was compiled with.
  AddInteger("x", 1, VARLIST_GLOBAL);
  ASSERT_EQ(Run("Print(\"\" + x)\nx = x + 1\n"), 1);
  auto* text = new VarInteger("x", 0);
  text->SetIntegerValue(7);
  context_.ReplaceVariable(static_cast<uint32_t>(context_.FindVariable("x", VARLIST_GLOBAL)), text,
                           VARLIST_GLOBAL);
  EXPECT_EQ(context_.RunProcedure("main", nullptr), 1);
  EXPECT_EQ(Printed(), "17");
  EXPECT_EQ(IntegerOf("x"), 8) << "and store into it";
  auto* nowhere = new VarInteger("x", 0);
  context_.ReplaceVariable(4711, nowhere, VARLIST_GLOBAL);
  Variable::Delete(nowhere);
}

// ErrCode is written by the reporters whatever a host has done to the variable.
TEST_F(Scopes, ErrCodeMayBeReplacedOrGone) {
  context_.SetContextError(101, "");
  context_.UpdateErrCodeVar();
  EXPECT_EQ(IntegerOf("ErrCode"), 101);
  Variable::Delete(context_.RemoveVariable("ErrCode", VARLIST_GLOBAL));
  context_.UpdateErrCodeVar();
  AddInteger("ErrCode", 5, VARLIST_GLOBAL);
  context_.UpdateErrCodeVar();
  EXPECT_EQ(IntegerOf("ErrCode"), 101);
  context_.ClearVarList(VARLIST_GLOBAL);
  EXPECT_EQ(Run("int i\ni = 1 / 0\n"), 0) << "without any of the predefined globals";
}

TEST_F(Scopes, NamesOfAScriptAreRefused) {
  ASSERT_EQ(Compile("struct Point\nint x\nendstruct\nconst int Limit = 1\nint count\n"
                    "extern int outside\nproc helper()\nendproc\nproc main()\nendproc\n"),
            1);
  EXPECT_EQ(Refusal("Point", 0), ERR_VAREXISTS);
  EXPECT_EQ(Refusal("point", 0), 0) << "`Point point` is a common way of naming";
  EXPECT_EQ(Refusal("limit", 0), ERR_VAREXISTS);
  EXPECT_EQ(Refusal("Count", 2), ERR_VAREXISTS);
  EXPECT_EQ(Refusal("count", 1), 0);
  EXPECT_EQ(Refusal("outside", 8), ERR_VAREXISTS);
  EXPECT_EQ(Refusal("outside", 3), 0);
  EXPECT_EQ(Refusal("HELPER", 0), ERR_VARISPROC);
  AddInteger("inner", 1, VARLIST_LOCAL);
  EXPECT_EQ(Refusal("inner", 1), ERR_VAREXISTS);
  EXPECT_EQ(Refusal("inner", 2), 0);
  // A name that is several things fails by the first of them.
  ASSERT_NE(context_.RegisterFunction("int helper ()", static_cast<TamberFunctionPtr>(nullptr),
                                      FunctionList::FUNCTYPE_NORMAL, false),
            0u);
  EXPECT_EQ(Refusal("helper", 0), ERR_VARISFUNC);
  AddInteger("helper", 1, VARLIST_GLOBAL);
  EXPECT_EQ(Refusal("helper", 2), ERR_VAREXISTS);
}

}  // namespace
