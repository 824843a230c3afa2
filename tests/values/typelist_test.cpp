#include "values/typelist.h"

#include <string>
#include <vector>

#include "value_testing.h"
#include "values/vararray.h"
#include "values/varhandle.h"
#include "values/varint.h"
#include "values/varstruct.h"

namespace {

class Types : public ValueTest {
 protected:
  // The table of default types is made once and stays.
  static void SetUpTestSuite() { TypeList().CreateDefaultTypes(); }
  Types() { types.CreateDefaultTypes(); }
  TypeList types;
};

TEST_F(Types, DefaultWordsMakeTheirVariables) {
  const std::vector<std::pair<const char*, const char*>> words{
      {"boolean", "bool"},        {"bool", "bool"},       {"char", "char"},
      {"int", "integer"},         {"long", "integer"},    {"integer", "integer"},
      {"float", "float"},         {"double", "double"},   {"estring", "estring"},
      {"estring[]", "estring[]"}, {"string", "string"},   {"string[]", "string[]"},
      {"array", "array"},         {"bool[]", "bool[]"},   {"boolean[]", "bool[]"},
      {"char[]", "char[]"},       {"int[]", "integer[]"}, {"integer[]", "integer[]"},
      {"long[]", "integer[]"},    {"float[]", "float[]"}, {"double[]", "double[]"},
      {"varhandle", "varhandle"}};
  EXPECT_EQ(types.GetTypeCount(), words.size());
  for (const auto& [word, shown] : words) {
    const TamberType* type = types.Lookup(word);
    ASSERT_NE(type, nullptr) << word;
    EXPECT_EQ(type->GetTypeFlags(), 1u);
    Held<Variable> variable(type->CreateVariable("made"));
    EXPECT_EQ(WordOf(*variable), shown);
    EXPECT_EQ(variable->GetVarName(), "made");
    EXPECT_EQ(types.FindTypeRef(word)->Word(), shown);
  }
  Held<Variable> ints(types.Lookup("LONG[]")->CreateVariable("a"));
  EXPECT_NE(dynamic_cast<VarIntegerArray*>(ints.get()), nullptr);
  EXPECT_TRUE(types.Lookup("int")->IsSameType(types.Lookup("long")));
  EXPECT_TRUE(types.Lookup("int")->IsCompatibleType(types.Lookup("float")));
  EXPECT_FALSE(types.Lookup("bool")->IsCompatibleType(types.Lookup("float")));
  EXPECT_TRUE(types.Lookup("array")->IsArray());
}

TEST_F(Types, FoundWithoutRegardToCaseInNameOrder) {
  EXPECT_EQ(types.FindType("INTEGER"), types.FindType("integer"));
  EXPECT_EQ(types.FindType("nothing"), TypeList::kNotFound);
  EXPECT_EQ(types.GetType("nothing"), nullptr);
  EXPECT_EQ(types.GetType(TypeList::kNotFound), nullptr);
  EXPECT_FALSE(types.FindTypeRef("nothing"));
  EXPECT_EQ(types.GetTypeName(0), "array");
  for (uint32_t i = 0; i < types.GetTypeCount(); ++i) {
    EXPECT_EQ(types.FindType(types.GetTypeName(i)), i);
  }
}

TEST_F(Types, OwnTypesStayOutOfOtherLists) {
  TypeList other(types);
  auto* point = new VarStruct("", 0);
  point->SetStructName("Point");
  point->AddStructElement(new VarInteger("x", 0), 1);
  types.AddType("Point[]", new VarStructArray(point, "", 0), 0);
  const uint32_t at = types.AddType("Point", point, 0);
  EXPECT_EQ(types.GetTypeName(at), "Point");
  EXPECT_EQ(other.FindType("Point"), TypeList::kNotFound);
  Held<Variable> p(types.GetType("point")->CreateVariable("p"));
  EXPECT_EQ(p->GetStructElementIndex("X"), 1u);
  Held<Variable> list(types.GetType("POINT[]")->CreateVariable("l"));
  list->SetArraySize(2);
  EXPECT_EQ(list->GetArrayElement(2)->GetStructName(), "Point");
  // One description of the members for all values of the type.
  EXPECT_TRUE(types.Lookup("Point")->Type()->Accepts(*types.FindTypeRef("point")));
  TypeList third(types);
  EXPECT_NE(third.FindType("Point"), TypeList::kNotFound);
}

TEST_F(Types, EntriesAreReplacedRemovedAndHandedOver) {
  const uint32_t count = types.GetTypeCount();
  types.AddType("File", new VarHandle("", "File", 0), 1);
  types.AddType("FILE", new VarHandle("", "File2", 0), 3);  // replaces
  EXPECT_EQ(types.GetTypeCount(), count + 1);
  EXPECT_EQ(types.GetType("file")->GetVariable()->GetHandleName(), "File2");
  auto* refused = new TamberType("File", new VarInteger("", 0), 0);
  EXPECT_EQ(types.AddType(refused, 0), types.FindType("File"));
  delete refused;
  TamberType* taken = types.RemoveType(types.FindType("File"));
  ASSERT_NE(taken, nullptr);
  EXPECT_EQ(taken->GetTypeName(), "FILE");
  delete taken;
  EXPECT_EQ(types.FindType("File"), TypeList::kNotFound);
  EXPECT_EQ(types.RemoveType(1000), nullptr);
  types.DeleteType(types.FindType("int"));
  EXPECT_EQ(types.FindType("int"), TypeList::kNotFound);
  EXPECT_NE(TypeList().GetTypeCount(), count);
  TypeList fresh;
  fresh.CreateDefaultTypes();
  EXPECT_NE(fresh.FindType("int"), TypeList::kNotFound);
}

TEST_F(Types, ChangingAnEntryChangesOneListOnly) {
  TypeList other(types);
  types.GetType("int")->SetTypeFlags(5);
  EXPECT_EQ(other.Lookup("int")->GetTypeFlags(), 1u);
  EXPECT_EQ(types.Lookup("int")->GetTypeFlags(), 5u);
  TypeList third;
  third.UseTypes(types.ShareTypes());
  EXPECT_EQ(third.Lookup("int"), types.Lookup("int"));
  third.DeleteType(third.FindType("int"));
  EXPECT_NE(types.Lookup("int"), nullptr);
}

TEST_F(Types, Dumps) {
  KelString out;
  types.DumpTypes(out, "int;string[], unknown", " ");
  EXPECT_EQ(out,
            "\r\nData types dump: (limited by INI file settings) \r\n"
            " int: type=integer\r\n string[]: type=string[]\r\n");
  KelString all;
  types.DumpTypes(all, "int *", "");
  EXPECT_TRUE(
      all.View().starts_with("\r\nData types dump:\r\narray: type=array\r\nbool: type=bool\r\n"));
}

}  // namespace
