#include "frontend/blocktable.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "scriptfixture.h"
#include "values/errcodes.h"

namespace {

using tamber::BlockTable;

bool IsTestType(std::string_view word) { return word == "int" || word == "point"; }

struct Case {
  const char* text;
  std::vector<std::pair<uint32_t, uint32_t>> matches;  // opening line, line that it leads to
};

TEST(BlockTable, MatchesLines) {
  const std::vector<Case> cases = {
      {"if a\nif b\nelse\nendif\nelse\nendif\n", {{1, 5}, {2, 3}, {3, 4}, {5, 6}}},
      // What follows an else is no branch of it, whatever it begins with.
      {"if a\nelse\nelif b\nendif\n", {{1, 2}, {2, 4}}},
      {"if a\nelse\nelse\nendif\n", {{1, 2}, {2, 4}}},
      // Families do not look at each other.
      {"while a\nif b\nwend\nendif\n", {{1, 3}, {2, 4}}},
      {"for (;;)\nwhile a\nendfor\n", {{1, 3}, {2, 0}}},
      {"endif\nwend\nendfor\nelse\nif a\nendif\n", {{5, 6}}},
      // Without an end before endproc there is none.
      {"if a\nendproc\nendif\n", {{1, 0}}},
      {"if a\nif b\nendif\n", {{1, 0}, {2, 3}}},
      {"while a\n", {{1, 0}}},
      // Comments hide lines, continued lines hide first words, and only first words count.
      {"if a\n/* don't\nendif */ x\n# endif\nendif\n", {{1, 5}}},
      {"if a\nx = 1 + \\\nendif\nendif\n", {{1, 4}}},
      {"if a \\\n and b\ny if endif\nendif\n", {{1, 4}}}};
  for (const Case& row : cases) {
    const auto script = MakeScript(row.text);
    BlockTable table;
    table.Build(*script, IsTestType);
    for (const auto& [opening, closing] : row.matches) {
      const BlockTable::Match match = table.Find(opening);
      EXPECT_EQ(match.line, closing) << row.text << "line " << opening;
      EXPECT_EQ(match.error, 0) << row.text;
    }
  }
}

TEST(BlockTable, BrokenFirstWordsAreMetOnTheWay) {
  const auto script = MakeScript("if a\nwhile b\nx\"y\nwend\nendif\nif c\nendif\nfor (;;)\n");
  BlockTable table;
  table.Build(*script, IsTestType);
  for (const uint32_t line : {1u, 2u}) {
    EXPECT_EQ(table.Find(line).error, ERR_SCRBADQUOTE);
    EXPECT_EQ(table.Find(line).errorLine, 3u);
  }
  EXPECT_EQ(table.Find(6).error, 0);
  EXPECT_EQ(table.Find(8).error, 0);
}

TEST(BlockTable, TypedHeadersAndOpenCommentsEndNoProcedure) {
  const auto nested = MakeScript("int a\npoint[1].x = f(1)\npoint(1)\nint[] f ()\nendproc\n");
  BlockTable table;
  table.Build(*nested, IsTestType);
  EXPECT_EQ(table.NestedProcLine(), 4u);
  EXPECT_EQ(table.OpenCommentLine(), 0u);

  const auto open = MakeScript("/* a\n*/\nif b\n/* c\nendif\nendproc\n");
  BlockTable hidden;
  hidden.Build(*open, IsTestType);
  EXPECT_EQ(hidden.OpenCommentLine(), 4u);
  EXPECT_EQ(hidden.EndProcLine(), 0u);
}

}  // namespace
