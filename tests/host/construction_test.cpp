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

}  // namespace
