#include <gmock/gmock.h>

#include <string>

#include "kel/sessionstore.h"
#include "kel/tempdir.h"
#include "value_testing.h"
#include "values/valuesession.h"
#include "values/vararray.h"
#include "values/vardouble.h"
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

/// An array of structures that hold arrays.
class Points : public Sessions {
 protected:
  static Held<VarStruct> MakePoint(const char* third) {
    auto point = Make<VarStruct>("p", 0);
    point->SetStructName("Point");
    point->AddStructElement(new VarInteger("X", 0), 1);
    point->AddStructElement(new VarStringArray("Names", 0), 1);
    if (third != nullptr) point->AddStructElement(new VarInteger(third, 0), 1);
    return point;
  }
  Points() {
    points_.SetArraySize(3);
    points_.GetArrayElement(2)->GetStructElement("x")->SetIntegerValue(8);
    Name(2, "Ann");
  }
  void Name(uint32_t point, const std::string& text) {
    Variable* names = points_.GetArrayElement(point)->GetStructElement("names");
    names->SetArraySize(1);
    names->GetArrayElement(1)->SetStringValue(KelString(text));
  }

  Held<VarStruct> point_ = MakePoint(nullptr);
  VarStructArray points_{point_.get(), "points", 0};
};

TEST_F(Points, ArraysAreOneValue) {
  Name(3, std::string("\0Tamber\n\xFF", 9));
  Store(points_);
  EXPECT_THAT(store_->SubKeys("session/7/"), ElementsAre("session/7/points"));
  VarStructArray back(point_.get(), "points", 0);
  VarReference through("other", &back);
  Load(through);
  EXPECT_EQ(DumpOf(back), DumpOf(points_));
  points_.SetArraySize(1);
  Store(points_);
  const tamber::VarHolder held(back.GetArrayElement(1)->Duplicate());
  Load(back);
  EXPECT_EQ(back.GetElementCount(), 1u);
  EXPECT_EQ(back.GetArrayElement(1), held.get()) << "who holds an element sees what is loaded";
  points_.SetArraySize(0);
  Store(points_);
  Load(back);
  EXPECT_EQ(back.GetElementCount(), 0u);
}

TEST_F(Points, MembersAreFoundByName) {
  Store(points_);
  const Held<VarStruct> wider = MakePoint("W");
  wider->GetStructElement("w")->SetIntegerValue(5);
  VarStructArray back(wider.get(), "points", 0);
  Load(back);
  Variable* second = back.GetArrayElement(2);
  EXPECT_EQ(second->GetStructElement("x")->GetIntegerValue(), 8);
  EXPECT_EQ(second->GetStructElement("w")->GetIntegerValue(), 5);
  Store(back);
  VarStructArray narrow(point_.get(), "points", 0);
  Load(narrow);
  EXPECT_EQ(DumpOf(narrow), DumpOf(points_));
}

TEST_F(Points, ElementsOfEarlierVersionsAreReadAndReplaced) {
  store_->SetInteger("session/7/points", 3);
  store_->SetInteger("session/7/points/2/x", 8);
  store_->SetInteger("session/7/points/2/names", 1);
  store_->SetText("session/7/points/2/names/1", "Ann");
  store_->SetInteger("session/7/points/3/x", 0);
  VarStructArray back(point_.get(), "points", 0);
  Load(back);
  EXPECT_EQ(DumpOf(back), DumpOf(points_));
  Store(back);
  EXPECT_THAT(store_->SubKeys("session/7/"), ElementsAre("session/7/points"));
  VarArray any("any", 0);
  store_->SetInteger("session/7/any", 1);
  store_->SetText("session/7/any/0", "string");
  store_->SetText("session/7/any/1", "x");
  Load(any);
  ASSERT_EQ(any.GetElementCount(), 1u);
  EXPECT_STREQ(any.GetArrayElement(1)->GetStringValue(), "x");
}

TEST_F(Points, DamagedArraysAreNotRead) {
  Store(points_);
  std::string whole;
  ASSERT_TRUE(store_->GetText("session/7/points", whole));
  for (size_t at = 0; at < whole.size(); ++at) {
    VarStructArray back(point_.get(), "points", 0);
    store_->SetText("session/7/points", std::string_view(whole).substr(0, at));
    Load(back);
    EXPECT_EQ(back.GetElementCount(), 0u) << at;
    for (const int byte : {0, 1, 0x7F, 0xFF, int{'['}, int{'{'}, int{'?'}}) {
      std::string changed = whole;
      changed[at] = static_cast<char>(byte);
      store_->SetText("session/7/points", changed);
      Load(back);
      EXPECT_LE(back.GetElementCount(), whole.size());
    }
  }
}

/// What an array of one type, and an array of any, hold when they are loaded by an array of
/// another.
TEST_F(Sessions, ElementsAreConverted) {
  VarDoubleArray doubles("a", 0);
  for (const double value : {0.1, -3.0, 1e300}) {
    auto* element = new VarDouble("", 0);
    element->SetDoubleValue(value);
    doubles.AddArrayElement(element);
  }
  auto* secret = new VarEString("", 0);
  secret->SetStringValue("quiet words", 0);
  VarEStringArray secrets("c", 0);
  secrets.AddArrayElement(secret);
  Store(doubles);
  Store(secrets);
  EXPECT_EQ(Kept("session/7/c").find("quiet"), std::string::npos);
  VarStringArray strings("A", 0);
  Load(strings);
  EXPECT_STREQ(strings.GetArrayElement(1)->GetStringValue(), "0.10000000000000001");
  VarFloatArray floats("a", 0);
  Load(floats);
  EXPECT_EQ(floats.GetArrayElement(1)->GetFloatValue(), 0.1F);
  VarBooleanArray booleans("a", 0);
  Load(booleans);
  EXPECT_EQ(booleans.GetElementCount(), 3u);
  EXPECT_EQ(booleans.GetArrayElement(1)->GetIntegerValue(), 0);
  VarEStringArray quiet("c", 0);
  Load(quiet);
  EXPECT_STREQ(quiet.GetArrayElement(1)->GetStringValue(), "quiet words");
  VarString text("c", 0);
  Load(text);
  EXPECT_EQ(text.GetLength(), 0u) << "an array is no string";
  text.SetStringValue(KelString(std::string("\0TamberA", 8)));
  Store(text);
  VarString same("c", 0);
  Load(same);
  EXPECT_EQ(TextOf(same), std::string("\0TamberA", 8)) << "and a string no array";
}

TEST_F(Points, OnlyChangesAreWritten) {
  const auto written = [&](auto&& change) {
    const tamber::VarHolder before(points_.Clone());
    change();
    store_->DeleteTree("k");
    tamber::StoreChanges(points_, *before, "k", *store_);
    return store_->SubKeys("k");
  };
  EXPECT_THAT(written([] {}), ElementsAre());
  EXPECT_THAT(written([&] { Name(2, "Ann"); }), ElementsAre());
  EXPECT_THAT(written([&] { Name(2, "Bob"); }), ElementsAre("k"));
  EXPECT_THAT(written([&] { points_.SetArraySize(1); }), ElementsAre("k"));
}

}  // namespace
