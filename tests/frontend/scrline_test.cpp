#include "frontend/scrline.h"

#include <gmock/gmock.h>

#include <string>
#include <utility>
#include <vector>

#include "scriptfixture.h"
#include "values/errcodes.h"

namespace {

using testing::ElementsAre;
using testing::Pair;

std::vector<std::pair<uint32_t, std::string>> LogicalLines(ScriptLine& script) {
  std::vector<std::pair<uint32_t, std::string>> lines;
  while (script.ReadLogicalLine()) {
    lines.emplace_back(script.GetStatementLine(), script.GetLogicalLine().Str());
  }
  EXPECT_EQ(script.GetTokeniser().GetLastError(), ERR_SCRNOMORELINES);
  return lines;
}

std::vector<std::pair<uint32_t, std::string>> LogicalLines(const char* text) {
  return LogicalLines(*MakeScript(text));
}

TEST(ScriptLine, JoinsContinuedLines) {
  EXPECT_THAT(LogicalLines("a = 1 + \\\n  2\nb"), ElementsAre(Pair(1, "a = 1 +  2"), Pair(3, "b")));
  EXPECT_THAT(LogicalLines("a \\\r\n\\\r\nb\r\nc"), ElementsAre(Pair(1, "a   b"), Pair(4, "c")));
  // A comment line and a blank line end the statement, and so does the end of the script.
  EXPECT_THAT(LogicalLines("a \\\n# note \\\nb"), ElementsAre(Pair(1, "a"), Pair(3, "b")));
  EXPECT_THAT(LogicalLines("a \\\n\nb"), ElementsAre(Pair(1, "a"), Pair(3, "b")));
  EXPECT_THAT(LogicalLines("a = 1 + \\"), ElementsAre(Pair(1, "a = 1 +")));
  // Behind code a comment goes on like the line it belongs to; a comment line does not.
  EXPECT_THAT(LogicalLines("a // x \\\nb"), ElementsAre(Pair(1, "a // x  b")));
  EXPECT_THAT(LogicalLines("// x \\\nb"), ElementsAre(Pair(1, ""), Pair(2, "b")));
}

}  // namespace
