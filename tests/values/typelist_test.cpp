#include "values/typelist.h"

#include "value_testing.h"
#include "values/vararray.h"
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

}  // namespace
