#include <string>

#include "value_testing.h"
#include "values/varint.h"
#include "values/varlist.h"

namespace {

class Lists : public ValueTest {
 protected:
  static Variable* Named(const std::string& name, int32_t value = 0) {
    auto* variable = new VarInteger(KelString(name), 0);
    variable->SetIntegerValue(value);
    return variable;
  }
  static std::string Names(const VarList& list) {
    std::string names;
    for (uint32_t i = 0; i < list.GetSize(); ++i) {
      names += list.GetVariable(i)->GetVarName().Str() + " ";
    }
    return names;
  }
};

TEST_F(Lists, InsertionOrderOrNameOrder) {
  VarList plain, sorted(true);
  for (const char* name : {"delta", "Alpha", "charlie", "Bravo"}) {
    plain.AddVariable(Named(name));
    sorted.AddVariable(Named(name));
  }
  EXPECT_EQ(Names(plain), "delta Alpha charlie Bravo ");
  EXPECT_EQ(Names(sorted), "Alpha Bravo charlie delta ");
  EXPECT_EQ(plain.FindVariable("CHARLIE"), 2u);
  EXPECT_EQ(sorted.FindVariable("CHARLIE"), 2u);
  EXPECT_EQ(plain.FindVariable("echo"), VarList::kNotFound);
  EXPECT_EQ(sorted.FindVariable("echo"), VarList::kNotFound);
  EXPECT_EQ(sorted.FindVariable(""), VarList::kNotFound);
  EXPECT_EQ(plain.GetVariable(4), nullptr);
  EXPECT_EQ(plain.GetVariable("echo"), nullptr);
  plain.Sort();
  EXPECT_EQ(Names(plain), Names(sorted));
}

TEST_F(Lists, RemovalHandsOver) {
  VarList list;
  for (int i = 0; i < 20; ++i) list.AddVariable(Named("v" + std::to_string(i), i));
  EXPECT_EQ(list.FindVariable("V13"), 13u);
  Held<Variable> taken(list.RemoveVariable(5));
  EXPECT_EQ(taken->GetIntegerValue(), 5);
  EXPECT_EQ(list.FindVariable("V13"), 12u);
  EXPECT_EQ(list.RemoveVariable("v5"), nullptr);
  list.DeleteVariable(0);
  list.DeleteVariable(100);
  EXPECT_EQ(list.GetSize(), 18u);
  list.AddVariable(Named("v5", 55));
  EXPECT_EQ(list.GetVariable("v5")->GetIntegerValue(), 55);
  list.ClearList();
  EXPECT_EQ(list.FindVariable("v1"), VarList::kNotFound);
}

}  // namespace
