#include "functions/funclist.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "functions/prototype.h"
#include "values/cellops.h"
#include "values/typelist.h"
#include "values/varint.h"
#include "values/varlist.h"

namespace {

using tamber::Kind;
using tamber::TypeDesc;
using tamber::TypeRef;

int32_t First(FunctionCallInfo*) { return 1; }
int32_t Second(FunctionCallInfo*) { return 2; }

class FuncListTest : public testing::Test {
 protected:
  FuncListTest() { types_.CreateDefaultTypes(); }

  uint32_t Add(std::string_view prototype, TamberFunctionPtr body = &First, bool replace = false) {
    constexpr auto type = FunctionList::FUNCTYPE_NORMAL;
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

// --- the table ---

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

// --- overloads ---

TEST_F(FuncListTest, AnExactArgumentWins) {
  for (const char* prototype :
       {"int Find (array Var, float Value)", "int Find (array Var, int Value)",
        "int Find (array Var, double Value)", "int Find (array Var, string Value)"})
    ASSERT_NE(Add(prototype), 0u);
  EXPECT_EQ(Best("Find", {"int[]", "int"}), "int Find (array Var, int Value)");
  EXPECT_EQ(Best("FIND", {"string[]", "string"}), "int Find (array Var, string Value)");
  EXPECT_EQ(Best("Find", {"int[]", "double"}), "int Find (array Var, double Value)");
  VarList arguments;
  arguments.AddVariable(tamber::MakeVariable(TypeDesc::ArrayOf(TypeDesc::Of(Kind::Double)), {}));
  arguments.AddVariable(tamber::MakeVariable(TypeDesc::Of(Kind::Double), {}));
  EXPECT_EQ(list_.PrototypeText(list_.FindBestSignature(KelString("Find"), arguments)),
            "int Find (array Var, double Value)")
      << "variables stand for their types";
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
  const Row rows[] = {{"Real", "bool", false, false},   {"Real", "char", false, false},
                      {"Real", "int", true, true},      {"Real", "float", true, true},
                      {"Truth", "float", true, false},  {"Truth", "double", true, false},
                      {"Truth", "int", true, true},     {"Letter", "float", true, false},
                      {"Letter", "string", true, true}, {"Text", "char", true, true},
                      {"Text", "char[]", false, true},  {"Whole", "float", true, true},
                      {"Text", "estring", true, true},  {"Whole", "string", false, false}};
  for (const Row& row : rows) {
    SCOPED_TRACE(std::string(row.argument) + " to " + row.function);
    EXPECT_EQ(Find(row.function, {row.argument}) != 0, row.found);
    if (row.found) {
      EXPECT_EQ(Takes(index(row.function), {row.argument}), row.taken);
    }
  }
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

}  // namespace
