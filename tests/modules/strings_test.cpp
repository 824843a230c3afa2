#include <gmock/gmock.h>

#include <cmath>
#include <cstdlib>
#include <limits>
#include <random>

#include "modules/functioncaller.h"

namespace tamber {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr int kMin = std::numeric_limits<int32_t>::min();

class Strings : public FunctionCaller {};

std::string RandomBytes(std::mt19937& random, size_t length) {
  std::string bytes(length, '\0');
  for (char& byte : bytes) byte = static_cast<char>(random());
  return bytes;
}

TEST_F(Strings, PcreFillsItsResult) {
  const VarHolder result = Array<std::string>("string[]", {});
  EXPECT_TRUE(IsTrue("StrFindPcre", "x=42;", "(\\w)=(\\d+)(z)?", result, true));
  EXPECT_THAT(Texts(*result), ElementsAre("x=42", "x", "42", ""));
  EXPECT_FALSE(IsTrue("StrFindPcre", "none", "\\d", result, true));
  EXPECT_THAT(Texts(*result), IsEmpty());
  EXPECT_EQ(code_, 0);
  EXPECT_TRUE(IsTrue("StrFindPcre", "a\nb", "^b$", result, true, true));
  EXPECT_FALSE(IsTrue("StrFindPcre", "a\nb", "^b$", result, true, false));
  EXPECT_TRUE(IsTrue("StrFindPcre", "1+1=2", "1+1", result, true, true, false));
  EXPECT_THAT(Texts(*result), ElementsAre("1+1"));
  EXPECT_TRUE(IsTrue("StrFindPcre", "a\x01z", "a z", result, true, false, true));
  EXPECT_THAT(Texts(*result), ElementsAre("a z"));
  EXPECT_FALSE(IsTrue("StrFindPcre", "a\x01z", "a z", result, true, true, true));
  EXPECT_FALSE(IsTrue("StrFindPcre", "a", "a(", result, true));
  EXPECT_EQ(code_, ERR_INVALIDPARAM);
  EXPECT_THAT(Texts(*result), IsEmpty());
}

TEST_F(Strings, LimitsAreErrorsOfTheCall) {
  EXPECT_FALSE(IsTrue("StrMatchPcre", std::string(100, 'a'), "(a+)+[bc]", true));
  EXPECT_EQ(code_, ERR_FUNCFAILED);
  EXPECT_EQ(text_, "(a+)+[bc]");
  const std::string value(100, 'a');
  EXPECT_EQ(Text("StrReplacePcre", value, "(a+)+[bc]", "", true), value);
  EXPECT_EQ(code_, ERR_FUNCFAILED);
}

TEST_F(Strings, MorePatternsThanTheCacheHolds) {
  for (int round = 0; round < 2; ++round) {
    for (int i = 0; i < 100; ++i) {
      const std::string number = std::to_string(i);
      EXPECT_EQ(Text("StrReplacePcre", "x" + number, "x" + number, "y", true), "y");
      EXPECT_EQ(Text("StrReplaceRegEx", "x" + number, "X" + number, "y", false), "y");
      EXPECT_EQ(Text("StrReplaceRegEx", "x" + number, "X" + number, "y", true), "x" + number);
    }
  }
}

TEST_F(Strings, WritesNumbersByFormat) {
  const std::tuple<const char*, int, const char*> integers[] = {
      {"%d", -5, "-5"},
      {"[%5d]", 42, "[   42]"},
      {"%-5d|", 42, "42   |"},
      {"%05d", -42, "-0042"},
      {"%+d", 7, "+7"},
      {"% d", 7, " 7"},
      {"%.3d", 7, "007"},
      {"%08.3d", 7, "     007"},
      {"%x", -1, "ffffffff"},
      {"%#X", 255, "0XFF"},
      {"%o", 8, "10"},
      {"%#o", 8, "010"},
      {"%u", -1, "4294967295"},
      {"%c", 65, "A"},
      {"%3c", 65, "  A"},
      {"100%% %d%%", 1, "100% 1%"},
      {"%i", kMin, "-2147483648"},
      {"%.0d", 0, ""},
      {"%#x", 0, "0"},
      {"%--5d", 1, "1    "},
  };
  for (const auto& [format, value, expected] : integers) {
    EXPECT_EQ(Text("MakeStr", value, format), expected) << format;
    EXPECT_EQ(code_, 0);
  }
  const std::tuple<const char*, double, const char*> doubles[] = {
      {"%f", 0.5, "0.500000"},
      {"%.2f", 2.675, "2.67"},
      {"%8.1f|", -1.25, "    -1.2|"},
      {"%08.1f", -1.25, "-00001.2"},
      {"%e", 12345.678, "1.234568e+04"},
      {"%.3G", 1e-10, "1E-10"},
      {"%g", 100000.0, "100000"},
      {"%g", 1e6, "1e+06"},
      {"%#g", 1.0, "1.00000"},
      {"%#.0f", 3.0, "3."},
      {"%d", 3.99, "3"},
      {"%x", 255.5, "ff"},
      {"%f", HUGE_VAL, "inf"},
      {"%010F", -HUGE_VAL, "      -INF"},
      {"%.17g", 0.1, "0.10000000000000001"},
      {"%#.3g", 1e-5, "1.00e-05"},
      {"%#.3g", 0.25, "0.250"},
      {"%g", 0.0001, "0.0001"},
  };
  for (const auto& [format, value, expected] : doubles) {
    EXPECT_EQ(Text("MakeStr", value, format), expected) << format;
    EXPECT_EQ(code_, 0);
  }
  EXPECT_EQ(Text("MakeStr", 1e308, "%.64f").size(), 309U + 65U);
  EXPECT_EQ(Text("MakeStr", 0.25f, "%.2f"), "0.25");
  EXPECT_EQ(Text("MakeStr", 'z', "<%c>"), "<z>");
  EXPECT_EQ(Text("MakeStr", '\xFF', "%d"), "-1");
}

TEST_F(Strings, RefusesFormatsThatAreNotOneConversion) {
  for (const char* format : {"", "plain", "%", "%d%d", "%n", "%s", "%*d", "%1025d", "%.65d", "%ld",
                             "%5", "%d %", "%999999999999d", "%.d%", "%p", "%a", "%1$d"}) {
    EXPECT_EQ(Text("MakeStr", 1.0, format), "") << format;
    EXPECT_EQ(code_, ERR_INVALIDPARAM) << format;
    EXPECT_EQ(text_, format);
  }
  EXPECT_EQ(Text("MakeStr", 1, "%f"), "");
  EXPECT_EQ(code_, ERR_INVALIDPARAM);
  EXPECT_EQ(Text("MakeStr", 1, "%1024d").size(), 1024U);
}

TEST_F(Strings, ExpandsEnvironmentVariables) {
  ASSERT_EQ(setenv("TAMBER_TEST_DIR", "/data", 1), 0);
  const char* const function = "StrExpandEnvString";
  EXPECT_EQ(Text(function, "%TAMBER_TEST_DIR%/a"), "/data/a");
  EXPECT_EQ(Text(function, "${TAMBER_TEST_DIR}x$TAMBER_TEST_DIR"), "/datax/data");
  EXPECT_EQ(Text(function, "%TAMBER_NONE%TAMBER_TEST_DIR%"), "%TAMBER_NONE/data");
  for (const char* text :
       {"50% of $5", "${TAMBER_TEST_DIR", "%TAMBER_TEST_DIR", "$", "%%", "${}"}) {
    EXPECT_EQ(Text(function, text), text);
  }
}

/// Every function takes any bytes of any length; what a test of one function would not reach.
TEST_F(Strings, AnythingGoesIn) {
  std::mt19937 random(6);
  const std::string large = RandomBytes(random, 10'000'000);
  const std::string inputs[] = {"",
                                std::string(1, '\0'),
                                RandomBytes(random, 300),
                                large,
                                std::string(1'000'000, '<'),
                                std::string(1'000'000, '\\'),
                                std::string(1'000'000, '$'),
                                std::string(1'000'000, '%')};
  for (const std::string& input : inputs) {
    for (const char* function :
         {"StrToLower", "StrToUpper", "StrToAscii", "StrToBinary", "ConvertToHex", "ConvertFromHex",
          "StrEncodeBase64", "StrDecodeBase64", "StrEscapeHtml", "StrEscapeHtmlUrl",
          "StrExpandEnvString"}) {
      Text(function, input);
    }
    Text("StrEncrypt", input, "DES");
    Call("StrToNumbers", input);
    Text("UTF16HexToStr", input, "");
    Text("UTF16HexToStr", input, " ,");
    Integer("StrFind", input, input);
    IsTrue("StrMatch", input, input, false);
    Text("StrReplacePcre", input, "[<$%]|\\\\", input.substr(0, 3), true);
    Text("StrReplaceRegEx", input, "[<$%]+", input.substr(0, 3), true);
    Text("StrReplacePcre", "abc", "b", input, true);
    IsTrue("StrMatchPcre", "abc", input);
    IsTrue("StrMatchRegEx", "abc", input, true);
    IsTrue("CompareVersions", input, "<", input);
    Text("MakeStr", 1.5, input);
    Text("StrDecodeDESBase64", input, input);
  }
}

}  // namespace
}  // namespace tamber
