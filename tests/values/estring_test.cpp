#include <cstring>
#include <string>

#include "value_testing.h"
#include "values/strbuf.h"
#include "values/varchar.h"
#include "values/varestring.h"
#include "values/varstring.h"

namespace {

constexpr char kSecret[] = "tell nobody of this text";

class EStrings : public ValueTest {};

TEST_F(EStrings, ReadLikeAnyString) {
  VarEString e("e", 0);
  EXPECT_TRUE(e.IsEString());
  EXPECT_STREQ(e.GetStringValue(), "");
  e.SetStringValue(kSecret, 0);
  EXPECT_STREQ(e.GetStringValue(), kSecret);
  EXPECT_EQ(e.GetLength(), std::strlen(kSecret));
  EXPECT_EQ(e.GetCharValue(), 't');
  EXPECT_EQ(e.GetBoolValue(), 1);
  VarString plain("p", 0);
  plain.SetStringValue(kSecret, 0);
  EXPECT_FALSE(plain.IsEString());
  EXPECT_TRUE(e == plain);
  e.SetStringValue(e.GetStringValue() + 5, 6);
  EXPECT_STREQ(e.GetStringValue(), "nobody");
  e.SetStringValue("a\0b", 3);
  EXPECT_EQ(TextOf(e), std::string("a\0b", 3));
  e.SetStringValue("", 0);
  EXPECT_EQ(e.GetBoolValue(), 0);
}

TEST_F(EStrings, NoPlainTextInMemoryOrDumps) {
  VarEString e("e", 0);
  e.SetStringValue(kSecret, 0);
  EXPECT_EQ(e.CipherBytes().size(), std::strlen(kSecret));
  EXPECT_EQ(e.CipherBytes().find("nobody"), std::string::npos);
  EXPECT_EQ(DumpOf(e).find("nobody"), std::string::npos);
  KelString value;
  e.DumpValue(value, "");
  EXPECT_EQ(value.Find("tell"), KelString::kNotFound);
  Held<Variable> clone(e.Clone());
  EXPECT_STREQ(clone->GetStringValue(), kSecret);
  EXPECT_EQ(DumpOf(*clone).find("nobody"), std::string::npos);
}

TEST_F(EStrings, EqualTextsAreEncipheredDifferently) {
  VarEString first("e", 0), second("e", 0);
  first.SetStringValue(kSecret, 0);
  second.SetStringValue(kSecret, 0);
  EXPECT_NE(first.CipherBytes(), second.CipherBytes());
  const std::string before(first.CipherBytes());
  first.EncryptString(nullptr);
  EXPECT_NE(first.CipherBytes(), before);
  EXPECT_STREQ(first.GetStringValue(), kSecret);
}

TEST_F(EStrings, ChangingACopyLeavesTheOther) {
  VarEString e("e", 0);
  e.SetStringValue("one", 0);
  Held<Variable> copy(e.Clone());
  e.SetStringValue("two", 0);
  EXPECT_STREQ(copy->GetStringValue(), "one");
  EXPECT_STREQ(e.GetStringValue(), "two");
}

}  // namespace
