#include "text/tokenise.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace {

using testing::ElementsAre;

std::vector<std::string> Tokens(Tokeniser& tokeniser, int convert = 1, int report = 1) {
  std::vector<std::string> tokens;
  for (;;) {
    tokeniser.GetNextToken(convert, report);
    if (tokeniser.GetTokenLength() == 0) return tokens;
    EXPECT_EQ(tokeniser.GetCurrentToken()[tokeniser.GetTokenLength()], 0);
    tokens.emplace_back(tokeniser.Token());
  }
}

std::vector<std::string> Tokens(const char* line, int convert = 1, int report = 1) {
  Tokeniser tokeniser(line);
  return Tokens(tokeniser, convert, report);
}

TEST(Tokenise, OperatorsTakeTheLongestMatch) {
  EXPECT_THAT(Tokens("a<<=b"), ElementsAre("a", "<<=", "b"));
  EXPECT_THAT(Tokens("a>>=b"), ElementsAre("a", ">>", "=", "b"));
  EXPECT_THAT(Tokens(">=<=+=-=*=/=%=&=|=^=!==="),
              ElementsAre(">=", "<=", "+=", "-=", "*=", "/=", "%=", "&=", "|=", "^=", "!=", "=="));
  EXPECT_THAT(Tokens("&&||<<>>/**/"), ElementsAre("&&", "||", "<<", ">>", "/*", "*/"));
  EXPECT_THAT(Tokens("=+-* /%<>()&|^"),
              ElementsAre("=", "+", "-", "*", "/", "%", "<", ">", "(", ")", "&", "|", "^"));
  EXPECT_THAT(Tokens("*==<>=!!"), ElementsAre("*=", "=", "<", ">=", "!", "!"));
}

TEST(Tokenise, CommentsEndTheLine) {
  for (const char* line : {"", "  \t", "// x", "; x", " # x"}) {
    EXPECT_THAT(Tokens(line), ElementsAre()) << line;
  }
  EXPECT_THAT(Tokens("a ; b"), ElementsAre("a"));
  EXPECT_THAT(Tokens("a#b"), ElementsAre("a"));
  EXPECT_THAT(Tokens("a // b"), ElementsAre("a"));
  EXPECT_THAT(Tokens("\"#;//\" ';'"), ElementsAre("\"#;//\"", "';'"));

  Tokeniser tokeniser("a ; b");
  tokeniser.GetNextToken(1, 1);
  tokeniser.GetNextToken(1, 1);
  EXPECT_STREQ(tokeniser.GetNextToken(1, 1), "");
  EXPECT_EQ(tokeniser.PeekNextChar(), ';');

  Tokeniser plain("; # //");
  plain.SetHandleComments(false);
  EXPECT_THAT(Tokens(plain), ElementsAre(";", "#", "/", "/"));
}

struct QuoteCase {
  const char* line;
  int convert;
  int report;
  std::vector<std::string> tokens;
  int error;
};

TEST(Tokenise, Quotes) {
  const std::vector<QuoteCase> cases = {{"\"a b\"c", 1, 1, {"\"a b\"", "c"}, 0},
                                        {"'a b' '\"'", 1, 1, {"'a b'", "'\"'"}, 0},
                                        {"'\\'x", 1, 1, {"'\\'", "x"}, 0},
                                        {"\"abc", 1, 1, {"\"abc"}, Tokeniser::kNoQuote},
                                        {"'a", 1, 1, {"'a"}, Tokeniser::kNoQuote},
                                        {"\"abc", 1, 0, {"\"abc"}, 0},
                                        {"'a", 0, 0, {"'a"}, 0},
                                        {"\"", 1, 1, {"\""}, Tokeniser::kNoQuote},
                                        {"abc\"def", 1, 0, {"abc\"def"}, 0},
                                        {"don't x", 1, 0, {"don't", "x"}, 0},
                                        {"1.5\"x", 1, 0, {"1.5\"x"}, 0},
                                        {R"("a\"b" c)", 0, 1, {R"("a\"b")", "c"}, 0},
                                        {R"("a\nb\q")", 0, 1, {R"("a\nb\q")"}, 0},
                                        {R"("a\"b" c)", 1, 1, {"\"a\"b\"", "c"}, 0},
                                        {R"("abc\)", 1, 1, {"\"abc\\"}, Tokeniser::kNoQuote},
                                        {R"("abc\")", 0, 1, {R"("abc\")"}, Tokeniser::kNoQuote},
                                        {R"("\x4)", 1, 1, {"\"x4"}, Tokeniser::kNoQuote}};
  for (const QuoteCase& row : cases) {
    Tokeniser tokeniser(row.line);
    EXPECT_EQ(Tokens(tokeniser, row.convert, row.report), row.tokens) << row.line;
    EXPECT_EQ(tokeniser.GetLastError(), row.error) << row.line;
  }

  Tokeniser word("abc\"def");
  EXPECT_STREQ(word.GetNextToken(1, 1), "abc");
  EXPECT_EQ(word.GetLastError(), Tokeniser::kBadQuote);
  word.SetLine("x");
  EXPECT_EQ(word.GetLastError(), 0);
}

}  // namespace
