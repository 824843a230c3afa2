#include "kel/regex.h"

#include <gtest/gtest.h>

#include <atomic>
#include <random>

#include "kel/regex_pcre.h"
#include "kel/regex_posix.h"
#include "kel/stop.h"
#include "kel/utf8.h"

namespace {

using kel::RegexStatus;

std::unique_ptr<kel::Regex> Pcre(std::string_view pattern, bool caseSensitive = true,
                                 bool multiline = false) {
  kel::RegexFault fault;
  auto regex = kel::CompilePcre(pattern, {caseSensitive, multiline}, fault);
  EXPECT_NE(regex, nullptr) << pattern << ": " << fault.message;
  return regex;
}

std::unique_ptr<kel::Regex> Posix(std::string_view pattern, bool caseSensitive = true) {
  kel::RegexFault fault;
  auto regex = kel::CompilePosix(pattern, caseSensitive, fault);
  EXPECT_NE(regex, nullptr) << pattern << ": " << fault.message;
  return regex;
}

RegexStatus Find(kel::Regex& regex, std::string_view subject, size_t from = 0) {
  return regex.Find(subject, from, kel::IsUtf8(subject), kel::RegexBudget());
}

/// The matched text and its groups; "no match" for none, "-" for groups that took no part.
std::string Found(kel::Regex& regex, std::string_view subject) {
  if (Find(regex, subject) != RegexStatus::kMatch) return "no match";
  std::string text;
  for (const kel::RegexSpan& group : regex.Groups()) {
    if (!text.empty()) text += '|';
    text += group.IsSet() ? std::string(group.In(subject)) : "-";
  }
  return text;
}

TEST(Pcre, TakesTextForUtf8OnlyWhenItIs) {
  EXPECT_EQ(Found(*Pcre("^.$"), "\xC3\xA9"), "\xC3\xA9");
  EXPECT_EQ(Found(*Pcre("^.$"), "\xE9"), "\xE9");
  EXPECT_EQ(Found(*Pcre("^..$"), "\xC3("), "\xC3(");
  EXPECT_EQ(Found(*Pcre("\xC3\x89", false), "\xC3\xA9"), "\xC3\xA9");
  EXPECT_EQ(Found(*Pcre("\xFF"), "a\xFF"), "\xFF");
  EXPECT_EQ(Found(*Pcre("\\x{20AC}"), "\xE2\x82\xAC"), "\xE2\x82\xAC");
  EXPECT_EQ(Found(*Pcre("\\x{20AC}"), "\xFF"), "no match");
  // A pattern cannot talk the engine into reading any bytes as UTF-8.
  EXPECT_EQ(Found(*Pcre("(*UTF)a."), "a\xFF"), "no match");
}

TEST(Pcre, GivesUpOnPatternsThatWouldRunForEver) {
  const std::string many(50'000, 'a');
  const char* const patterns[] = {"(a+)+[bc]",     "(x)?a*a*a*[bc]",      "(.+)\\1\\d",
                                  "(a?){30}a{30}", "(?:a|a)*[bc]",        "x?a*a*a*a*a*a*a*[bc]",
                                  "((a*)*)*\\d",   "(?=(a+))\\1+\\1+\\d", "^(([a-z])+.)+[A-Z]"};
  for (const char* pattern : patterns) {
    const auto regex = Pcre(pattern);
    const auto start = std::chrono::steady_clock::now();
    const kel::RegexBudget budget(std::chrono::milliseconds(500));
    const RegexStatus status = regex->Find(many, 0, true, budget);
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    EXPECT_LT(took.count(), 30) << pattern;
    EXPECT_TRUE(status == RegexStatus::kLimit || status == RegexStatus::kNoMatch ||
                std::string_view(pattern) == "(a?){30}a{30}")
        << pattern;
  }
}

/// Long subjects are looked at in pieces, which must not show.
TEST(Pcre, FindsInLongSubjectsWhatItFindsInShortOnes) {
  std::mt19937 random(7);
  const auto regex = Pcre("([a-z]+)@([a-z]+)(?=[;\xC3])|\\bq+\\b");
  for (int round = 0; round < 40; ++round) {
    std::string subject;
    std::vector<std::pair<size_t, size_t>> places;
    while (subject.size() < 20'000) {
      const size_t letters = 1 + (random() % 40 == 0 ? random() % 5000 : random() % 30);
      const size_t kind = random() % 4;
      const size_t begin = subject.size();
      if (kind == 0) {
        subject.append(letters, 'a').append("@").append(letters, 'b');
        places.emplace_back(begin, subject.size());
        subject += random() % 2 == 0 ? ";" : "\xC3\xA9";
      } else if (kind == 1) {
        subject.append(letters, 'q');
        places.emplace_back(begin, subject.size());
        subject += ' ';
      } else if (kind == 2) {
        subject.append(letters, 'a').append("@ ");
      } else {
        subject.append("\xE2\x82\xAC 12 @b ");
      }
    }
    size_t from = 0;
    for (const auto& [begin, end] : places) {
      ASSERT_EQ(Find(*regex, subject, from), RegexStatus::kMatch);
      ASSERT_EQ(regex->Groups()[0].begin, begin);
      ASSERT_EQ(regex->Groups()[0].end, end);
      from = end;
    }
    EXPECT_EQ(Find(*regex, subject, from), RegexStatus::kNoMatch);
  }
}

TEST(Posix, ExplainsMalformedPatternsAndStaysLinear) {
  kel::RegexFault fault;
  EXPECT_EQ(kel::CompilePosix("ab[z-a]", true, fault), nullptr);
  EXPECT_NE(fault.message, "");
  EXPECT_EQ(fault.offset, 3U);
  const std::string deep(251, '(');
  std::string many;
  for (int i = 0; i < 1001; ++i) many += "()";
  const std::pair<std::string, const char*> bombs[] = {{"((a{1,255}){1,255}){1,255}", ""},
                                                       {std::string(100'000, '('), "65536 bytes"},
                                                       {"a**)", ""},
                                                       {"(a\\1)", ""},
                                                       {many, "1000 groups"},
                                                       {deep, "deeper than 250"}};
  for (const auto& [bomb, message] : bombs) {
    EXPECT_EQ(kel::CompilePosix(bomb, true, fault), nullptr) << bomb.substr(0, 30);
    EXPECT_NE(fault.message.find(message), std::string::npos) << fault.message;
  }
  const std::string subject(1'000'000, 'a');
  EXPECT_EQ(Find(*Posix("(a+)+b"), subject), RegexStatus::kNoMatch);
  EXPECT_EQ(Find(*Posix("(x+x+)+y|(.*)(.*)(.*)(.*)[bc]"), subject), RegexStatus::kNoMatch);
}

/// Long texts are searched in parts, which must not show, nor what the caller leaves out.
TEST(Posix, FindsInLongSubjectsWhatItFindsInShortOnes) {
  const auto regex = Posix("([a-z]+|\xC3\xA9{2})=([0-9]*)[^;]*;|k$", false);
  const std::string gap = std::string(400'000, '.') + '\n';
  const std::string subject = gap + "ab=12" + gap + ";" + gap + "\xC3\x89\xC3\xA9=;" + gap + "K";
  size_t from = 0;
  for (const char* begin : {"ab=12", "\xC3\x89\xC3\xA9=", "K"}) {
    ASSERT_EQ(Find(*regex, subject, from), RegexStatus::kMatch) << begin;
    EXPECT_EQ(regex->Groups()[0].begin, subject.find(begin));
    from = regex->Groups()[0].end;
    EXPECT_TRUE(from == subject.size() || subject[from - 1] == ';');
  }
  EXPECT_EQ(Find(*regex, subject, from), RegexStatus::kNoMatch);
  // A match that may reach through all of the text costs too much in a large automaton.
  EXPECT_EQ(Find(*Posix("(a|b)*\\.[a.]{200}c"), subject), RegexStatus::kNoMatch);
  EXPECT_EQ(Find(*Posix("(.|\n)*\\.[a.]{200}c"), subject), RegexStatus::kLimit);
}

TEST(Regex, LooksForAStopWithinASearch) {
  std::atomic<uint32_t> word{1};
  const std::string subject = std::string(1'000'000, 'a') + '"';
  for (const auto& regex : {Pcre("(?:[^\"x]|\\\\.)*\\d"), Pcre("a*a*q"), Posix("[ab]{200}c")}) {
    const kel::StopWord stops(&word);
    EXPECT_EQ(Find(*Pcre("b"), "ab"), RegexStatus::kMatch) << "not interruptible yet";
    const kel::Interruptible interruptible(true);
    EXPECT_THROW(Find(*regex, subject), kel::Interrupted);
  }
}

TEST(Pcre, TakesMoreStackForLongMatches) {
  const std::string subject = '"' + std::string(800'000, 'x') + '"';
  EXPECT_EQ(Found(*Pcre("\"(?:[^\"\\\\]|\\\\.)*\""), subject), subject);
}

}  // namespace
