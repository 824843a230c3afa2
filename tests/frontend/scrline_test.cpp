#include "frontend/scrline.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "frontend/script.h"
#include "kel/cipher.h"
#include "scriptfixture.h"
#include "values/errcodes.h"

namespace {

using tamber::ScriptText;
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

TEST(ScriptText, DumpsTheLinesAroundOne) {
  const auto text = ScriptText::FromBuffer("t", "a\nb\r\nc\nd");
  KelString out;
  text->DumpSource(out, 2, 3);
  EXPECT_EQ(out, "\r\nScript source dump:\r\n   a\r\n>>>b\r\n   c\r\n");
  out.Clear();
  text->DumpSource(out, 4, 2147483647);
  EXPECT_EQ(out, "\r\nScript source dump:\r\n   a\r\n   b\r\n   c\r\n>>>d\r\n");
  out.Clear();
  text->DumpSource(out, 9, 4);
  EXPECT_EQ(out, "\r\nScript source dump:\r\n");
  out.Clear();
  text->DumpSource(out, 2, 0);
  text->DumpSource(out, 2, -1);
  EXPECT_EQ(out, "");
}

class ScriptFiles : public testing::Test {
 protected:
  ScriptFiles() { std::filesystem::create_directories(dir_); }
  ~ScriptFiles() override { std::filesystem::remove_all(dir_); }

  std::string Write(const char* name, const std::string& bytes) {
    const std::string path = dir_ + name;
    std::ofstream(path, std::ios::binary) << bytes;
    return path;
  }
  static ScriptText::Status Load(const std::string& path, std::string_view key = {}) {
    ScriptText::Status status;
    const auto text = ScriptText::FromFile(path, key, status);
    EXPECT_EQ(text != nullptr, status == ScriptText::Status::Ok);
    return status;
  }

  const std::string dir_ = testing::TempDir() + "scripts_" +
                           testing::UnitTest::GetInstance()->current_test_info()->name() + "/";
};

TEST_F(ScriptFiles, EncipheredScriptsNeedTheirKey) {
  const std::string path = Write("a.tam", kel::SealText("proc main()\nendproc\n", "key"));
  EXPECT_EQ(Load(path), ScriptText::Status::NotOpened);
  EXPECT_EQ(Load(path, "other"), ScriptText::Status::NotOpened);
  ScriptText::Status status;
  const auto text = ScriptText::FromFile(path, "key", status);
  ASSERT_TRUE(text);
  EXPECT_EQ(text->Line(2), "endproc");
}

}  // namespace
