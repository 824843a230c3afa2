#include <string>

#include "value_testing.h"
#include "values/varint.h"
#include "values/varlist.h"

namespace {

class Lists : public ValueTest {
 protected:
  static Variable* Named(const char* name) { return new VarInteger(name, 0); }
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

}  // namespace
