#include <gmock/gmock.h>

#include <cmath>
#include <cstdlib>
#include <limits>
#include <random>

#include "modules/string_caller.h"

namespace tamber {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr int kMin = std::numeric_limits<int32_t>::min();
constexpr int kMax = std::numeric_limits<int32_t>::max();

class Strings : public testing::Test {
 protected:
  StringCaller call;
};

std::string RandomBytes(std::mt19937& random, size_t length) {
  std::string bytes(length, '\0');
  for (char& byte : bytes) byte = static_cast<char>(random());
  return bytes;
}

TEST_F(Strings, CutsAtTheEnds) {
  struct {
    const char* function;
    int count;
    const char* expected;
  } const cases[] = {
      {"StrLeft", 2, "he"},
      {"StrLeft", 99, "hello"},
      {"StrLeft", 0, ""},
      {"StrLeft", kMin, ""},
      {"StrRight", 2, "lo"},
      {"StrRight", kMax, "hello"},
      {"StrRight", -1, ""},
      {"StrTruncateRight", 2, "hel"},
      {"StrTruncateRight", 5, ""},
      {"StrTruncateRight", kMax, ""},
      {"StrTruncateRight", -1, "hello"},
      {"StrTruncateRight", kMin, "hello"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(call.Text(c.function, "hello", c.count), c.expected) << c.function << c.count;
    EXPECT_EQ(call.Text(c.function, "", c.count), "");
    EXPECT_EQ(call.code, 0);
  }
  EXPECT_EQ(call.Text("StrMid", "hello", 2, 3), "ell");
  EXPECT_EQ(call.Text("StrMid", "hello", 4, 99), "lo");
  EXPECT_EQ(call.Text("StrMid", "hello", 6, 1), "");
  EXPECT_EQ(call.Text("StrMid", "hello", 0, 2), "he");
  EXPECT_EQ(call.Text("StrMid", "hello", kMin, kMax), "hello");
  EXPECT_EQ(call.Text("StrMid", "hello", kMax, kMin), "");
  EXPECT_EQ(call.Int("StrLen", std::string("a\0b", 3)), 3);
}

TEST_F(Strings, SplitsAndSorts) {
  EXPECT_THAT(call.Elements("StrTokenise", "a,,b;c", ",;"), ElementsAre("a", "b", "c"));
  EXPECT_THAT(call.Elements("StrTokenise", "a b", ""), ElementsAre("a b"));
  EXPECT_THAT(call.Elements("StrTokenise", "", ","), IsEmpty());
  EXPECT_THAT(call.Elements("StrTokenise", ",;,", ",;"), IsEmpty());

  call.Call("StrTokenise", "b,A,a,B", ",");
  Variable* texts = call.GetStack().GetVariable(0)->Duplicate();
  EXPECT_THAT(call.Elements("StrSort", texts, true, true), ElementsAre("A", "B", "a", "b"));
  EXPECT_THAT(call.Elements("StrSort", texts, false, true), ElementsAre("b", "a", "B", "A"));
  EXPECT_THAT(call.Elements("StrSort", texts, true, false), ElementsAre("A", "a", "b", "B"));
  EXPECT_THAT(call.Elements("StrSort", texts, false, false), ElementsAre("b", "B", "A", "a"));
  EXPECT_THAT(StringCaller::ElementsOf(*texts), ElementsAre("b", "A", "a", "B"));
  Variable::Delete(texts);
}

TEST_F(Strings, SearchesAsStrCaseSays) {
  const char* const kMatch = "StrMatch (string Value, string Pattern)";
  const char* const kMatchPcre = "StrMatchPcre (string Value, string Regex)";
  EXPECT_EQ(call.Int("StrFind (", "Hello", "hello"), 1);
  EXPECT_EQ(call.Int("StrFind (", "Hello", "lo"), 4);
  EXPECT_EQ(call.Int("StrFind (", "Hello", ""), 1);
  EXPECT_EQ(call.Int("StrFind (", "", "x"), 0);
  EXPECT_TRUE(call.Bool(kMatch, "Hello", "h*O"));
  EXPECT_TRUE(call.Bool(kMatchPcre, "Hello", "hel"));
  call.SetSwitch("StrCase", 1);
  EXPECT_EQ(call.Int("StrFind (", "Hello", "hello"), 0);
  EXPECT_FALSE(call.Bool(kMatch, "Hello", "h*O"));
  EXPECT_TRUE(call.Bool(kMatch, "Hello", "?e*"));
  EXPECT_FALSE(call.Bool(kMatchPcre, "Hello", "hel"));
  EXPECT_TRUE(call.Bool("StrMatch (string Value, string Pattern, bool", "Hello", "h*O", false));
}

TEST_F(Strings, ComparesVersions) {
  const std::tuple<const char*, const char*, const char*, bool> cases[] = {
      {"1.10", ">", "1.9", true},
      {"1.0.0", "==", "1", true},
      {"1.0", "=", "1.0", true},
      {"2.0", "<=", "1.99", false},
      {"1.2", "!=", "1.2.0", false},
      {"", "<", "0.1", true},
      {"99999999999999999999", "==", "88888888888888888888", true},
      {"1.2b", ">=", "1.2", true},
  };
  for (const auto& [left, sign, right, expected] : cases) {
    EXPECT_EQ(call.Bool("CompareVersions", left, sign, right), expected) << left << sign << right;
    EXPECT_EQ(call.code, 0);
  }
  EXPECT_FALSE(call.Bool("CompareVersions", "1", "=>", "1"));
  EXPECT_EQ(call.code, ERR_INVALIDPARAM);
  EXPECT_EQ(call.errorText, "=>");
}

TEST_F(Strings, FindsAndReplacesByExpression) {
  EXPECT_THAT(call.Elements("StrFindRegEx (", "a1b22c333", "[0-9]+", true),
              ElementsAre("1", "22", "333"));
  EXPECT_THAT(call.Elements("StrFindRegEx2", "a1b22c333", "[0-9]+", true),
              ElementsAre("2,1", "4,2", "7,3"));
  EXPECT_THAT(call.Elements("StrFindRegEx2", "ab", "x*", true), ElementsAre("1,0", "2,0", "3,0"));
  EXPECT_TRUE(call.Bool("StrMatchRegEx", "say hello", "HELLO", false));
  EXPECT_FALSE(call.Bool("StrMatchRegEx", "say hello", "HELLO", true));
  for (const char* function : {"StrReplaceRegEx", "StrReplacePcre"}) {
    EXPECT_EQ(call.Text(function, "John Smith", "(\\w+) (\\w+)", "$2, \\1", true), "Smith, John");
    EXPECT_EQ(call.Text(function, "a-b", "-", "$$\\\\$x$0", true), "a$\\$x-b");
    EXPECT_EQ(call.Text(function, "baaac", "a*", "-", true), "-b--c-");
    EXPECT_EQ(call.Text(function, "ab", "(a)|(b)", "[$1$2$12]", true), "[aa2][b2]");
    EXPECT_EQ(call.Text(function, "\xC3\xA9\xE2\x82\xAC", "x*", "-", true),
              "-\xC3\xA9-\xE2\x82\xAC-");
    EXPECT_EQ(call.Text(function, "same", "x", "y", true), "same");
    EXPECT_EQ(call.Text(function, "", "^$", "new", true), "new");
    EXPECT_EQ(call.Text(function, "keep", "(", "y", true), "keep");
    EXPECT_EQ(call.code, ERR_INVALIDPARAM);
    EXPECT_THAT(call.errorText, HasSubstr(" at position "));
  }
}

TEST_F(Strings, PcreFillsItsResult) {
  const char* const kFind =
      "StrFindPcre (string Value, string Regex, string Result[], bool CaseSensitive)";
  const char* const kLines = "bool fMultiline";
  const char* const kSafe = "string Result[], bool CaseSensitive, bool StringSafe";
  Variable* result = MakeVariable(TypeDesc::ArrayOf(TypeDesc::Of(Kind::String)), Name());
  EXPECT_TRUE(call.Bool(kFind, "x=42;", "(\\w)=(\\d+)(z)?", result, true));
  EXPECT_THAT(StringCaller::ElementsOf(*result), ElementsAre("x=42", "x", "42", ""));
  EXPECT_FALSE(call.Bool(kFind, "none", "\\d", result, true));
  EXPECT_THAT(StringCaller::ElementsOf(*result), IsEmpty());
  EXPECT_EQ(call.code, 0);
  EXPECT_TRUE(call.Bool(kLines, "a\nb", "^b$", result, true, true));
  EXPECT_FALSE(call.Bool(kLines, "a\nb", "^b$", result, true, false));
  EXPECT_TRUE(call.Bool(kSafe, "1+1=2", "1+1", result, true, true, false));
  EXPECT_THAT(StringCaller::ElementsOf(*result), ElementsAre("1+1"));
  EXPECT_TRUE(call.Bool(kSafe, "a\x01z", "a z", result, true, false, true));
  EXPECT_THAT(StringCaller::ElementsOf(*result), ElementsAre("a z"));
  EXPECT_FALSE(call.Bool(kSafe, "a\x01z", "a z", result, true, true, true));
  EXPECT_FALSE(call.Bool(kFind, "a", "a(", result, true));
  EXPECT_EQ(call.code, ERR_INVALIDPARAM);
  EXPECT_THAT(StringCaller::ElementsOf(*result), IsEmpty());
  Variable::Delete(result);
}

TEST_F(Strings, LimitsAreErrorsOfTheCall) {
  EXPECT_FALSE(call.Bool("StrMatchPcre (string Value, string Regex, bool CaseSensitive)",
                         std::string(100, 'a'), "(a+)+[bc]", true));
  EXPECT_EQ(call.code, ERR_FUNCFAILED);
  EXPECT_EQ(call.errorText, "(a+)+[bc]");
  const std::string value(100, 'a');
  EXPECT_EQ(call.Text("StrReplacePcre", value, "(a+)+[bc]", "", true), value);
  EXPECT_EQ(call.code, ERR_FUNCFAILED);
}

TEST_F(Strings, MorePatternsThanTheCacheHolds) {
  for (int round = 0; round < 2; ++round) {
    for (int i = 0; i < 100; ++i) {
      const std::string number = std::to_string(i);
      EXPECT_EQ(call.Text("StrReplacePcre", "x" + number, "x" + number, "y", true), "y");
      EXPECT_EQ(call.Text("StrReplaceRegEx", "x" + number, "X" + number, "y", false), "y");
      EXPECT_EQ(call.Text("StrReplaceRegEx", "x" + number, "X" + number, "y", true), "x" + number);
    }
  }
}

TEST_F(Strings, EscapesInOnePass) {
  EXPECT_EQ(call.Text("StrEscapeHtml ", "a<b>"), "a&#60;b&#62;");
  EXPECT_EQ(call.Text("StrEscapeHtml ", "a&b#+-_"), "a&b#+-_");
  EXPECT_EQ(call.Text("StrEscapeHtml ", "<;<"), "&#60;&#59;&#60;");
  EXPECT_EQ(call.Text("StrEscapeHtml ", "\xC3\xA9\xE2\x82\xAC.\xC3"),
            "\xC3\xA9\xE2\x82\xAC&#46;&#195;");
  EXPECT_EQ(call.Text("StrEscapeHtml ", std::string("\0 ", 2)), "&#0;&#32;");
  EXPECT_EQ(call.Text("StrEscapeHtmlUrl", "a b%"), "a%20b%");
  EXPECT_EQ(call.Text("StrEscapeHtmlUrl", "-_.~\xC3\xA9\n"), "%2d%5f%2e%7e%c3%a9%0a");
  EXPECT_EQ(call.Text("StrToAscii", "a\\\x7F\xE9 "), "a\\x5c\\x7f\\xe9 ");
  EXPECT_EQ(call.Text("StrToBinary", "\\\"\\'\\\\\\b\\n\\r\\t\\x41\\x4g\\q\\"),
            "\"'\\\b\n\r\tAx4gq\\");
}

TEST_F(Strings, RoundTripsRandomBytes) {
  const std::pair<const char*, const char*> pairs[] = {{"StrToAscii", "StrToBinary"},
                                                       {"ConvertToHex", "ConvertFromHex"},
                                                       {"StrEncodeHex", "ConvertFromHex"},
                                                       {"StrEncodeBase64", "StrDecodeBase64"}};
  std::mt19937 random(5);
  for (size_t length = 0; length < 100; ++length) {
    const std::string bytes = RandomBytes(random, length);
    for (const auto& [there, back] : pairs) {
      EXPECT_EQ(call.Text(back, call.Text(there, bytes)), bytes) << there;
      EXPECT_EQ(call.code, 0);
    }
  }
  const std::string bytes = RandomBytes(random, 50);
  EXPECT_EQ(call.Text("StrDecodeDES", call.Text("StrEncodeDES", bytes, "pass"), "pass"), bytes);
}

TEST_F(Strings, RefusesMalformedEncodings) {
  const std::tuple<const char*, const char*, int> cases[] = {
      {"ConvertFromHex", "123", ERR_INVALIDPARAM},
      {"ConvertFromHex", "zz", ERR_INVALIDPARAM},
      {"StrDecodeBase64", "Zg=", ERR_INVALIDPARAM},
  };
  for (const auto& [function, value, code] : cases) {
    EXPECT_EQ(call.Text(function, value), "");
    EXPECT_EQ(call.code, code) << value;
    EXPECT_EQ(call.errorText, value);
  }
  EXPECT_EQ(call.Text("StrDecodeDES", "not base64!", "p"), "");
  EXPECT_EQ(call.code, ERR_INVALIDPARAM);
  EXPECT_EQ(call.Text("StrDecodeDES", "Zm9v", "p"), "");
  EXPECT_EQ(call.code, ERR_FUNCFAILED);
  EXPECT_EQ(call.Text("StrDecodeDES", call.Text("StrEncodeDES", "v", "p"), "q"), "");
  EXPECT_EQ(call.code, ERR_FUNCFAILED);
  EXPECT_EQ(call.Text("StrEncrypt", "v", "ROT13"), "");
  EXPECT_EQ(call.code, ERR_INVALIDPARAM);
  for (const char* cipher : {"XChaCha20", "des"}) {
    EXPECT_THAT(call.Text("StrEncrypt", "v", cipher), testing::MatchesRegex("[0-9a-f]+"));
    EXPECT_EQ(call.code, 0);
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
    EXPECT_EQ(call.Text("MakeStr (int Value, ", value, format), expected) << format;
    EXPECT_EQ(call.code, 0);
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
  };
  for (const auto& [format, value, expected] : doubles) {
    EXPECT_EQ(call.Text("MakeStr (double", value, format), expected) << format;
    EXPECT_EQ(call.code, 0);
  }
  EXPECT_EQ(call.Text("MakeStr (double", 1e308, "%.64f").size(), 309U + 65U);
  EXPECT_EQ(call.Text("MakeStr (float", 0.25f, "%.2f"), "0.25");
  EXPECT_EQ(call.Text("MakeStr (char", 'z', "<%c>"), "<z>");
  EXPECT_EQ(call.Text("MakeStr (char", '\xFF', "%d"), "-1");
}

TEST_F(Strings, RefusesFormatsThatAreNotOneConversion) {
  for (const char* format : {"", "plain", "%", "%d%d", "%n", "%s", "%*d", "%1025d", "%.65d", "%ld",
                             "%5", "%d %", "%999999999999d", "%.d%", "%p", "%a", "%1$d"}) {
    EXPECT_EQ(call.Text("MakeStr (double", 1.0, format), "") << format;
    EXPECT_EQ(call.code, ERR_INVALIDPARAM) << format;
    EXPECT_EQ(call.errorText, format);
  }
  EXPECT_EQ(call.Text("MakeStr (int Value, ", 1, "%f"), "");
  EXPECT_EQ(call.code, ERR_INVALIDPARAM);
  EXPECT_EQ(call.Text("MakeStr (int Value, ", 1, "%1024d").size(), 1024U);
}

TEST_F(Strings, WritesAndReadsIntegers) {
  EXPECT_EQ(call.Text("MakeStr (int Value)", -10), "-10");
  call.SetSwitch("IntBase", 2);
  EXPECT_EQ(call.Text("MakeStr (int Value)", -10), "FFFFFFF6");
  call.SetSwitch("IntBase", 3);
  EXPECT_EQ(call.Text("MakeStr (int Value)", 255), "ff");
  call.SetSwitch("IntBase", 99);
  EXPECT_EQ(call.Text("MakeStr (int Value)", 255), "255");
  EXPECT_EQ(call.Text("IntToHexString", -1), "ffffffff");
  EXPECT_THAT(call.Elements("StrToNumbers", "a-1,22--3x4294967296 -99999999999 5-6"),
              ElementsAre("-1", "22", "-3", "2147483647", "-2147483648", "5", "-6"));
  EXPECT_EQ(call.Int("EvalStr", " 0xFFFFFFFF "), -1);
  EXPECT_EQ(call.Int("MakeInt", "4294967295"), -1);
}

TEST_F(Strings, ReadsUtf16Digits) {
  EXPECT_EQ(call.Text("UTF16HexToStr", "00410062", ""), "Ab");
  EXPECT_EQ(call.Text("UTF16HexToStr", "D83D,DE00;41", ",;"),
            "\xF0\x9F\x98\x80"
            "A");
  EXPECT_EQ(call.Text("UTF16HexToStr", "D83D zz DE00 12345", " "), "????");
  EXPECT_EQ(call.Text("UTF16HexToStr", "004", ""), "?");
  EXPECT_EQ(call.Text("UTF16HexToStr", "", " "), "");
}

TEST_F(Strings, ExpandsEnvironmentVariables) {
  ASSERT_EQ(setenv("TAMBER_TEST_DIR", "/data", 1), 0);
  const char* const function = "StrExpandEnvString";
  EXPECT_EQ(call.Text(function, "%TAMBER_TEST_DIR%/a"), "/data/a");
  EXPECT_EQ(call.Text(function, "${TAMBER_TEST_DIR}x$TAMBER_TEST_DIR"), "/datax/data");
  EXPECT_EQ(call.Text(function, "%TAMBER_NONE%TAMBER_TEST_DIR%"), "%TAMBER_NONE/data");
  for (const char* text :
       {"50% of $5", "${TAMBER_TEST_DIR", "%TAMBER_TEST_DIR", "$", "%%", "${}"}) {
    EXPECT_EQ(call.Text(function, text), text);
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
          "StrEncodeBase64", "StrDecodeBase64", "StrEscapeHtml ", "StrEscapeHtmlUrl",
          "StrExpandEnvString"}) {
      call.Text(function, input);
    }
    call.Text("StrEncrypt", input, "DES");
    call.Elements("StrToNumbers", input);
    call.Text("UTF16HexToStr", input, "");
    call.Text("UTF16HexToStr", input, " ,");
    call.Int("StrFind (", input, input);
    call.Bool("StrMatch (string Value, string Pattern, bool", input, input, false);
    call.Text("StrReplacePcre", input, "[<$%]|\\\\", input.substr(0, 3), true);
    call.Text("StrReplaceRegEx", input, "[<$%]+", input.substr(0, 3), true);
    call.Text("StrReplacePcre", "abc", "b", input, true);
    call.Bool("StrMatchPcre (string Value, string Regex)", "abc", input);
    call.Bool("StrMatchRegEx", "abc", input, true);
    call.Bool("CompareVersions", input, "<", input);
    call.Text("MakeStr (double", 1.5, input);
    call.Text("StrDecodeDES", input, input);
  }
}

}  // namespace
}  // namespace tamber
