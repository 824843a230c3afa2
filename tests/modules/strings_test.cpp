#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <tuple>

#include "modules/functioncaller.h"

namespace tamber {
namespace {

class Strings : public FunctionCaller {};

std::string RandomBytes(std::mt19937& random, size_t length) {
  std::string bytes(length, '\0');
  for (char& byte : bytes) byte = static_cast<char>(random());
  return bytes;
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

TEST_F(Strings, RealsByFormat) {
  const std::tuple<const char*, double, const char*> rows[] = {
      {"%g", 1e6, "1e+06"},     {"%#.3g", 1e-5, "1.00e-05"}, {"%#.3g", 0.25, "0.250"},
      {"%g", 0.0001, "0.0001"}, {"%.3G", 1e-10, "1E-10"},    {"%010F", -HUGE_VAL, "      -INF"}};
  for (const auto& [format, value, expected] : rows)
    EXPECT_EQ(Text("MakeStr", value, format), expected) << format;
}

}  // namespace
}  // namespace tamber
