#include <gmock/gmock.h>

#include <string>

#include "kel/sessionstore.h"
#include "kel/tempdir.h"
#include "value_testing.h"
#include "values/valuesession.h"
#include "values/vararray.h"
#include "values/varestring.h"
#include "values/varholder.h"
#include "values/varint.h"
#include "values/varref.h"
#include "values/varstring.h"
#include "values/varstruct.h"

namespace {

using testing::ElementsAre;

class Sessions : public TempDirTest {
 protected:
  void Store(Variable& variable) { variable.StoreToSession(7u, store_.get()); }
  void Load(Variable& variable) { variable.LoadFromSession(7u, store_.get()); }
  std::string Kept(const char* key) {
    std::string text;
    int64_t number = 0;
    return store_->GetInteger(key, number) ? std::to_string(number)
           : store_->GetText(key, text)    ? text
                                           : "none";
  }
  void SetUp() override {
    TempDirTest::SetUp();
    store_ = kel::OpenSessionStore("sessions");
  }
  std::shared_ptr<SessionStore> store_;
};

TEST_F(Sessions, EStringsStayEnciphered) {
  VarEString e("e", 0);
  e.SetStringValue("quiet words", 0);
  Store(e);
  EXPECT_EQ(Kept("session/7/e").find("quiet"), std::string::npos);
  VarEString back("E", 0);
  Load(back);
  EXPECT_STREQ(back.GetStringValue(), "quiet words");
  store_->SetText("session/7/e", "short");
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
  EXPECT_EQ(Kept("session/7/points"), "2");
  EXPECT_EQ(Kept("session/7/points/2/x"), "8");
  EXPECT_EQ(Kept("session/7/points/2/names/1"), "Ann");
  VarStructArray back(&point, "points", 0);
  VarReference through("other", &back);
  Load(through);
  EXPECT_EQ(DumpOf(back).substr(6), DumpOf(points).substr(6));
  points.SetArraySize(1);
  Store(points);
  EXPECT_TRUE(store_->SubKeys("session/7/points/2/").empty());
  Load(back);
  EXPECT_EQ(back.GetElementCount(), 1u);
}

TEST_F(Sessions, OnlyChangesAreWritten) {
  VarStruct point("p", 0);
  point.SetStructName("Point");
  point.AddStructElement(new VarInteger("X", 0), 1);
  point.AddStructElement(new VarStringArray("Names", 0), 1);
  VarStructArray points(&point, "points", 0);
  points.SetArraySize(3);
  points.GetArrayElement(2)->GetStructElement("names")->SetArraySize(2);
  const auto written = [&](auto&& change) {
    const tamber::VarHolder before(points.Clone());
    change();
    store_->DeleteTree("k");
    tamber::StoreChanges(points, *before, "k", *store_);
    return store_->SubKeys("k");
  };
  EXPECT_THAT(written([] {}), ElementsAre());
  EXPECT_THAT(written([&] {
                points.GetArrayElement(2)->GetStructElement("x")->SetIntegerValue(8);
                Variable* names = points.GetArrayElement(2)->GetStructElement("names");
                names->GetArrayElement(1)->SetStringValue("A", 0);
              }),
              ElementsAre("k/2/names/1", "k/2/x"));
  EXPECT_THAT(written([&] { points.SetArraySize(4); }), ElementsAre("k", "k/4/names", "k/4/x"));
  EXPECT_THAT(written([&] { points.SetArraySize(1); }), ElementsAre("k", "k/1/names", "k/1/x"));
}

}  // namespace
