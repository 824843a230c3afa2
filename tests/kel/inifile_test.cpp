#include "kel/inifile.h"

#include <sys/stat.h>

#include <chrono>
#include <thread>

#include "tempdir.h"

namespace {

using namespace std::string_view_literals;

class IniFileTest : public TempDirTest {
 protected:
  static KelString Read(const char* section, const char* key) {
    return IniFile("t.ini").ReadString(section, key, "<default>");
  }
};

TEST_F(IniFileTest, ReadsWhatUsersWrite) {
  Put("t.ini",
      "\xEF\xBB\xBFtop = before\r\n"
      "; [NoSection]\r\n"
      "[ TamberDebug ]   ; behind the bracket\r\n"
      "  # key = comment\r\n"
      "OutputName=  C:\\logs\\a;b#c.log  \r\n"
      "OUTPUTNAME=second\r\n"
      "quoted = \"  kept blanks \"\r\n"
      "inner = say \"no\"\r\n"
      "lone = \"\n"
      "empty =\n"
      "formula = a=b\n"
      "no equals sign\n"
      "= no key\n"
      "[Other]\n"
      "key = other\n"
      "[broken\n"
      "key = in broken\n"
      "[tamberdebug]\n"
      "later = found\n"
      "last = no line end");
  struct Row {
    const char *section, *key, *value;
  };
  const Row rows[] = {{"", "top", "before"},
                      {"TamberDebug", "OutputName", "C:\\logs\\a;b#c.log"},
                      {"TAMBERDEBUG", "outputname", "C:\\logs\\a;b#c.log"},
                      {"TamberDebug", "quoted", "  kept blanks "},
                      {"TamberDebug", "inner", "say \"no\""},
                      {"TamberDebug", "lone", "\""},
                      {"TamberDebug", "empty", ""},
                      {"TamberDebug", "formula", "a=b"},
                      {"TamberDebug", "later", "found"},
                      {"TamberDebug", "last", "no line end"},
                      {"Other", "key", "other"},
                      {"broken", "key", "in broken"},
                      {"TamberDebug", "# key", "<default>"},
                      {"NoSection", "key", "<default>"},
                      {"TamberDebug", "no equals sign", "<default>"}};
  for (const Row& row : rows) {
    EXPECT_EQ(Read(row.section, row.key), row.value) << row.section << "/" << row.key;
  }
}

TEST_F(IniFileTest, OddFilesGiveDefaultsOrTheirText) {
  EXPECT_EQ(Read("s", "k"), "<default>");
  ASSERT_EQ(::mkfifo("t.ini", 0600), 0);
  EXPECT_EQ(Read("s", "k"), "<default>");
  std::filesystem::remove("t.ini");
  std::filesystem::create_directory("t.ini");
  EXPECT_EQ(Read("s", "k"), "<default>");
  std::filesystem::remove("t.ini");
  Put("t.ini", "[s]\nk=a\0b\nlong="sv);
  std::ofstream("t.ini", std::ios::app) << std::string(3'000'000, 'x') << "\nafter=1\n";
  EXPECT_EQ(Read("s", "k"), "a\0b"sv);
  EXPECT_EQ(Read("s", "long").GetLength(), 3'000'000U);
  EXPECT_EQ(Read("s", "after"), "1");
  Put("t.ini", "\xFF\xFE[\0s\0]\0\n\0k\0=\0\xE4\0"sv);
  EXPECT_EQ(Read("s", "k"), "\xC3\xA4");
  Put("t.ini", "[s]\nk=v\n");
  std::filesystem::resize_file("t.ini", (16U << 20) + 1);
  EXPECT_EQ(Read("s", "k"), "<default>");
}

// The cache must never show: not for edits of equal length within the clock's step, not for a file
// that is replaced, goes away, or is another one because the directory changed.
TEST_F(IniFileTest, EveryEditIsSeen) {
  for (int i = 0; i < 10; ++i) {
    Put("t.ini", "[s]\nk=" + std::to_string(i) + "\n");
    EXPECT_EQ(Read("s", "k"), std::to_string(i));
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(150));
  EXPECT_EQ(Read("s", "k"), "9");  // parsed once more and kept from now on
  EXPECT_EQ(Read("s", "k"), "9");
  const auto time = std::filesystem::last_write_time("t.ini");
  Put("t.ini", "[s]\nk=x\n");
  std::filesystem::last_write_time("t.ini", time);
  EXPECT_EQ(Read("s", "k"), "x");
  std::filesystem::create_directory("sub");
  Put("sub/t.ini", "[s]\nk=sub\n");
  std::filesystem::current_path("sub");
  EXPECT_EQ(Read("s", "k"), "sub");
  std::filesystem::current_path("..");
  EXPECT_EQ(Read("s", "k"), "x");
  std::filesystem::remove("t.ini");
  EXPECT_EQ(Read("s", "k"), "<default>");
}

}  // namespace
