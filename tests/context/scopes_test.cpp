#include <string>

#include "scriptrunner.h"

namespace {

class Scopes : public ScriptRunner {
 protected:
  Variable* AddInteger(const char* name, int32_t value, enum_VarListType scope) {
    auto* variable = new VarInteger(name, 0);
    variable->SetIntegerValue(value);
    context_.AddVariable(variable, scope);
    return variable;
  }
};

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
  removed = context_.RemoveVariable("x", VARLIST_GLOBAL);
  EXPECT_EQ(context_.RunProcedure("main", nullptr), 0);
  EXPECT_EQ(removed->GetIntegerValue(), 8) << "what a host has taken out is out of reach";
  context_.ReplaceVariable(4711, removed, VARLIST_GLOBAL);  // takes it all the same
  context_.ReplaceVariable(4711, new VarInteger("y", 0), VARLIST_LOCAL);
  context_.ReplaceVariable(0, new VarInteger("y", 0), static_cast<enum_VarListType>(0));
}

TEST_F(Scopes, LocalContextsOfTheHost) {
  AddInteger("outer", 1, VARLIST_LOCAL);
  context_.CreateLocalContext();
  EXPECT_EQ(context_.GetVariable("outer", VARLIST_LOCAL), nullptr);
  AddInteger("inner", 2, VARLIST_LOCAL);
  // What a procedure sees is its own, and what it leaves behind goes with it.
  context_.RegisterFunction(
      "int Scope (string Name)",
      +[](FunctionCallInfo* info) {
        KelString name;
        info->stack->PopKelString(name);
        const bool own = info->context->GetVariable("own", VARLIST_LOCAL) != nullptr;
        info->context->CreateLocalContext();
        info->context->AddVariable(new VarInteger(name, 0), VARLIST_LOCAL);
        const bool hidden = info->context->GetVariable("own", VARLIST_LOCAL) == nullptr &&
                            info->context->FindVariable(name, VARLIST_LOCAL) == 0;
        info->stack->PushInteger(own && hidden);
        return 1;
      },
      FunctionList::FUNCTYPE_NORMAL, false);
  EXPECT_EQ(Run("int own\nown = Scope(\"mine\")\nPrint(\"\" + own)\n"), 1);
  EXPECT_EQ(Printed(), "1");
  EXPECT_EQ(context_.FindVariable("inner", VARLIST_LOCAL), 0);
  context_.RemoveLocalContext();
  EXPECT_NE(context_.GetVariable("outer", VARLIST_LOCAL), nullptr);
  context_.RemoveLocalContext();  // there is none any more
  EXPECT_NE(context_.GetVariable("outer", VARLIST_LOCAL), nullptr);
}

TEST_F(Scopes, BuiltInsThatWereLostComeBack) {
  static_cast<FunctionList&>(context_).ClearList();
  context_.ClearVarList(VARLIST_CONSTANT);
  context_.RegisterDefaultFunctions(true);
  EXPECT_EQ(context_.FindFunction("Print"), 0u);
  context_.RegisterDefaultFunctions(false);
  const uint32_t count = context_.GetFunctionCount();
  context_.RegisterDefaultFunctions(false);
  EXPECT_EQ(context_.GetFunctionCount(), count);
  EXPECT_EQ(Run("if (TRUE)\n  Print(\"\" + (ERR_INVALIDPARAM - 99))\nendif\n"), 1);
  TamberProcedure* main = context_.RemoveProcedure("MAIN");
  EXPECT_EQ(context_.ExecuteProcStatements(main, nullptr), 1);
  EXPECT_EQ(context_.ExecuteProcStatements(nullptr, nullptr), 2);
  EXPECT_EQ(Printed(), "22");
  EXPECT_EQ(context_.RemoveProcedure("main"), nullptr);
  EXPECT_EQ(context_.RunProcedure("main", nullptr), 0);
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

}  // namespace
