#include <gmock/gmock.h>

#include "context/scriptrunner.h"

namespace {

class NewContext : public ScriptRunner {};

bool HaveSameSignature(const TamberFunction& a, const TamberFunction& b) {
  return kel::EqualsNoCase(a.GetName(), b.GetName()) &&
         std::equal(a.ParameterTypes().begin(), a.ParameterTypes().end(),
                    b.ParameterTypes().begin(), b.ParameterTypes().end(),
                    [](const auto& x, const auto& y) { return x->IsSame(*y); });
}

// The tables behind them are made when the first of their names is looked for, whichever it is.
TEST_F(NewContext, FindsAnyBuiltInAtTheFirstLook) {
  ASSERT_GT(context_.GetFunctionCount(), 150u);
  for (uint32_t i = 1; i <= context_.GetFunctionCount(); ++i) {
    const TamberFunction& function = *context_.GetFunction(i);
    EXPECT_NE(TamberContext(nullptr).FindFunction(function.GetName()), 0u)
        << function.GetName().View();
    EXPECT_NE(function.ReturnType()->GetKind(), tamber::Kind::None) << function.GetName().View();
    for (uint32_t j = 1; j < i; ++j) {
      EXPECT_FALSE(HaveSameSignature(function, *context_.GetFunction(j)))
          << function.GetName().View();
    }
  }
  for (uint32_t i = 0; const Variable* constant = context_.GetVariable(i, VARLIST_CONSTANT); ++i) {
    const KelString name = constant->GetVarName();
    EXPECT_NE(TamberContext(nullptr).PeekConstant(name), nullptr) << name.View();
    EXPECT_GE(TamberContext(nullptr).FindVariable(name, VARLIST_CONSTANT), 0) << name.View();
  }
}

// What one context does to its tables must not show in another: they begin as one.
TEST_F(NewContext, KeepsItsChangesToItself) {
  context_.GetVariable("TRUE", VARLIST_CONSTANT)->SetBoolValue(0);
  Variable::Delete(context_.RemoveVariable("YES", VARLIST_CONSTANT));
  context_.RegisterErrorCode(0, "ERR_MINE", "mine");
  context_.DeleteType(context_.FindType("char"));
  context_.ClearVarList(VARLIST_GLOBAL);
  TamberContext other;
  EXPECT_EQ(other.GetVariable("TRUE", VARLIST_CONSTANT)->GetBoolValue(), 1);
  EXPECT_GE(other.FindVariable("YES", VARLIST_CONSTANT), 0);
  EXPECT_EQ(other.GetErrorList().GetNewRuntimeErrorCode(),
            context_.GetErrorList().GetNewRuntimeErrorCode() - 1);
  EXPECT_NE(other.Lookup("char"), nullptr);
  EXPECT_GE(other.FindVariable("ErrCode", VARLIST_GLOBAL), 0);
}

TEST_F(NewContext, SettingsCopyWithoutScopesAndTables) {
  Put("other.ini", "[TamberDebug]\nCompileOnly=1\n");
  TamberContext from;
  int instance = 0;
  from.SetIniPath("other.ini");
  from.SetExePath("/bin/host");
  from.SetAppInstance(&instance);
  from.SetCaseSwitch(1);
  from.SetContextError(101, "left");
  from.AddVariable(new VarInteger("mine", 0), VARLIST_GLOBAL);
  ASSERT_EQ(Compile("Print(\"ran\")\n"), 1);
  context_ = from;
  EXPECT_EQ(context_.GetIniPath(), "other.ini");
  EXPECT_EQ(context_.GetExePath(), "/bin/host");
  EXPECT_EQ(context_.GetAppInstance(), &instance);
  EXPECT_EQ(context_.GetCaseSwitch(), 1);
  EXPECT_EQ(context_.GetContextError(), 0);
  EXPECT_FALSE(Knows("mine", VARLIST_GLOBAL));
  EXPECT_EQ(context_.RunProcedure("main", nullptr), 1) << "its procedures stay";
  EXPECT_EQ(Printed(), "") << "but are only compiled";
  TamberContext& itself = context_;
  context_ = itself;
  EXPECT_EQ(context_.GetIniPath(), "other.ini");
}

// A function without a return value is one of no result, for calls, dumps and copies.
TEST_F(NewContext, TakesFunctionsWithoutAReturnValue) {
  context_.AddFunction("Nothing", nullptr, static_cast<TamberFunctionPtr>(nullptr), nullptr,
                       FunctionList::FUNCTYPE_NORMAL, false);
  EXPECT_EQ(Run("Nothing()\nPrint(\"on\")\n"), 1);
  EXPECT_EQ(Printed(), "on");
  EXPECT_EQ(Compile("proc p()\nint i\ni = Nothing()\nendproc\n"), 0);
  KelString dump;
  context_.DumpFunctions(dump, "Nothing", "");
  EXPECT_THAT(dump.Str(), testing::HasSubstr("Nothing ()"));
}

}  // namespace
