#include <gmock/gmock.h>

#include "scriptrunner.h"

namespace {

class NewContext : public ScriptRunner {
 protected:
  struct Row {
    const char* name;
    Variable::enum_TypeId type;
    int32_t value;
    const char* text;
  };

  static void ExpectSame(const Variable* variable, const Row& row) {
    ASSERT_NE(variable, nullptr) << row.name;
    EXPECT_EQ(variable->GetVarName(), row.name);
    EXPECT_EQ(variable->GetTypeId(), row.type) << row.name;
    EXPECT_EQ(variable->GetIntegerValue(), row.value) << row.name;
    EXPECT_STREQ(variable->GetStringValue(), row.text) << row.name;
  }
};

// Scripts name these; the numbers stand in compiled hosts too.
TEST_F(NewContext, HasThePredefinedConstants) {
  const Row rows[] = {
      {"TAMBER_VERH", Variable::Integer, 3, ""},
      {"TAMBER_VERL", Variable::Integer, 5, ""},
      {"TAMBER_VERP", Variable::Integer, 0, ""},
      {"TRUE", Variable::Boolean, 1, ""},
      {"YES", Variable::Boolean, 1, ""},
      {"ON", Variable::Boolean, 1, ""},
      {"FALSE", Variable::Boolean, 0, ""},
      {"NO", Variable::Boolean, 0, ""},
      {"OFF", Variable::Boolean, 0, ""},
      {"DEFAULT_HANDLER", Variable::String, 0, "DEFAULT_HANDLER"},
      {"INLINE_HANDLER", Variable::String, 0, "INLINE_HANDLER"},
      {"ERR_SUCCESS", Variable::Integer, 0, ""},
  };
  for (const Row& row : rows) {
    ExpectSame(context_.PeekConstant(row.name), row);
    const Variable* owned = context_.GetVariable(row.name, VARLIST_CONSTANT);
    ASSERT_NE(owned, nullptr) << row.name;
    EXPECT_EQ(owned->GetVarFlags(), Variable::Predefined) << row.name;
    EXPECT_EQ(owned->GetIntegerValue(), row.value) << row.name;
  }
}

TEST_F(NewContext, HasAConstantForEachError) {
  ErrorList& errors = context_.GetErrorList();
  uint32_t count = 0;
  for (int32_t code = errors.GetNextErrorCode(0); code != 0; code = errors.GetNextErrorCode(code)) {
    const KelString name = errors.GetErrorName(code);
    const Variable* constant = context_.GetVariable(name, VARLIST_CONSTANT);
    ASSERT_NE(constant, nullptr) << name.GetString();
    EXPECT_EQ(constant->GetIntegerValue(), code) << name.GetString();
    EXPECT_EQ(constant->GetVarFlags(), Variable::Predefined) << name.GetString();
    ++count;
  }
  EXPECT_GE(count, 101u);
  EXPECT_FALSE(Knows("", VARLIST_CONSTANT)) << "a record without a name makes none";
}

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

TEST_F(NewContext, HasThePredefinedGlobalsInTheOrderOfNames) {
  const Row rows[] = {
      {"ErrCode", Variable::Integer, 0, ""},
      {"ErrHandler", Variable::String, 0, "DEFAULT_HANDLER"},
      {"ErrLine", Variable::Integer, 0, ""},
      {"IntBase", Variable::Integer, 1, ""},
      {"LogFile", Variable::String, 0, ""},
      {"LogLevel", Variable::Integer, 1, ""},
      {"ScriptFile", Variable::String, 0, ""},
      {"StrCase", Variable::Integer, 0, ""},
  };
  uint32_t position = 0;
  for (const Row& row : rows) {
    const Variable* variable = context_.GetVariable(position, VARLIST_GLOBAL);
    ExpectSame(variable, row);
    ASSERT_NE(variable, nullptr);
    EXPECT_EQ(context_.FindVariable(row.name, VARLIST_GLOBAL), static_cast<int32_t>(position));
    EXPECT_EQ(variable->GetVarFlags(), Variable::Predefined) << row.name;
    ++position;
  }
  EXPECT_EQ(context_.GetVariable(position, VARLIST_GLOBAL), nullptr);
  EXPECT_EQ(context_.GetVariable(0u, VARLIST_LOCAL), nullptr);
  EXPECT_EQ(context_.GetVariable(0u, VARLIST_EXTERNAL), nullptr);
}

TEST_F(NewContext, StartsWithoutErrorsScriptsAndProcedures) {
  EXPECT_EQ(context_.GetContextError(), 0);
  EXPECT_EQ(ErrorText(), "");
  EXPECT_EQ(context_.GetScriptCount(), 0u);
  EXPECT_EQ(context_.GetProcedureCount(), 0u);
  EXPECT_EQ(context_.GetSessionId(), 0u);
  EXPECT_EQ(context_.GetIniPath(), "./tamber.ini");
  EXPECT_EQ(context_.GetCaseSwitch(), 0);
  EXPECT_EQ(context_.GetXmlProxyClient(), nullptr);
  for (const char* type :
       {"boolean", "bool",      "char",   "int",      "long",     "integer",  "float",     "double",
        "estring", "estring[]", "string", "string[]", "array",    "bool[]",   "boolean[]", "char[]",
        "int[]",   "integer[]", "long[]", "float[]",  "double[]", "varhandle"}) {
    const TamberType* entry = context_.Lookup(type);
    ASSERT_NE(entry, nullptr) << type;
    EXPECT_EQ(entry->GetTypeFlags(), 1u) << type;
    EXPECT_EQ(entry->GetVariable()->GetVarName(), "") << type;
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

TEST_F(NewContext, KeepsATypeThatIsAddedOnceMore) {
  TamberType* type = context_.GetType("int");
  const uint32_t position = context_.FindType("int");
  EXPECT_EQ(context_.AddType(type, 1), position);
  EXPECT_EQ(context_.GetType("int"), type);
  EXPECT_EQ(Run("int i\nPrint(\"\" + i)\n"), 1);
}

}  // namespace
