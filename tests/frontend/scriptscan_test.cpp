#include "frontend/scriptscan.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "kel/kelascii.h"
#include "scriptfixture.h"

namespace {

using tamber::ScriptShape;

bool IsTypeWord(std::string_view word) {
  return kel::EqualsNoCase(word, "int") || kel::EqualsNoCase(word, "string");
}

TEST(ScriptShape, TheFirstDecidingLineTells) {
  const std::vector<std::pair<const char*, ScriptShape>> cases = {
      {"", ScriptShape::Structured},
      {"// a\n\n# b\n; c\n", ScriptShape::Structured},
      {"/* x = 1\n*/\nproc main()\n", ScriptShape::Structured},
      {"/* never closed\nx = 1", ScriptShape::Structured},
      {"/* proc */\nx = 1\n", ScriptShape::Plain},
      {"x = 1\nproc main()\n", ScriptShape::Plain},
      {"int Total(", ScriptShape::Structured},
      {"INT [ ] Total ( int a )", ScriptShape::Structured},
      {"int x\nint y = f(1)\nPrint(1)\n", ScriptShape::Plain},
      {"int[3] x\nx[1] = 1\n", ScriptShape::Plain},
      {"int Int\nint[f(1)].x = 1\nproc main()", ScriptShape::Plain},
      {"int Int\nint += 1\nproc main()", ScriptShape::Plain},
      {"int x\nCONST y = 1\n", ScriptShape::Structured},
      {"constant y", ScriptShape::Structured},
      {"session int y", ScriptShape::Structured},
      {"extern int y", ScriptShape::Structured},
      {"struct p", ScriptShape::Structured},
      {"include \"a\"", ScriptShape::Structured},
      {"\"x", ScriptShape::Unreadable},
      {"int x\na'b", ScriptShape::Unreadable}};
  for (const auto& [text, shape] : cases) {
    EXPECT_EQ(tamber::FindScriptShape(*MakeScript(text), IsTypeWord), shape) << text;
  }
}

TEST(ScriptShape, WhatFollowsATypeWordTellsTheLine) {
  using tamber::TypeLine;
  const std::vector<std::pair<const char*, TypeLine>> cases = {
      {"int f(", TypeLine::Header},
      {"int[] f (int a)", TypeLine::Header},
      {"int[3] f()", TypeLine::Header},
      {"int[ f(int[] a)", TypeLine::Header},
      {"int [3 f()", TypeLine::Header},
      {"int n", TypeLine::Declaration},
      {"int n = StrLen(\"x\")", TypeLine::Declaration},
      {"int n // (count)", TypeLine::Declaration},
      {"int[f(3)] a", TypeLine::Declaration},
      {"int[3] a, b", TypeLine::Declaration},
      {"int", TypeLine::Other},
      {"int = f(1)", TypeLine::Other},
      {"int.x = 1", TypeLine::Other},
      {"int(1)", TypeLine::Other},
      {"int[f(a[1])].x += g(1)", TypeLine::Other},
      {"int[1", TypeLine::Other},
      {"int[\"]\" a", TypeLine::Other},
      {"other n", TypeLine::Other}};
  for (const auto& [line, expected] : cases) {
    Tokeniser tokeniser(line);
    const std::string word = tokeniser.GetNextToken(1, 1);
    const char* const position = tokeniser.GetSearchPtr();
    EXPECT_EQ(tamber::FindTypeLine(tokeniser, IsTypeWord), expected) << line;
    EXPECT_EQ(tokeniser.Token(), word) << line;
    EXPECT_EQ(tokeniser.GetSearchPtr(), position) << line;
  }
}

struct CompactCase {
  const char* text;
  const char* out;
  int32_t error;
};

}  // namespace
