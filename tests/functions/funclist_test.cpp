#include "functions/funclist.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <initializer_list>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "functions/prototype.h"
#include "values/cellops.h"
#include "values/typelist.h"
#include "values/varhandle.h"
#include "values/varint.h"
#include "values/varlist.h"

namespace {

using tamber::Kind;
using tamber::TypeDesc;
using tamber::TypeRef;
using testing::ElementsAre;

int32_t First(FunctionCallInfo*) { return 1; }
int32_t Second(FunctionCallInfo*) { return 2; }
int32_t WithContext(FunctionCallInfo*, TamberContext*) { return 3; }

class FuncListTest : public testing::Test {
 protected:
  FuncListTest() {
    types_.CreateDefaultTypes();
    for (const char* name : {"TextFileHandle", "FileFindInfo"}) {
      types_.AddType(name, new VarHandle("", name, 0), 1);
    }
    const TypeRef match = TypeDesc::StructOf(tamber::StructLayout::Make(
        tamber::Name("RegexMatch"), {{tamber::Name("Offset"), TypeDesc::Of(Kind::Int)}}));
    types_.AddType("RegexMatch", tamber::MakeVariable(match, {}), 1);
    types_.AddType("RegexMatch[]", tamber::MakeVariable(TypeDesc::ArrayOf(match), {}), 1);
  }

  uint32_t Add(std::string_view prototype, TamberFunctionPtr body = &First, bool replace = false,
               FunctionList::FuncType_e type = FunctionList::FUNCTYPE_NORMAL) {
    tamber::Prototype parsed;
    if (!tamber::ParsePrototype(prototype, types_, type, parsed, message_)) return 0;
    return list_.AddFunction(parsed.name, parsed.returnValue.release(), body,
                             parsed.parameters.release(), type, replace);
  }

  /// The overload that a call with arguments of these type words takes; "any" is a type that is
  /// known only when the call runs.
  uint32_t Find(std::string_view name, std::initializer_list<const char*> words) const {
    return list_.FindBestSignature(name, Loans(Types(words)));
  }
  bool Takes(uint32_t index, std::initializer_list<const char*> words) const {
    return list_.TakesArguments(index, Loans(Types(words)));
  }
  std::string Best(std::string_view name, std::initializer_list<const char*> words) const {
    return list_.PrototypeText(Find(name, words)).Str();
  }

  static constexpr uint32_t kAnyCount = 0xFFFFFFFFu;
  /// Parameters of the functions of this name (and number of parameters), in table order.
  std::vector<std::string> Overloads(std::string_view name, uint32_t count = kAnyCount) const {
    std::vector<std::string> texts;
    for (uint32_t i = 1; i <= list_.GetFunctionCount(); ++i) {
      const TamberFunction& function = *list_.GetFunction(i);
      if (!kel::EqualsNoCase(function.GetName(), name)) continue;
      if (count != kAnyCount && function.GetParameterCount() != count) continue;
      const std::string text = list_.PrototypeText(i).Str();
      texts.push_back(text.substr(text.find('(')));
    }
    return texts;
  }

  void AddBuiltIns() {
    for (const char* prototype : {
#include "functions/prototypes.inc"
         }) {
      ASSERT_NE(Add(prototype), 0u) << prototype << ": " << message_.View();
    }
  }

  TypeList types_;
  FunctionList list_;
  KelString message_;

 private:
  std::vector<TypeRef> Types(std::initializer_list<const char*> words) const {
    std::vector<TypeRef> types;
    for (const std::string_view word : words) {
      types.push_back(word == "any" ? TypeDesc::Of(Kind::Any) : types_.FindTypeRef(word));
      EXPECT_TRUE(types.back()) << word;
    }
    kept_ = types;
    return types;
  }
  std::vector<const TypeDesc*> Loans(const std::vector<TypeRef>& types) const {
    std::vector<const TypeDesc*> loans;
    for (const TypeRef& type : types) loans.push_back(type.Get());
    return loans;
  }
  mutable std::vector<TypeRef> kept_;  // the loans outlive the vector they were taken from
};

// --- prototypes ---

TEST_F(FuncListTest, PrototypesReadBackAsTheyAreWritten) {
  for (const char* prototype :
       {"int F ()", "bool G (string Name)", "string[] StrSort (string Values[], bool Ascending)",
        "string FileGetPath (TextFileHandle)", "array ArraySetSize (array Var, int Size)",
        "RegexMatch[] Find (estring Key, RegexMatch One, RegexMatch All[])",
        "double Mix (char, float, double[])"}) {
    const uint32_t index = Add(prototype);
    ASSERT_NE(index, 0u) << prototype << ": " << message_.View();
    EXPECT_EQ(list_.PrototypeText(index), prototype);
  }
  EXPECT_EQ(list_.PrototypeText(0), "");
  EXPECT_EQ(list_.PrototypeText(99), "");
}

TEST_F(FuncListTest, TypeWordsIgnoreCaseAndHaveSynonyms) {
  const uint32_t index = Add("Double F(INT a,LONG b[],textfilehandle,integer  )");
  EXPECT_EQ(list_.PrototypeText(index), "double F (int a, int b[], TextFileHandle, int)");
  EXPECT_EQ(list_.GetFunction(index)->GetParameterList()->GetVariable(0)->GetVarName(), "a");
  EXPECT_EQ(list_.GetFunction(index)->GetVariable()->GetVarName(), "");
}

TEST_F(FuncListTest, MalformedPrototypesAreRefused) {
  struct Row {
    const char* prototype;
    const char* message;
  };
  const Row rows[] = {
      {"Gadget F (int a)", "Unknown return value data type 'Gadget'"},
      {"Gadget[] F (int a)", "Unknown return value data type 'Gadget[]'"},
      {"int F (Gadget a)", "Unknown function parameter type 'gadget'"},
      {"int F (int a, Gadget b[])", "Unknown function parameter type 'gadget[]'"},
      {"", "Unknown return value data type ''"},
      {"int", ""},
      {"int F", ""},
      {"int F int a)", ""},
      {"int F (int[] a)", ""},
      {"int F (int a int b)", ""},
      {"int F (int a; int b)", ""},
      {"int F (int a", ""},
      {"int (int a)", ""},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(Add(row.prototype), 0u) << row.prototype;
    EXPECT_EQ(message_, row.message) << row.prototype;
  }
  EXPECT_EQ(list_.GetFunctionCount(), 0u);
}

TEST_F(FuncListTest, HiddenParameterOfTypeZero) {
  const uint32_t index = Add("int F (int a)", &First, false, FunctionList::FUNCTYPE_HIDDEN);
  const TamberFunction& function = *list_.GetFunction(index);
  EXPECT_EQ(function.GetParameterCount(), 2u);
  EXPECT_EQ(function.GetParameterList()->GetVariable(0)->GetTypeId(), Variable::String);
  EXPECT_EQ(function.GetFunctionType(), 0);
  EXPECT_EQ(list_.PrototypeText(index), "int F (int a)");
  EXPECT_EQ(Find("F", {"string", "int"}), index);
}

// --- the table ---

TEST_F(FuncListTest, NamesIgnoreCaseAndAreSorted) {
  EXPECT_EQ(list_.FindFunction("Beta"), 0u);
  Add("int Beta ()");
  Add("int alpha ()");
  Add("int GAMMA ()");
  EXPECT_EQ(list_.FindFunction("ALPHA"), 1u);
  EXPECT_EQ(list_.FindFunction("beta"), 2u);
  EXPECT_EQ(list_.FindFunction("Gamma"), 3u);
  for (const char* name : {"", "a", "alphabet", "zeta"}) EXPECT_EQ(list_.FindFunction(name), 0u);
  EXPECT_EQ(list_.GetFunction(1)->GetName(), "alpha");
  EXPECT_EQ(list_.GetFunction(0), nullptr);
  EXPECT_EQ(list_.GetFunction(4), nullptr);
  EXPECT_LT(list_.SortCompare(list_.GetFunction(1), list_.GetFunction(2)), 0);
  EXPECT_EQ(list_.SortCompare(list_.GetFunction(1), nullptr), 1);
  EXPECT_EQ(list_.SortCompare(nullptr, list_.GetFunction(1)), -1);
}

TEST_F(FuncListTest, TheFirstRegistrationWinsUnlessReplaced) {
  const uint32_t index = Add("int F (int a)", &First);
  EXPECT_EQ(Add("string f (INT other)", &Second), index);
  EXPECT_EQ(list_.GetFunctionCount(), 1u);
  EXPECT_EQ(list_.GetFunction(index)->GetImplementation(), &First);
  EXPECT_EQ(list_.PrototypeText(index), "int F (int a)");
  EXPECT_EQ(Add("string f (int other)", &Second, true), index);
  EXPECT_EQ(list_.GetFunctionCount(), 1u);
  EXPECT_EQ(list_.GetFunction(index)->GetImplementation(), &Second);
  EXPECT_EQ(list_.PrototypeText(index), "string f (int other)");
  EXPECT_EQ(Find("F", {"int"}), index);
  // A string and an estring parameter are the same type.
  const uint32_t text = Add("int F (string a)");
  EXPECT_EQ(Add("int F (estring a)"), text);
}

TEST_F(FuncListTest, ReplacingKeepsEveryNameFound) {
  Add("int A (int a)");
  Add("int B (int a)");
  Add("int B (string a)");
  Add("int C ()");
  for (const char* prototype : {"int B (int a)", "int B (string a)", "int A (int a)", "int C ()"}) {
    Add(prototype, &Second, true);
    EXPECT_EQ(list_.GetFunctionCount(), 4u);
    EXPECT_EQ(Best("A", {"int"}), "int A (int a)");
    EXPECT_EQ(Best("B", {"int"}), "int B (int a)");
    EXPECT_EQ(Best("B", {"string"}), "int B (string a)");
    EXPECT_EQ(Best("C", {}), "int C ()");
  }
  for (uint32_t i = 1; i <= 4; ++i) {
    EXPECT_EQ(list_.GetFunction(i)->GetImplementation(), &Second);
  }
}

TEST_F(FuncListTest, AFunctionWithoutANameIsRefused) {
  EXPECT_EQ(list_.AddFunction("", new VarInteger("", 0), &First, new VarList, 1, false), 0u);
  EXPECT_EQ(list_.GetFunctionCount(), 0u);
}

TEST_F(FuncListTest, ImplementationsKeepTheirForm) {
  const uint32_t index = list_.AddFunction("F", new VarInteger("", 0), &WithContext, new VarList,
                                           FunctionList::FUNCTYPE_CONTEXT, false);
  const TamberFunction& function = *list_.GetFunction(index);
  EXPECT_EQ(function.GetExtendedImplementation(), &WithContext);
  EXPECT_EQ(function.GetImplementation(), nullptr);
  const TamberFunction copy(function);
  EXPECT_TRUE(copy.IsImplemented());
  EXPECT_NE(copy.GetVariable(), function.GetVariable());
  EXPECT_NE(copy.GetParameterList(), function.GetParameterList());
  EXPECT_EQ(copy.ReturnType()->GetKind(), Kind::Int);
}

TEST_F(FuncListTest, CopiesShareUntilTheyChange) {
  Add("int F ()");
  const FunctionList defaults = list_;
  FunctionList one = defaults;
  FunctionList other = defaults;
  EXPECT_EQ(one.GetFunction(1), other.GetFunction(1));
  const std::shared_ptr<const TamberFunction> kept = one.ShareFunction(1);
  one.AddFunction("G", new VarInteger("", 0), &First, new VarList, 1, false);
  EXPECT_EQ(one.FindFunction("G"), 2u);
  EXPECT_EQ(other.FindFunction("G"), 0u);
  EXPECT_EQ(defaults.FindFunction("G"), 0u);
  EXPECT_EQ(one.GetFunction(1), kept.get()) << "the entries themselves stay shared";
  one.ClearList();
  EXPECT_EQ(one.GetFunctionCount(), 0u);
  EXPECT_EQ(other.FindFunction("F"), 1u);
}

TEST_F(FuncListTest, Dump) {
  Add("int Beta (int a)");
  Add("int Alpha ()");
  Add("int Beta ()");
  KelString out;
  list_.DumpFunctions(out, "*", "");
  EXPECT_EQ(out, "\r\nFunctions dump:\r\nint Alpha ()\r\nint Beta (int a)\r\nint Beta ()\r\n");
  out.Clear();
  list_.DumpFunctions(out, "beta,Nobody", "  ");
  EXPECT_EQ(out,
            "\r\nFunctions dump: (limited by INI file settings) \r\n"
            "  int Beta (int a)\r\n  int Beta ()\r\n");
}

// --- overloads ---

TEST_F(FuncListTest, BuiltInOverloadsStandInTheOrderThatDecidesTies) {
  AddBuiltIns();
  EXPECT_EQ(list_.GetFunctionCount(), 180u);
  EXPECT_THAT(Overloads("ArrayFind", 4),
              ElementsAre("(array Var, string ElementName, string Value, int StartIndex)",
                          "(array Var, string ElementName, float Value, int StartIndex)",
                          "(array Var, string ElementName, double Value, int StartIndex)",
                          "(array Var, string ElementName, int Value, int StartIndex)"));
  EXPECT_THAT(Overloads("ArrayFind", 3), ElementsAre("(array Var, float Value, int StartIndex)",
                                                     "(array Var, int Value, int StartIndex)",
                                                     "(array Var, double Value, int StartIndex)",
                                                     "(array Var, string Value, int StartIndex)"));
  EXPECT_THAT(
      Overloads("ArraySort"),
      ElementsAre("(array Var, string ElementName, bool Ascending)", "(array Var, bool Ascending)",
                  "(array Var, string ElementName, bool Ascending, bool CaseSensitive)",
                  "(array Var, bool Ascending, bool CaseSensitive)"));
  EXPECT_THAT(
      Overloads("MakeStr"),
      ElementsAre("(char Value, string Format)", "(int Value)", "(float Value, string Format)",
                  "(double Value, string Format)", "(int Value, string Format)"));
  const auto counts = [this](std::string_view name) {
    std::vector<uint32_t> result;
    for (uint32_t i = 1; i <= list_.GetFunctionCount(); ++i) {
      const TamberFunction& function = *list_.GetFunction(i);
      if (function.GetName() == name) result.push_back(function.GetParameterCount());
    }
    return result;
  };
  EXPECT_THAT(counts("StrFindPcre"), ElementsAre(4u, 6u, 5u));
  EXPECT_THAT(counts("StrMatchPcre"), ElementsAre(2u, 5u, 3u));
  for (const char* name : {"FileGetPath", "FileGetLineCount", "FileGetLine"}) {
    const std::vector<std::string> overloads = Overloads(name);
    EXPECT_THAT(overloads[0], testing::StartsWith("(TextFileHandle")) << name;
  }

  // An exact argument beats a compatible one; equal scores go to the earlier entry.
  EXPECT_EQ(Best("ArrayFind", {"int[]", "int", "int"}),
            "int ArrayFind (array Var, int Value, int StartIndex)");
  EXPECT_EQ(Best("ArrayFind", {"char[]", "char", "int"}),
            "int ArrayFind (array Var, int Value, int StartIndex)");
  EXPECT_EQ(Best("ARRAYFIND", {"string[]", "string", "int"}),
            "int ArrayFind (array Var, string Value, int StartIndex)");
  EXPECT_EQ(Best("ArrayFind", {"RegexMatch[]", "string", "double", "int"}),
            "int ArrayFind (array Var, string ElementName, double Value, int StartIndex)");
  EXPECT_EQ(Best("MakeStr", {"float", "string"}), "string MakeStr (float Value, string Format)");
  EXPECT_EQ(Best("Rand", {}), "int Rand ()");
}

TEST_F(FuncListTest, TheArgumentIsAskedFirstAndTheParameterAfterwards) {
  Add("int Real (double x)");
  Add("int Truth (bool x)");
  Add("int Text (string x)");
  Add("int Whole (int x)");
  Add("int Letter (char x)");
  const auto index = [this](const char* name) { return list_.FindFunction(name); };
  struct Row {
    const char* function;
    const char* argument;
    bool found;
    bool taken;
  };
  const Row rows[] = {
      {"Real", "bool", false, false},   {"Real", "char", false, false},
      {"Real", "int", true, true},      {"Real", "float", true, true},
      {"Truth", "float", true, false},  {"Truth", "double", true, false},
      {"Truth", "int", true, true},     {"Letter", "float", true, false},
      {"Letter", "string", true, true}, {"Text", "char", true, true},
      {"Text", "char[]", false, true},  {"Whole", "float", true, true},
      {"Text", "estring", true, true},  {"Whole", "string", false, false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(std::string(row.argument) + " to " + row.function);
    EXPECT_EQ(Find(row.function, {row.argument}) != 0, row.found);
    if (row.found) {
      EXPECT_EQ(Takes(index(row.function), {row.argument}), row.taken);
    }
  }
}

TEST_F(FuncListTest, OnlyOverloadsOfTheSameCount) {
  Add("int F (int a)");
  Add("int F (int a, int b)");
  EXPECT_EQ(Find("F", {}), 0u);
  EXPECT_EQ(Find("F", {"int", "int", "int"}), 0u);
  EXPECT_EQ(Best("F", {"int", "float"}), "int F (int a, int b)");
  EXPECT_EQ(Find("G", {"int"}), 0u);
  EXPECT_FALSE(Takes(1, {"int", "int", "int"}));
  EXPECT_FALSE(Takes(0, {}));
}

TEST_F(FuncListTest, TheGenericArrayTakesAnyArrayAndAtLastAnything) {
  Add("int Size (array Var)");
  Add("int Sum (int Values[])");
  EXPECT_NE(Find("Size", {"string[]"}), 0u);
  EXPECT_NE(Find("Size", {"array"}), 0u);
  const uint32_t size = Find("Size", {"int"});
  ASSERT_NE(size, 0u);
  EXPECT_TRUE(Takes(size, {"int"}));
  EXPECT_EQ(Find("Sum", {"int"}), 0u);
  EXPECT_EQ(Find("Sum", {"string[]"}), 0u);
  Add("int Size (string Text)");
  EXPECT_EQ(Best("Size", {"string"}), "int Size (string Text)");
  EXPECT_EQ(Best("Size", {"char"}), "int Size (string Text)") << "before the last resort";
}

TEST_F(FuncListTest, AnUnknownTypeIsTakenWithoutCounting) {
  Add("int F (int a, string b)");
  Add("int F (string a, string b)");
  EXPECT_EQ(Best("F", {"any", "string"}), "int F (int a, string b)");
  EXPECT_EQ(Best("F", {"string", "any"}), "int F (string a, string b)");
  EXPECT_TRUE(Takes(1, {"any", "any"}));
}

TEST_F(FuncListTest, VariablesStandForTheirTypes) {
  AddBuiltIns();
  VarList arguments;
  arguments.AddVariable(tamber::MakeVariable(TypeDesc::ArrayOf(TypeDesc::Of(Kind::Double)), {}));
  arguments.AddVariable(tamber::MakeVariable(TypeDesc::Of(Kind::Double), {}));
  arguments.AddVariable(tamber::MakeVariable(TypeDesc::Of(Kind::Int), {}));
  EXPECT_EQ(list_.PrototypeText(list_.FindBestSignature(KelString("ArrayFind"), arguments)),
            "int ArrayFind (array Var, double Value, int StartIndex)");
}

}  // namespace
