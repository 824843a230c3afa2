#include "kel/textsearch.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "kel/kelascii.h"
#include "kel/utf8.h"
#include "kel/wildcard.h"

namespace {

std::string RandomText(std::mt19937& random, size_t length, std::string_view alphabet) {
  std::string text(length, '\0');
  for (char& c : text) c = alphabet[random() % alphabet.size()];
  return text;
}

TEST(FindText, AgreesWithThePlainSearchInBothCases) {
  std::mt19937 random(1);
  for (int round = 0; round < 3000; ++round) {
    const std::string text = RandomText(random, random() % 60, "aAbB");
    const std::string part = RandomText(random, random() % 40 / (1 + random() % 8), "aAbB");
    const size_t from = random() % (text.size() + 1);
    EXPECT_EQ(kel::FindText(text, part, true, from), text.find(part, from));
    EXPECT_EQ(kel::FindText(text, part, false, from),
              kel::Lowered(text).find(kel::Lowered(part), from));
  }
  EXPECT_EQ(kel::FindText("abc", "", true, 4), kel::kTextNotFound);
}

TEST(FindText, StaysLinearWhereTextsRepeat) {
  const std::string text(10'000'000, 'a');
  const std::string part = std::string(5'000'000, 'a') + "b";
  EXPECT_EQ(kel::FindText(text, part, true), kel::kTextNotFound);
  EXPECT_EQ(kel::FindText(text, part, false), kel::kTextNotFound);
}

/// The definition, by recursion over the pattern.
bool MatchesByDefinition(std::string_view value, std::string_view pattern) {
  if (pattern.empty()) return value.empty();
  if (pattern[0] == '*') {
    for (size_t skip = 0; skip <= value.size(); ++skip) {
      if (MatchesByDefinition(value.substr(skip), pattern.substr(1))) return true;
    }
    return false;
  }
  return !value.empty() && (pattern[0] == '?' || pattern[0] == value[0]) &&
         MatchesByDefinition(value.substr(1), pattern.substr(1));
}

TEST(Wildcard, AgreesWithItsDefinition) {
  std::mt19937 random(2);
  for (int round = 0; round < 5000; ++round) {
    const std::string value = RandomText(random, random() % 9, "ab");
    const std::string pattern = RandomText(random, random() % 7, "ab*?");
    const bool expected = MatchesByDefinition(value, pattern);
    EXPECT_EQ(kel::WildcardMatch(value, pattern, true), expected) << value << " " << pattern;
    // Long patterns are matched piece by piece.
    const std::string pad(70, 'x');
    EXPECT_EQ(kel::WildcardMatch(pad + value, pad + pattern, true), expected)
        << value << " " << pattern;
    EXPECT_EQ(kel::WildcardMatch(value + pad, pattern + kel::Uppered(pad), false), expected);
  }
}

TEST(Wildcard, DoesNotMultiplyItsStars) {
  const std::string value(1'000'000, 'a');
  EXPECT_FALSE(kel::WildcardMatch(value, "*a*a*a*a*a*a*a*b", true));
  const std::string half(500'000, 'a');
  EXPECT_FALSE(kel::WildcardMatch(value, "*" + half + "b*" + half, false));
}

TEST(Utf8, AcceptsWellFormedTextOnly) {
  for (const std::string_view good : {"", "plain", "\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80",
                                      "\xED\x9F\xBF", "\xEE\x80\x80", "\xF4\x8F\xBF\xBF"}) {
    EXPECT_TRUE(kel::IsUtf8(good));
  }
  for (const std::string_view bad :
       {"\x80", "\xC3", "\xC0\xAF", "\xE0\x80\xAF", "\xED\xA0\x80", "\xF0\x80\x80\x80",
        "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xFF", "\xE2\x82", "a\xC3(", "\xC3\xA9\xA9"}) {
    EXPECT_FALSE(kel::IsUtf8(bad));
    // Wherever it stands in a longer text.
    for (size_t before = 0; before < 40; ++before) {
      const std::string text = std::string(before, 'x') + std::string(bad) + std::string(40, 'x');
      EXPECT_FALSE(kel::IsUtf8(text)) << before;
    }
  }
}

}  // namespace
