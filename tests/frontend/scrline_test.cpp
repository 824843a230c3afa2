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

TEST(ScriptLine, ReadsLogicalLines) {
  EXPECT_THAT(LogicalLines(""), ElementsAre());
  EXPECT_THAT(LogicalLines("a\n\n  b  \r\n// c\nd"),
              ElementsAre(Pair(1, "a"), Pair(2, ""), Pair(3, "b"), Pair(4, ""), Pair(5, "d")));
  EXPECT_THAT(LogicalLines("\xEF\xBB\xBFx\n"), ElementsAre(Pair(1, "x")));
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

TEST(ScriptLine, GoesBackToAPosition) {
  const auto script = MakeScript("one \\\n1\ntwo\nthree");
  script->ReadLogicalLine();
  script->GetTokeniser().GetNextToken(1, 1);
  const ScriptLine::Position position = script->GetPosition();
  script->ReadLogicalLine();
  script->ReadLogicalLine();
  script->SetPosition(position);
  EXPECT_EQ(script->GetLogicalLine(), "one  1");
  EXPECT_EQ(script->GetStatementLine(), 1u);
  EXPECT_STREQ(script->GetTokeniser().GetNextToken(1, 1), "one");
  script->ReadLogicalLine();
  EXPECT_EQ(script->GetLogicalLine(), "two");
}

TEST(ScriptLine, SkipsBlockCommentsAsRawText) {
  const std::vector<std::pair<const char*, const char*>> cases = {
      {"/* x */ ignored\nnext", "next"},      {"/* don't \" */\nnext", "next"},
      {"/* see #5 ; // */\nnext", "next"},    {"/*\nif x\n# */ tail\nnext", "next"},
      {"/*/ still inside\n*/\nnext", "next"}, {"/**/\nnext", "next"},
      {"/* a \\\n b */ \\\nnext", "next"},    {"\\\n/* a\n*/\nnext", "next"},
  };
  for (const auto& [text, next] : cases) {
    const auto script = MakeScript(text);
    script->ReadLogicalLine();
    ASSERT_STREQ(script->GetTokeniser().GetNextToken(1, 1), "/*") << text;
    EXPECT_TRUE(script->SkipBlockComment()) << text;
    script->ReadLogicalLine();
    EXPECT_EQ(script->GetLogicalLine(), next) << text;
  }
  const auto open = MakeScript("/* a\n* /\n");
  open->ReadLogicalLine();
  EXPECT_FALSE(open->SkipBlockComment());
  EXPECT_FALSE(open->ReadLogicalLine());
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

TEST_F(ScriptFiles, OnlyRegularTextFilesAreScripts) {
  EXPECT_EQ(Load(Write("a.tam", "x = 1\n")), ScriptText::Status::Ok);
  EXPECT_EQ(Load(Write("empty.tam", "")), ScriptText::Status::Ok);
  EXPECT_EQ(Load(Write("nul.tam", std::string("a\0b", 3))), ScriptText::Status::NoText);
  EXPECT_EQ(Load(dir_), ScriptText::Status::Directory);
  EXPECT_EQ(Load(dir_ + "absent.tam"), ScriptText::Status::Missing);
  const std::string fifo = dir_ + "fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  EXPECT_EQ(Load(fifo), ScriptText::Status::NotRegular);
}

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
