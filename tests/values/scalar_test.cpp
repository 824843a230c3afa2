#include <cmath>
#include <string>

#include "value_testing.h"
#include "values/varbool.h"
#include "values/varchar.h"
#include "values/vardouble.h"
#include "values/varfloat.h"
#include "values/varhandle.h"
#include "values/varint.h"
#include "values/varnone.h"
#include "values/varref.h"
#include "values/varstring.h"

namespace {

class Scalars : public ValueTest {};

template <class T>
Held<T> Holding(void (Variable::*set)(int32_t), int32_t value) {
  auto variable = Make<T>("v", 0u);
  (static_cast<Variable&>(*variable).*set)(value);
  return variable;
}

struct DoubleRow {
  double value;
  int32_t boolean, integer;
  char character;
};

TEST_F(Scalars, StringsKeepLengthsAndNuls) {
  VarString s("s", 0);
  EXPECT_STREQ(s.GetStringValue(), "");
  s.SetStringValue("", 0);
  EXPECT_EQ(s.GetLength(), 0u);
  EXPECT_STREQ(s.GetStringValue(), "");
  EXPECT_EQ(s.GetBoolValue(), 0);
  EXPECT_EQ(s.GetCharValue(), 0);
  s.SetStringValue("a\0b", 3);
  EXPECT_EQ(TextOf(s), std::string("a\0b", 3));
  EXPECT_EQ(s.GetCharValue(), 'a');
  s.SetStringValue("whole text", 0);
  EXPECT_EQ(TextOf(s), "whole text");
  s.SetStringValue(s.GetStringValue() + 6, 4);
  EXPECT_EQ(TextOf(s), "text");
  s.SetStringValue(nullptr, 5);
  EXPECT_EQ(TextOf(s), "");
  s.SetStringValue("12", 0);
  EXPECT_EQ(s.GetIntegerValue(), 0);
  EXPECT_EQ(s.GetDoubleValue(), 0.0);
}

TEST_F(Scalars, ComparisonsNeedOneType) {
  VarInteger one("x", 0), two("x", 0);
  one.SetIntegerValue(1);
  two.SetIntegerValue(2);
  VarFloat real("x", 0);
  real.SetFloatValue(1);
  EXPECT_TRUE(one < two);
  EXPECT_TRUE(two > one);
  EXPECT_FALSE(one == two);
  EXPECT_FALSE(one == real);
  EXPECT_FALSE(one < real);
  VarString upper("x", 0), lower("x", 0), tail("x", 0);
  upper.SetStringValue("ABC", 0);
  lower.SetStringValue("abc", 0);
  tail.SetStringValue("abc\0d", 5);
  EXPECT_TRUE(upper < lower);
  EXPECT_FALSE(upper == lower);
  EXPECT_TRUE(lower == tail);  // a NUL ends the comparison, not the text
  VarDouble nan("x", 0);
  nan.SetDoubleValue(std::nan(""));
  EXPECT_FALSE(nan == nan);
  // Seen as mere variables they compare by name, whatever their values are.
  const Variable& left = one;
  const Variable& right = real;
  EXPECT_TRUE(left == right);
}

TEST_F(Scalars, Dumps) {
  VarBoolean b("Flag", 0);
  b.SetBoolValue(1);
  EXPECT_EQ(DumpOf(b, "  "), "  Flag: type=bool, value=TRUE\r\n");
  VarChar c("c", 0);
  c.SetCharValue(static_cast<char>(0xE9));
  EXPECT_EQ(DumpOf(c), "c: type=char, value=-23\r\n");
  VarInteger i("i", 0);
  i.SetIntegerValue(-7);
  EXPECT_EQ(DumpOf(i), "i: type=integer, value=-7\r\n");
  VarFloat f("f", 0);
  f.SetFloatValue(0.5F);
  EXPECT_EQ(DumpOf(f), "f: type=float, value=0.500000\r\n");
  VarDouble d("d", 0);
  d.SetDoubleValue(1e308);
  EXPECT_EQ(DumpOf(d).size(), std::string("d: type=double, value=.000000\r\n").size() + 309);
  d.SetDoubleValue(-std::nan(""));
  EXPECT_EQ(DumpOf(d), "d: type=double, value=nan\r\n");
  VarString s("s", 0);
  s.SetStringValue("\t\x01'\"\\\b\n\r\x1f\xE9z\0", 12);
  EXPECT_EQ(DumpOf(s), "s: type=string, value=\\t\\x01\\'\\\"\\\\\\b\\n\\r\\x1f\xE9z\\x00\r\n");
  VarHandle h("h", "TextFile", 0);
  h.SetHandleValue(reinterpret_cast<void*>(uintptr_t{0xF12345678}));
  EXPECT_EQ(DumpOf(h), "h: type=TextFile, value=0x12345678\r\n");
  VarNone none("n", 0);
  EXPECT_EQ(DumpOf(none), "n: type=none, value=\r\n");
}

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
