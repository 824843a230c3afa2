#include "kel/kelstring.h"

#include <gtest/gtest.h>

#include <unordered_set>

#include "kel/kelascii.h"

using namespace std::string_literals;
using namespace std::string_view_literals;

namespace {

TEST(KelString, KeepsNulsAndTakesNullAsEmpty) {
  const char* const null = nullptr;
  EXPECT_TRUE(KelString(null).IsEmpty());
  EXPECT_TRUE(KelString(null, 7).IsEmpty());
  EXPECT_STREQ(KelString().GetString(), "");
  const KelString text("a\0b"sv);
  EXPECT_EQ(text.GetLength(), 3U);
  EXPECT_EQ(text.GetString()[3], '\0');
  EXPECT_NE(text, "a");
  EXPECT_EQ(text + "c", "a\0bc"s);
  EXPECT_NE(std::hash<KelString>()(text), std::hash<KelString>()("a"));
}

TEST(KelString, ComparesUnsignedBytesAndFoldsAsciiOnly) {
  struct Row {
    std::string_view a, b;
    int with, without;  // sign of the comparison with and without case
  };
  for (const Row& row : std::initializer_list<Row>{{"a", "B", 1, -1},
                                                   {"abc", "ABC", 1, 0},
                                                   {"ab", "abc", -1, -1},
                                                   {"a\0b", "a\0c"sv, -1, -1},
                                                   {"\xE4", "\xC4", 1, 1},
                                                   {"\xE4", "z", 1, 1},
                                                   {"[", "a", -1, -1},
                                                   {"_", "A", 1, -1}}) {
    const auto sign = [](int n) { return (n > 0) - (n < 0); };
    EXPECT_EQ(sign(KelString(row.a).Compare(row.b, true)), row.with) << row.a << row.b;
    EXPECT_EQ(sign(KelString(row.a).Compare(row.b, false)), row.without) << row.a << row.b;
    EXPECT_EQ(kel::EqualsNoCase(row.a, row.b), row.without == 0);
  }
  EXPECT_EQ(KelString("aZ\xC4").ToLower(), "az\xC4");
  EXPECT_EQ(KelString("aZ\xE4").ToUpper(), "AZ\xE4");
  std::unordered_set<std::string, kel::NoCaseHash, kel::NoCaseEqual> names{"ErrCode"};
  EXPECT_TRUE(names.contains("ERRCODE"sv));
}

TEST(KelString, ReplacesWithoutLookingAtWhatItPutIn) {
  KelString text = "aXbXX";
  text.Replace("X", "XX");
  EXPECT_EQ(text, "aXXbXXXX");
  text.Replace("XX", "");
  EXPECT_EQ(text, "ab");
  text.Replace("", "never");
  text.Replace(text, text);
  EXPECT_EQ(text, "ab");
}

TEST(KelString, PrintsPartsOfItself) {
  KelString text = "a text that is too long for the small buffer inside";
  const KelString before = text;
  text.Printf("%S/%S", text, text);
  EXPECT_EQ(text, before + "/" + before);
  text.AppendPrintf("%s%S", "+", text.View().substr(0, 1));
  EXPECT_EQ(text, before + "/" + before + "+a");
}

}  // namespace
