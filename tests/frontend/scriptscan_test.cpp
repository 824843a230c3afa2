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
  const std::vector<std::pair<ScriptShape, std::vector<const char*>>> cases = {
      {ScriptShape::Structured,
       {"", "// a\n\n# b\n; c\n", "/* x = 1\n*/\nproc main()\n", "/* never closed\nx = 1",
        "int Total(", "INT [ ] Total ( int a )", "int x\nCONST y = 1\n", "constant y",
        "session int y", "extern int y", "struct p", "include \"a\""}},
      {ScriptShape::Plain,
       {"/* proc */\nx = 1\n", "x = 1\nproc main()\n", "int x\nint y = f(1)\nPrint(1)\n",
        "int[3] x\nx[1] = 1\n", "int Int\nint[f(1)].x = 1\nproc main()",
        "int Int\nint += 1\nproc main()"}},
      {ScriptShape::Unreadable, {"\"x", "int x\na'b"}}};
  for (const auto& [shape, texts] : cases) {
    for (const char* text : texts)
      EXPECT_EQ(tamber::FindScriptShape(*MakeScript(text), IsTypeWord), shape) << text;
  }
}

TEST(ScriptShape, WhatFollowsATypeWordTellsTheLine) {
  using tamber::TypeLine;
  const std::vector<std::pair<TypeLine, std::vector<const char*>>> cases = {
      {TypeLine::Header,
       {"int f(", "int[] f (int a)", "int[3] f()", "int[ f(int[] a)", "int [3 f()"}},
      {TypeLine::Declaration,
       {"int n", "int n = StrLen(\"x\")", "int n // (count)", "int[f(3)] a", "int[3] a, b"}},
      {TypeLine::Other,
       {"int", "int = f(1)", "int.x = 1", "int(1)", "int[f(a[1])].x += g(1)", "int[1",
        "int[\"]\" a", "other n"}}};
  for (const auto& [expected, lines] : cases) {
    for (const char* line : lines) {
      Tokeniser tokeniser(line);
      const std::string word = tokeniser.GetNextToken(1, 1);
      const char* const position = tokeniser.GetSearchPtr();
      EXPECT_EQ(tamber::FindTypeLine(tokeniser, IsTypeWord), expected) << line;
      EXPECT_EQ(tokeniser.Token(), word) << line;
      EXPECT_EQ(tokeniser.GetSearchPtr(), position) << line;
    }
  }
}

}  // namespace
