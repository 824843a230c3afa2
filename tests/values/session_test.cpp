#include <cmath>
#include <string>

#include "value_testing.h"
#include "values/vararray.h"
#include "values/varbool.h"
#include "values/varchar.h"
#include "values/vardouble.h"
#include "values/varestring.h"
#include "values/varfloat.h"
#include "values/varhandle.h"
#include "values/varint.h"
#include "values/varref.h"
#include "values/varstring.h"
#include "values/varstruct.h"

namespace {

class Sessions : public ValueTest {
 protected:
  void Store(Variable& variable) { variable.StoreToSession(7u, &store); }
  void Load(Variable& variable) { variable.LoadFromSession(7u, &store); }
  MapStore store;
};

TEST_F(Sessions, ScalarsUnderLowerCaseNames) {
  VarInteger count("Count", 0);
  count.SetIntegerValue(-5);
  Store(count);
  EXPECT_EQ(store.integers["session/7/count"], -5);
  VarChar c("c", 0);
  c.SetCharValue(static_cast<char>(0xE9));
  Store(c);
  EXPECT_EQ(store.integers["session/7/c"], -23);
  VarFloat f("f", 0);
  f.SetFloatValue(0.1F);
  Store(f);
  EXPECT_EQ(store.texts["session/7/f"], "0.100000001");
  VarDouble d("d", 0);
  d.SetDoubleValue(0.1);
  Store(d);
  EXPECT_EQ(store.texts["session/7/d"], "0.10000000000000001");
  VarString s("s", 0);
  s.SetStringValue("a\0b", 3);
  Store(s);
  VarHandle h("h", "File", 0);
  h.SetHandleValue(&h);
  Store(h);
  EXPECT_TRUE(store.SubKeys("session/7/h").empty());

  VarInteger count2("COUNT", 0);
  Load(count2);
  EXPECT_EQ(count2.GetIntegerValue(), -5);
  VarFloat f2("f", 0);
  Load(f2);
  EXPECT_EQ(f2.GetFloatValue(), 0.1F);
  VarDouble d2("d", 0);
  Load(d2);
  EXPECT_EQ(d2.GetDoubleValue(), 0.1);
  VarString s2("s", 0);
  Load(s2);
  EXPECT_EQ(TextOf(s2), std::string("a\0b", 3));
  VarBoolean b("count", 0);
  Load(b);
  EXPECT_EQ(b.GetIntegerValue(), 1);  // a foreign number still makes 0 or 1
}

TEST_F(Sessions, WhatIsAbsentStays) {
  VarInteger i("i", 0);
  i.SetIntegerValue(3);
  Load(i);
  EXPECT_EQ(i.GetIntegerValue(), 3);
  VarIntegerArray a("a", 0);
  a.SetArraySize(2);
  Load(a);
  EXPECT_EQ(a.GetElementCount(), 2u);
  store.SetInteger("session/7/a", 2000000000);  // a count without elements
  Load(a);
  EXPECT_EQ(a.GetElementCount(), 2u);
  store.SetText("session/7/d", "rubbish");
  VarDouble d("d", 0);
  d.SetDoubleValue(4);
  Load(d);
  EXPECT_EQ(d.GetDoubleValue(), 4.0);
  i.StoreToSession(7u, nullptr);
}

TEST_F(Sessions, EStringsStayEnciphered) {
  VarEString e("e", 0);
  e.SetStringValue("quiet words", 0);
  Store(e);
  EXPECT_EQ(store.texts["session/7/e"].find("quiet"), std::string::npos);
  VarEString back("E", 0);
  Load(back);
  EXPECT_STREQ(back.GetStringValue(), "quiet words");
  store.SetText("session/7/e", "short");
  Load(back);
  EXPECT_STREQ(back.GetStringValue(), "quiet words");
}

TEST_F(Sessions, ArraysAndStructuresElementWise) {
  VarStruct point("p", 0);
  point.SetStructName("Point");
  point.AddStructElement(new VarInteger("X", 0), 1);
  point.AddStructElement(new VarStringArray("Names", 0), 1);
  VarStructArray points(&point, "Points", 0);
  points.SetArraySize(2);
  points.GetArrayElement(2)->GetStructElement("x")->SetIntegerValue(8);
  Variable* names = points.GetArrayElement(2)->GetStructElement("names");
  names->SetArraySize(1);
  names->GetArrayElement(1)->SetStringValue("Ann", 0);
  Store(points);
  EXPECT_EQ(store.integers["session/7/points"], 2);
  EXPECT_EQ(store.integers["session/7/points/2/x"], 8);
  EXPECT_EQ(store.texts["session/7/points/2/names/1"], "Ann");
  VarStructArray back(&point, "points", 0);
  VarReference through("other", &back);
  Load(through);
  EXPECT_EQ(DumpOf(back).substr(6), DumpOf(points).substr(6));
  points.SetArraySize(1);
  Store(points);
  EXPECT_TRUE(store.SubKeys("session/7/points/2/").empty());
  Load(back);
  EXPECT_EQ(back.GetElementCount(), 1u);
}

}  // namespace
