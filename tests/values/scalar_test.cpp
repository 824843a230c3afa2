#include <string>

#include "value_testing.h"
#include "values/vardouble.h"
#include "values/varint.h"
#include "values/varref.h"

namespace {

class Scalars : public ValueTest {};

TEST_F(Scalars, ReferencesForwardEverythingButTheirIdentity) {
  auto target = Make<VarInteger>("Target", 4u);
  VarReference first("Alias", target.get());
  VarReference second(&first);
  EXPECT_EQ(second.Dereference(), target.get());
  EXPECT_EQ(first.GetVarName(), "Target");
  EXPECT_TRUE(first.OwnName().Equals("alias"));
  EXPECT_EQ(first.GetTypeId(), Variable::Integer);
  second.SetIntegerValue(9);
  EXPECT_EQ(target->GetIntegerValue(), 9);
  EXPECT_EQ(first.GetHandleValue(), reinterpret_cast<void*>(intptr_t{9}));
  EXPECT_EQ(first.GetVarFlags(), 4u);
  first.SetVarFlags(1);
  EXPECT_EQ(target->GetVarFlags(), 1u);
  EXPECT_EQ(DumpOf(first), "Target: type=integer, value=9\r\n");
  VarDouble d("d", 0);
  EXPECT_EQ(d.Assign(&first), 1);
  EXPECT_EQ(d.GetDoubleValue(), 9.0);
  EXPECT_EQ(first.Assign(&d), 1);
  Held<Variable> copy(first.Clone());
  EXPECT_EQ(copy->Dereference(), nullptr);
  target.reset();
  EXPECT_EQ(first.GetIntegerValue(), 9);  // the reference holds it
  VarReference nothing(nullptr);
  EXPECT_EQ(nothing.GetTypeId(), Variable::None);
  EXPECT_EQ(nothing.Assign(&d), 0);
}

}  // namespace
